#include <openvdb/openvdb.h>

#include <algorithm>
#include <set>

#include "exchange/vdb_archive.h"
#include "host/exit_codes.h"
#include "io/vdb_writer.h"

namespace MELDO_GLOBAL::app {

namespace {

using openvdb::Coord;

/// Where the samples of a grid stand in a file.
struct Placement {
  Coord first;  ///< voxel of sample (0, 0, 0)
  VecInt3D dims{};
  openvdb::math::Transform::Ptr transform;
};

Placement PlacementOf(const EGrid<double>& grid, const VecInt3D& dims, const Vec3d& offset) {
  const GridLayout& layout = grid.mLayout;
  const double h = layout.cellSize;
  Placement placement;
  Vec3d shift;
  VecInt3D first;
  for (int a = 0; a < 3; ++a) {
    first[a] = static_cast<i32>(std::floor(layout.simOrigin[a] / h + 0.5));
    // Containers stand on whole cells; what rounding leaves of that must not move the voxels.
    shift[a] = layout.simOrigin[a] - first[a] * h;
    if (std::abs(shift[a]) < 1e-4 * h) shift[a] = 0;
    shift[a] += offset[a] * h;
  }
  placement.first = Coord(first.x, first.y, first.z);
  placement.dims = dims;
  placement.transform = openvdb::math::Transform::createLinearTransform(h);
  placement.transform->postTranslate(openvdb::Vec3d(shift.x, shift.y, shift.z));
  return placement;
}

constexpr int kLeaf = 8;
constexpr int kLeafShift = 3;

/// Calls f(leaf corner, box of the container's voxels in the leaf) for every leaf that meets the
/// container.
template <class F>
void ForEachLeaf(const Placement& p, F&& f) {
  const Coord end = p.first + Coord(p.dims.x, p.dims.y, p.dims.z);
  const auto corner = [](int i) { return (i >> kLeafShift) * kLeaf; };
  for (int x = corner(p.first.x()); x < end.x(); x += kLeaf)
    for (int y = corner(p.first.y()); y < end.y(); y += kLeaf)
      for (int z = corner(p.first.z()); z < end.z(); z += kLeaf) {
        const Coord low(x, y, z);
        f(low, openvdb::CoordBBox(Coord::maxComponent(low, p.first),
                                  Coord::minComponent(low.offsetBy(kLeaf), end).offsetBy(-1)));
      }
}

/// Fills the leaves of a tree from a dense box: sample(x, y, z) of container indices gives the
/// value, isActive(value) whether the voxel is active. A leaf without active voxels is left out.
template <class Tree, class Sample, class IsActive>
void FillTree(Tree& tree, const Placement& p, Sample&& sample, IsActive&& isActive) {
  using Leaf = typename Tree::LeafNodeType;
  ForEachLeaf(p, [&](const Coord& low, const openvdb::CoordBBox& box) {
    auto leaf = std::make_unique<Leaf>(low, tree.background(), false);
    for (int x = box.min().x(); x <= box.max().x(); ++x)
      for (int y = box.min().y(); y <= box.max().y(); ++y)
        for (int z = box.min().z(); z <= box.max().z(); ++z) {
          const auto value = sample(x - p.first.x(), y - p.first.y(), z - p.first.z());
          if (isActive(value)) leaf->setValueOn(Leaf::coordToOffset(Coord(x, y, z)), value);
        }
    if (!leaf->isEmpty()) tree.addLeaf(leaf.release());
  });
}

openvdb::GridBase::Ptr EncodeScalar(const Field& field) {
  auto out = openvdb::FloatGrid::create(0.0f);
  out->setGridClass(openvdb::GRID_FOG_VOLUME);
  if (!field.HasGrid()) return out;
  const EGrid<double>& grid = *field.grids[0];
  const Placement p = PlacementOf(grid, grid.Dims(), OffsetOf(grid.mKind));
  out->setTransform(p.transform);
  FillTree(
      out->tree(), p, [&](int x, int y, int z) { return static_cast<float>(grid(x, y, z)); },
      [](float v) { return v != 0; });
  return out;
}

openvdb::GridBase::Ptr EncodeVector(const Field& field) {
  auto out = openvdb::Vec3SGrid::create(openvdb::Vec3s(0));
  if (!field.HasGrid() || !field.grids[1] || !field.grids[2]) return out;
  const auto& g = field.grids;
  const Placement p = PlacementOf(*g[0], g[0]->Dims(), OffsetOf(g[0]->mKind));
  out->setTransform(p.transform);
  FillTree(
      out->tree(), p,
      [&](int x, int y, int z) {
        return openvdb::Vec3s(static_cast<float>((*g[0])(x, y, z)),
                              static_cast<float>((*g[1])(x, y, z)),
                              static_cast<float>((*g[2])(x, y, z)));
      },
      [](const openvdb::Vec3s& v) { return v != openvdb::Vec3s(0); });
  return out;
}

openvdb::GridBase::Ptr EncodeVelocity(const Field& field) {
  auto out = openvdb::Vec3SGrid::create(openvdb::Vec3s(0));
  out->setGridClass(openvdb::GRID_STAGGERED);
  out->setVectorType(openvdb::VEC_CONTRAVARIANT_RELATIVE);
  out->setIsInWorldSpace(true);
  if (!field.HasGrid() || !field.grids[1] || !field.grids[2]) return out;
  const auto& g = field.grids;
  // One voxel more than there are cells on each axis, for the faces at the high sides.
  const Placement p = PlacementOf(*g[0], g[0]->mLayout.dims + VecInt3D{1, 1, 1}, {0.5, 0.5, 0.5});
  out->setTransform(p.transform);
  const auto component = [](const EGrid<double>& grid, int x, int y, int z) {
    const bool isInside = x < grid.mNx && y < grid.mNy && z < grid.mNz;
    return isInside ? static_cast<float>(grid(x, y, z)) : 0.0f;
  };
  FillTree(
      out->tree(), p,
      [&](int x, int y, int z) {
        return openvdb::Vec3s(component(*g[0], x, y, z), component(*g[1], x, y, z),
                              component(*g[2], x, y, z));
      },
      [](const openvdb::Vec3s&) { return true; });
  return out;
}

/// A grid of a level set and where it stands.
struct LevelSetPart {
  const EGrid<double>* grid;
  Placement placement;
  float beyond;  ///< the distance, cut to the band, where the grid ends

