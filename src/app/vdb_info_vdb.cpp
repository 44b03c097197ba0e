#include <openvdb/openvdb.h>

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
  try {
    openvdb::initialize();
    openvdb::io::File file(path.string());
    file.open(false);
    const openvdb::GridPtrVecPtr grids = file.readAllGridMetadata();
    std::vector<VdbGridInfo> infos;
    for (const auto& grid : *grids) infos.push_back(InfoOf(*grid));
    return infos;
  } catch (const std::exception& error) {
    throw host::FileError("cannot read " + path.string() + ": " + error.what());
  }
}

}  // namespace MELDO_GLOBAL::app
