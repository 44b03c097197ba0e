#include <fmt/format.h>
#include <openvdb/openvdb.h>

#include <cmath>
#include <limits>

#include "exchange/vdb_archive.h"
#include "host/file_error.h"
#include "io/vdb_info.h"
#include "io/volume_files.h"

namespace MELDO_GLOBAL::app {

namespace {

using openvdb::Coord;

/// A hundred units of a host are a metre, as documents have it where they say nothing else.
constexpr double kWorldUnits = 100;

/// The layout of so many cells whose first sample stands at voxel `first`.
GridLayout LayoutAt(const openvdb::GridBase& grid, const Coord& first, const VecInt3D& dims,
                    const Vec3d& offset) {
  const openvdb::Vec3d place = grid.indexToWorld(first);
  const double h = grid.voxelSize()[0];
  Vec3d origin;
  for (int a = 0; a < 3; ++a) origin[a] = (place[a] - offset[a] * h) * kWorldUnits;
  GridLayout layout;
  const auto cell = static_cast<f32>(h);
  layout.Set(dims, ToReal(dims) * (static_cast<double>(cell) * kWorldUnits), cell, origin);
  return layout;
}

/// The box of the active voxels, at least two wide; refused where no dense grid has room for it.
openvdb::CoordBBox BoxOf(const openvdb::GridBase& grid) {
  openvdb::CoordBBox box = grid.evalActiveVoxelBoundingBox();
  if (box.empty()) box.reset(Coord(0), Coord(1));
  box.expand(Coord(box.max().x() + (box.dim().x() < 2), box.max().y() + (box.dim().y() < 2),
                   box.max().z() + (box.dim().z() < 2)));
  // Who samples beyond a grid gets the nearest value: fields end in a layer of their background.
  const bool isField = grid.getGridClass() != openvdb::GRID_LEVEL_SET &&
                       grid.getGridClass() != openvdb::GRID_STAGGERED;
  if (isField) box.expand(1);
  double count = 1;
  for (int a = 0; a < 3; ++a) count *= 1.0 + box.max()[a] - box.min()[a];
  if (count > std::numeric_limits<i32>::max())
    throw host::FileError(
        fmt::format("the box of its grid '{}' has too many voxels", grid.getName()));
  return box;
}

class VdbLoader {
 public:
  explicit VdbLoader(LoadedVolumes& volumes) : mVolumes(volumes) {}

  /// Takes a grid of one or three numbers in each voxel; false for another type.
  bool Take(const openvdb::GridBase& grid) {
    if (const auto* f = dynamic_cast<const openvdb::FloatGrid*>(&grid)) return TakeScalar(*f);
    if (const auto* d = dynamic_cast<const openvdb::DoubleGrid*>(&grid)) return TakeScalar(*d);
    if (const auto* v = dynamic_cast<const openvdb::Vec3SGrid*>(&grid)) return TakeVector(*v);
    if (const auto* v = dynamic_cast<const openvdb::Vec3DGrid*>(&grid)) return TakeVector(*v);
    return false;
  }

 private:
  EGrid<double>& Make(const GridLayout& layout, i32 kind) {
    auto grid = std::make_unique<EGrid<double>>(layout, kind);
    if (!grid->mData) throw std::bad_alloc();
    return *mVolumes.grids.emplace_back(std::move(grid));
  }

  /// The kind of a field at cell centres: that of the cache which it comes from, if any.
  static i32 CentreKindOf(const openvdb::GridBase& grid) {
    const auto told = grid.getMetadata<openvdb::Int32Metadata>(kSampleKindKey);
    const bool isCentred = told && OffsetOf(told->value()) == OffsetOf(kCentre) &&
                           ExtraOf(told->value()) == ExtraOf(kCentre);
    return isCentred ? told->value() : i32{kCentre};
  }

  void Keep(const openvdb::GridBase& grid, Field field) {
    if (const auto unit = grid.getMetadata<openvdb::StringMetadata>("unit"))
      field.unit = mVolumes.units.emplace_back(unit->value()).c_str();
    mVolumes.fields.push_back({grid.getName(), field});
  }