  /// The distance at a voxel, cut to the band.
  float At(const Coord& voxel) const {
    const Coord c = voxel - placement.first;
    const VecInt3D& d = placement.dims;
    const bool isHeld =
        c.x() >= 0 && c.y() >= 0 && c.z() >= 0 && c.x() < d.x && c.y() < d.y && c.z() < d.z;
    const float band = std::abs(beyond);
    return isHeld ? std::clamp(static_cast<float>((*grid)(c.x(), c.y(), c.z())), -band, band)
                  : beyond;
  }
  bool Meets(const Coord& leaf) const {
    const Coord end = placement.first + Coord(placement.dims.x, placement.dims.y, placement.dims.z);
    return openvdb::CoordBBox(placement.first, end.offsetBy(-1))
        .hasOverlap(openvdb::CoordBBox::createCube(leaf, kLeaf));
  }
};

/// The distance at a voxel to the nearest of some parts, at most `most`.
float LeastDistance(const std::vector<const LevelSetPart*>& parts, const Coord& voxel, float most) {
  for (const LevelSetPart* part : parts) most = std::min(most, part->At(voxel));
  return most;
}

std::vector<LevelSetPart> PartsOf(const Field& field, float band) {
  std::vector<LevelSetPart> parts;
  const auto add = [&](const EGrid<double>& grid) {
    // What lies beyond a grid is on the side that its corner is on: inside for an inverted volume.
    parts.push_back({&grid, PlacementOf(grid, grid.Dims(), OffsetOf(grid.mKind)),
                     grid(0, 0, 0) < 0 ? -band : band});
  };
  add(*field.grids[0]);
  for (const EGrid<double>* other : field.others) add(*other);
  return parts;
}

/// Adds the leaf at `low`, or a tile where the leaf would be of one value.
void AddLeaf(openvdb::FloatTree& tree, const std::vector<LevelSetPart>& parts, const Coord& low) {
  using Leaf = openvdb::FloatTree::LeafNodeType;
  const float band = std::abs(tree.background());
  std::vector<const LevelSetPart*> near;
  float far = band;
  for (const LevelSetPart& part : parts) {
    if (part.Meets(low)) {
      near.push_back(&part);
    } else {
      far = std::min(far, part.beyond);
    }
  }
  auto leaf = std::make_unique<Leaf>(low, tree.background(), false);
  for (openvdb::Index i = 0; i < Leaf::SIZE; ++i) {
    const float d = LeastDistance(near, leaf->offsetToGlobalCoord(i), far);
    leaf->setValueOff(i, d);
    if (std::abs(d) < band) leaf->setActiveState(i, true);
  }
  float same;
  bool active;
  if (!leaf->isConstant(same, active)) {
    tree.addLeaf(leaf.release());
  } else if (same != tree.background()) {
    tree.addTile(1, low, same, false);
  }
}

openvdb::GridBase::Ptr EncodeLevelSet(const Field& field) {
  const double h = field.HasGrid() ? field.grids[0]->mLayout.cellSize : field.cellSize;
  const float band = static_cast<float>(kLevelSetBand * h);
  const auto create = [&](float background) {
    auto out = openvdb::FloatGrid::create(background);
    out->setGridClass(openvdb::GRID_LEVEL_SET);
    return out;
  };
  if (!field.HasGrid()) return create(band);
  const std::vector<LevelSetPart> parts = PartsOf(field, band);
  float beyond = band;
  for (const LevelSetPart& part : parts) beyond = std::min(beyond, part.beyond);
  auto out = create(beyond);
  out->setTransform(parts.front().placement.transform);
  std::set<Coord> done;
  for (const LevelSetPart& part : parts)
    ForEachLeaf(part.placement, [&](const Coord& low, const openvdb::CoordBBox&) {
      if (done.insert(low).second) AddLeaf(out->tree(), parts, low);
    });
  return out;
}

openvdb::GridBase::Ptr Encode(const Field& field) {
  switch (field.kind) {
    case Field::Kind::Vector: return EncodeVector(field);
    case Field::Kind::Velocity: return EncodeVelocity(field);
    case Field::Kind::LevelSet: return EncodeLevelSet(field);
    default: return EncodeScalar(field);
  }
}

std::string EncodeGrids(const std::vector<NamedField>& fields, const ExportOrigin& origin) {
  openvdb::initialize();
  openvdb::GridCPtrVec grids;
  for (const NamedField& named : fields) {
    const openvdb::GridBase::Ptr grid = Encode(named.field);
    if (!named.field.HasGrid()) {
      const double h = named.field.cellSize;
      grid->setTransform(openvdb::math::Transform::createLinearTransform(h));
      if (named.field.kind != Field::Kind::LevelSet)
        grid->transform().postTranslate(openvdb::Vec3d(0.5 * h));
    }
    grid->setName(named.name);
    exchange::Describe(*grid, RemarksOf(origin, named.field.unit));
    if (named.sampleKind >= 0)
      grid->insertMeta(kSampleKindKey, openvdb::Int32Metadata(named.sampleKind));
    grids.push_back(grid);
  }
  return exchange::EncodeArchive(grids);
}

}  // namespace

std::string EncodeVdb(const std::vector<NamedField>& fields, const ExportOrigin& origin) {
  try {
    return EncodeGrids(fields, origin);
  } catch (const openvdb::Exception& error) {
    throw CommandError(kExitFile, std::string("cannot make a volume file: ") + error.what());
  }
}

}  // namespace MELDO_GLOBAL::app
