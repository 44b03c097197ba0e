// What a volume file of any program holds.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::app {

/// A grid of a volume file, as its metadata tell.
struct VdbGridInfo {
  std::string name;
  std::string type;       ///< of the values, such as "float"
  std::string kind;       ///< such as "fog volume"
  VecInt3D min{}, max{};  ///< first and last active voxel
  bool hasBox = false;
  i64 voxels = -1;  ///< active ones; -1 where the file doesn't tell
  double voxelSize = 0;
  std::string origin;  ///< frame, time, unit and fingerprint, of a file of our own; else empty
};

/// Reads the metadata of a volume file. Throws host::FileError.
std::vector<VdbGridInfo> ReadVdbInfo(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::app