  template <class Grid>
  bool TakeScalar(const Grid& grid) {
    const bool isLevelSet = grid.getGridClass() == openvdb::GRID_LEVEL_SET;
    const openvdb::CoordBBox box = BoxOf(grid);
    const VecInt3D samples{box.dim().x(), box.dim().y(), box.dim().z()};
    const i32 kind = isLevelSet ? i32{kNode} : CentreKindOf(grid);
    EGrid<double>& out =
        Make(LayoutAt(grid, box.min(), samples - ExtraOf(kind), OffsetOf(kind)), kind);
    const auto reader = grid.getConstAccessor();
    ForEachCell({{0, 0, 0}, samples}, [&](i32 x, i32 y, i32 z) {
      out(x, y, z) = reader.getValue(box.min().offsetBy(x, y, z));
    });
    Field field;
    field.kind = isLevelSet ? Field::Kind::LevelSet : Field::Kind::Scalar;
    field.grids[0] = &out;
    Keep(grid, field);
    return true;
  }

  template <class Grid>
  bool TakeVector(const Grid& grid) {
    const bool isStaggered = grid.getGridClass() == openvdb::GRID_STAGGERED;
    const openvdb::CoordBBox box = BoxOf(grid);
    VecInt3D cells{box.dim().x(), box.dim().y(), box.dim().z()};
    // The last voxel of each axis has the faces at the high side alone.
    if (isStaggered) cells = Max(cells - VecInt3D{1, 1, 1}, VecInt3D{1, 1, 1});
    const GridLayout layout = LayoutAt(grid, box.min(), cells, OffsetOf(kCentre));
    const auto reader = grid.getConstAccessor();
    Field field;
    field.kind = isStaggered ? Field::Kind::Velocity : Field::Kind::Vector;
    for (int c = 0; c < 3; ++c) {
      EGrid<double>& out = Make(layout, isStaggered ? kFaceX + c : CentreKindOf(grid));
      ForEachCell({{0, 0, 0}, out.Dims()}, [&](i32 x, i32 y, i32 z) {
        out(x, y, z) = reader.getValue(box.min().offsetBy(x, y, z))[c];
      });
      field.grids[c] = &out;
    }
    Keep(grid, field);
    return true;
  }

  LoadedVolumes& mVolumes;
};

template <class Meta, class Value>
void TakeRemark(const openvdb::GridBase& grid, const char* key, Value& value) {
  if (const auto meta = grid.template getMetadata<Meta>(key)) value = meta->value();
}

}  // namespace

LoadedVolumes ReadVdbVolumes(const std::filesystem::path& path) {
  const auto fail = [&](const std::string& why) {
    throw host::FileError("cannot read " + path.string() + ": " + why);
  };
  LoadedVolumes volumes;
  // Tells a file that was cut or changed.
  ReadVdbInfo(path);
  try {
    openvdb::io::File file(path.string());
    file.open(false);
    const openvdb::GridPtrVecPtr grids = file.getGrids();
    VdbLoader loader(volumes);
    for (const auto& grid : *grids) {
      if (!grid->transform().hasUniformScale())
        fail("the voxels of its grid '" + grid->getName() + "' aren't cubes");
      if (!loader.Take(*grid)) continue;
      TakeRemark<openvdb::StringMetadata>(*grid, "version", volumes.origin.version);
      TakeRemark<openvdb::Int32Metadata>(*grid, "frame", volumes.origin.frame);
      TakeRemark<openvdb::DoubleMetadata>(*grid, "time", volumes.origin.seconds);
      TakeRemark<openvdb::DoubleMetadata>(*grid, "fps", volumes.origin.fps);
      std::string print;
      TakeRemark<openvdb::StringMetadata>(*grid, "fingerprint", print);
      if (!print.empty()) volumes.origin.simulation = std::strtoull(print.c_str(), nullptr, 16);
    }
  } catch (const openvdb::Exception& error) {
    fail(error.what());
  } catch (const host::FileError& error) {
    const std::string why = error.what();
    if (why.starts_with("cannot read")) throw;
    fail(why);
  }
  if (volumes.fields.empty()) fail("it holds no grid of numbers or vectors");
  return volumes;
}

}  // namespace MELDO_GLOBAL::app
