// Files of a sequence, one for each frame.
#pragma once
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// "smoke.####.vdb" with frame 7 gives "smoke.0007.vdb"; a pattern without # is returned as it is.
/// The last run of # counts. Numbers with more digits than # aren't cut; a minus stands before the
/// padding ("smoke.-0007.vdb").
std::string FrameFileName(const std::string& pattern, i32 frame);

/// The files of a sequence by their frames.
std::map<i32, std::filesystem::path> FilesOfSequence(const std::string& pattern);

/// The pattern with another number of # that has files, most of all; empty where none has.
std::string PatternInstead(const std::string& pattern);

/// The file of a frame, and where it has none that of the last one before, so that the answer
/// depends on the frame alone; empty before the first. `what` ("mesh file") and the name of the
/// object stand in the message of the MeshFileError that ends a hole between files, unless the
/// object goes on behind it.
std::string FileAtFrame(const std::string& pattern, i32 frame, bool goesOn, std::string_view what,
                        std::string_view object);

}  // namespace MELDO_GLOBAL::host
