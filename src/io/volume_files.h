// Volumes of whole files: our caches and files of the volume library.
#pragma once
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "io/vdb_writer.h"

namespace MELDO_GLOBAL::app {

/// Fields of a file and the grids that they point to.
struct LoadedVolumes {
  std::vector<std::unique_ptr<EGrid<double>>> grids;
  std::vector<NamedField> fields;
  std::deque<std::string> units;  ///< that fields point to
  ExportOrigin origin;
};

/// The grids of a cache's frame, each under the name of its object. Throws host::FileError.
LoadedVolumes ReadCacheVolumes(const std::filesystem::path& path);
/// The scalars and vectors of a volume file, each within the box of its active voxels. Throws
/// host::FileError.
LoadedVolumes ReadVdbVolumes(const std::filesystem::path& path);
/// Writes them as a frame of a cache. Throws host::FileError.
void WriteCacheVolumes(const std::filesystem::path& path, const LoadedVolumes& volumes);

/// Writes a file of one of both kinds anew as the name of the other tells, .vdb or .cache, and
/// answers what it holds. Throws host::FileError.
std::string ConvertVolumes(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace MELDO_GLOBAL::app
