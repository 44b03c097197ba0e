#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>

#include <fstream>
#include <new>
#include <stdexcept>

#include "app/vdb_info.h"
#include "host/atomic_file.h"

namespace MELDO_GLOBAL::app {

namespace {

VdbGridInfo InfoOf(const openvdb::GridBase& grid) {
  VdbGridInfo info;
  info.name = grid.getName();
  info.type = grid.valueType();
  info.kind = openvdb::GridBase::gridClassToString(grid.getGridClass());
  info.voxelSize = grid.voxelSize()[0];
  const auto low = grid.getMetadata<openvdb::Vec3IMetadata>("file_bbox_min");
  const auto high = grid.getMetadata<openvdb::Vec3IMetadata>("file_bbox_max");
  if (low && high) {
    const openvdb::Vec3i a = low->value(), b = high->value();
    info.min = {a[0], a[1], a[2]};
    info.max = {b[0], b[1], b[2]};
    info.hasBox = true;
  }
  if (const auto count = grid.getMetadata<openvdb::Int64Metadata>("file_voxel_count"))
    info.voxels = count->value();
  return info;
}

}  // namespace

std::vector<VdbGridInfo> ReadVdbInfo(const std::filesystem::path& path) {
  const auto fail = [&](const std::string& why) {
    throw host::FileError("cannot read " + path.string() + ": " + why);
  };
  try {
    openvdb::initialize();
    // The library never asks whether a read succeeded: on a file that was cut it would go on with
    // whatever its variables held. A stream that throws stops it at the first missing byte.
    std::ifstream bytes(path, std::ios::binary);
    bytes.exceptions(std::ios::failbit | std::ios::badbit | std::ios::eofbit);
    openvdb::io::Stream file(bytes, /*delayLoad=*/false);
    std::vector<VdbGridInfo> infos;
    for (const auto& grid : *file.getGrids()) infos.push_back(InfoOf(*grid));
    return infos;
  } catch (const std::ios_base::failure&) {
    fail("it ends too early");
  } catch (const std::bad_alloc&) {
    fail("it is damaged");
  } catch (const std::length_error&) {
    fail("it is damaged");
  } catch (const std::exception& error) {
    fail(error.what());
  }
  return {};
}

}  // namespace MELDO_GLOBAL::app
