// What kind of thing a file of any tool holds.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::app {

enum class FileContent { Unknown, Particles, Mesh, Volumes };

/// What a file holds, and whether a cache has recorded it.
struct FoundContent {
  FileContent content = FileContent::Unknown;
  bool isRecording = false;
};

/// By the first bytes of a file, and where these don't tell by its name. Throws host::FileError.
FoundContent ContentOf(const std::filesystem::path& path);
/// "particles", "a mesh" or "volumes".
const char* NameOf(FileContent content);
/// The names of the formats that such a thing can be written in, as they stand behind the dot.
std::vector<std::string> WritableFormats(FileContent content);

}  // namespace MELDO_GLOBAL::app
