// Recordings outside of the output folder, which its lock doesn't cover.
#pragma once
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/folder_lock.h"
#include "run/simulation.h"

namespace MELDO_GLOBAL::app {

using RecordingLocks = std::vector<std::unique_ptr<host::FolderLock>>;

/// Locks the names of each cache that records into a folder outside of `out`, which has a
/// lock of its own; other names in that folder stay free. Throws host::FileError where another
/// process holds them, or the folder can't be made.
RecordingLocks LockRecordings(const Simulation& simulation, const std::filesystem::path& out,
                              const std::string& purpose);

}  // namespace MELDO_GLOBAL::app
