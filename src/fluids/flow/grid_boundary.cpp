#include "fluids/flow/grid_boundary.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "fluids/fields/adaptive_container.h"
#include "fluids/volume/solid_hair.h"
#include "fluids/volume/volume_base.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kUntouched = std::numeric_limits<double>::max();

/// Distance of node `i` of `n` to the nearer plane of its axis, in cells: a wall stands one cell
/// inside the outermost nodes, an open side one cell outside.
i32 PlaneDistance(i32 i, i32 n, bool lowWall, bool highWall) {
  return std::min(lowWall ? i - 1 : i + 1, highWall ? n - 2 - i : n - i);
}

/// First node of [first, last) at or above `bound` on an axis; positions rise with the index.
i32 FirstNodeAtOrAbove(const EGrid<double>& grid, i32 axis, double bound, i32 first, i32 last) {
  const GridLayout& layout = grid.mLayout;
  const auto position = [&](i32 i) { return layout.simOrigin[axis] + i * layout.simCell[axis]; };
  const double guess = (bound - layout.simOrigin[axis]) * layout.simToCell[axis];
  i32 i = guess <= first ? first : guess >= last ? last : static_cast<i32>(guess);
  while (i > first && position(i - 1) >= bound) --i;
  while (i < last && position(i) < bound) ++i;
  return i;
}

/// The nodes of `nodes` that lie in the box of a volume's grid, high corner exclusive.
CellBox NodesInside(const EGrid<double>& grid, const GridLayout& box, const CellBox& nodes) {
  CellBox inside;
  for (int a = 0; a < 3; ++a) {
    inside.min[a] = FirstNodeAtOrAbove(grid, a, box.simOrigin[a], nodes.min[a], nodes.max[a]);
    inside.max[a] = FirstNodeAtOrAbove(grid, a, box.simMax[a], nodes.min[a], nodes.max[a]);
  }
  return inside;
}

/// Distances that are 0 but for rounding become 0: otherwise the sign of the rounding would open
/// and close faces at random where a solid's side lies in a plane of nodes.
double DistanceAt(const EGrid<double>& level, const EGrid<double>& volume, i32 x, i32 y, i32 z) {
  const double d = SampleLinear(volume, volume.ToSamples(level.PositionOf(x, y, z)));
  return std::fabs(d) < GridBoundary::kNoise * level.mLayout.cellSize ? 0 : d;
}

void MergeVolume(EGrid<double>& level, const EGrid<double>& volume, const CellBox& nodes) {
  ForEachCell(NodesInside(level, volume.mLayout, nodes), [&](i32 x, i32 y, i32 z) {
    double& phi = level(x, y, z);
    phi = std::min(phi, DistanceAt(level, volume, x, y, z));
  });
}

/// A node of the cells round it lies in a solid.
bool IsBesideSolid(const EGrid<double>& level, const VecInt3D& node) {
  const CellBox box = Clip({node - VecInt3D{1, 1, 1}, node + VecInt3D{2, 2, 2}}, {}, level.Dims());
  bool isSolid = false;
  ForEachCell(box, [&](i32 x, i32 y, i32 z) { isSolid |= !(level(x, y, z) > 0); });
  return isSolid;
}

/// What solids leave open of a cell is told by their distances alone: nothing lies in a sheet, and
/// the way to it would close the gap between both where it is less than a cell.
void MergeSheet(EGrid<double>& level, const EGrid<double>& sheet, i32 threads) {
  const VecInt3D n = level.Dims();
  std::vector<std::vector<std::pair<i32, double>>> nearer(n.z);
  ForEachBlock(n.z, threads, [&](i32 layer) {
    const CellBox nodes{{0, 0, layer}, {n.x, n.y, layer + 1}};
    ForEachCell(NodesInside(level, sheet.mLayout, nodes), [&](i32 x, i32 y, i32 z) {
      const double d = DistanceAt(level, sheet, x, y, z);
      if (d < level(x, y, z) && !IsBesideSolid(level, {x, y, z}))
        nearer[layer].push_back({level.Index(x, y, z), d});
    });
  });
  for (const auto& layer : nearer)
    for (const auto& [node, d] : layer) level[node] = d;
}

}  // namespace

void CollectObstacles(const Scene& scene, std::vector<VolumeBase*>& out) {
  std::vector<iBase*> found;
  scene.CollectObjects(nullptr, found, kListGeometry, kBitAny, kTypeAny, kBitActiveVolume, true,
                       kBitVolume);
  // Not in the order of the file: where two are equally near, the first one's velocity counts.
  std::sort(found.begin(), found.end(),
            [](const iBase* a, const iBase* b) { return a->Node()->Path() < b->Node()->Path(); });
  out.clear();
  for (iBase* object : found)
    if (auto* volume = dynamic_cast<iVolume*>(object)) volume->CollectMembers(out);
}

bool GridBoundary::Fit(const GridLayout& domain, const Vec3d& min, const Vec3d& max) {
  const ContainerShape shape(domain, min, max);
  if (FitContainer(mLevelSet, domain, shape,
                   {kNode, -kUntouched, kUntouched, kUntouched, /*clear=*/true}))
    return true;
  Release();
  return false;
}

void GridBoundary::Reset() {
  if (!mLevelSet || !mLevelSet->mData) return;
  mLevelSet->ResetActive();
  mLevelSet->Fill(kUntouched);
}

void GridBoundary::Persist(StateArchive& archive) {
  archive.ShapeOf(mLevelSet);  // every step builds the distances anew
}

void GridBoundary::Build(i32 threads) {
  if (!mLevelSet) return;
  ForEachBlock(mLevelSet->mNz, threads, [&](i32 z) { BuildLayer(z); });
  for (const VolumeBase* obstacle : mObstacles)
    if (obstacle->Has(FLAG_ENABLED) && obstacle->HasGridData() && obstacle->IsSheet())
      MergeSheet(*mLevelSet, *obstacle->GetGrid(), threads);
}

double GridBoundary::WallDistance(const VecInt3D& node) const {
  const VecInt3D n = mLevelSet->Dims();
  i32 least = std::numeric_limits<i32>::max();
  for (int a = 0; a < 3; ++a)
    least =
        std::min(least, PlaneDistance(node[a], n[a], mWalls & kLowWall[a], mWalls & kHighWall[a]));
  return least * double{mLevelSet->mLayout.cellSize};
}

void GridBoundary::BuildLayer(i32 z) {
  EGrid<double>& level = *mLevelSet;
  const VecInt3D n = level.Dims();
  const double h = level.mLayout.cellSize;
  const auto wall = [this](u8 bit) { return (mWalls & bit) != 0; };
  const i32 dz = PlaneDistance(z, n.z, wall(kWallLowZ), wall(kWallHighZ));
  for (i32 y = 0; y < n.y; ++y) {
    const i32 dyz = std::min(dz, PlaneDistance(y, n.y, wall(kWallLowY), wall(kWallHighY)));
    double* row = level.mData + level.Index(0, y, z);
    for (i32 x = 0; x < n.x; ++x)
      row[x] = std::min(dyz, PlaneDistance(x, n.x, wall(kWallLowX), wall(kWallHighX))) * h;
  }
  for (const VolumeBase* obstacle : mObstacles)
    if (obstacle->Has(FLAG_ENABLED) && obstacle->HasGridData() && !obstacle->IsSheet())
      MergeVolume(level, *obstacle->GetGrid(), {{0, 0, z}, {n.x, n.y, z + 1}});
}

void GridBoundary::ComputeActiveBox(i32 threads) {
  EGrid<double>* level = GetLevelSet();
  if (!level || !level->mData) return;
  struct Box {
    VecInt3D min, max;
  };
  const VecInt3D n = level->Dims();
  const Box empty{n, {-1, -1, -1}};
  const Box box = ReduceBlocks(
      n.z, threads, empty,
      [&](i32 z) {
        Box layer = empty;
        for (i32 y = 0; y < n.y; ++y) {
          const double* row = level->mData + level->Index(0, y, z);
          i32 first = 0, last = n.x - 1;
          while (first < n.x && !(row[first] <= 0)) ++first;
          if (first == n.x) continue;
          while (!(row[last] <= 0)) --last;
          layer.min = Min(layer.min, VecInt3D{first, y, z});
          layer.max = Max(layer.max, VecInt3D{last, y, z});
        }
        return layer;
      },
      [](const Box& a, const Box& b) {
        return Box{Min(a.min, b.min), Max(a.max, b.max)};
      });
  level->ResetActive();
  if (box.max.x < 0) return;
  level->mActiveMin = box.min;
  level->mActiveMax = box.max;
  if (box.min == box.max) level->mActiveMax += VecInt3D{1, 1, 1};
}

double GridBoundary::SampleIndex(const Vec3d& c) const {
  const EGrid<double>* level = GetLevelSet();
  return level ? SampleLinear(*level, c) : 0.0;
}

double GridBoundary::SampleRelative(const Vec3d& p) const {
  const EGrid<double>* level = GetLevelSet();
  return level ? SampleLinear(*level, p * level->mLayout.simToCell) : 0.0;
}

double GridBoundary::SampleWorld(const Vec3d& p) const {
  const EGrid<double>* level = GetLevelSet();
  return level ? SampleLinear(*level, level->mLayout.ToCells(p)) : 0.0;
}

Vec3d GridBoundary::GradientIndex(const Vec3d& c) const {
  const EGrid<double>* level = GetLevelSet();
  return level ? SampleGradient(*level, c, level->mLayout.cellSize) : Vec3d{};
}

Vec3d GridBoundary::GradientRelative(const Vec3d& p) const {
  const EGrid<double>* level = GetLevelSet();
  return level ? GradientIndex(p * level->mLayout.simToCell) : Vec3d{};
}

Vec3d GridBoundary::GradientWorld(const Vec3d& p) const {
  const EGrid<double>* level = GetLevelSet();
  return level ? GradientIndex(level->mLayout.ToCells(p)) : Vec3d{};
}

bool GridBoundary::IsSolid(const Vec3d& indexPosition, const EGrid<double>& grid,
                           bool rescale) const {
  const EGrid<double>* level = GetLevelSet();
  if (!level) return false;
  const Vec3d c =
      rescale
          ? level->mLayout.ToCells(grid.mLayout.simOrigin + indexPosition * grid.mLayout.simCell)
          : indexPosition;
  return !(SampleLinear(*level, c) > kSolidHair * level->mLayout.cellSize);
}

bool GridBoundary::ClampToDomain(Vec3d& relative, u8 sides) const {
  const EGrid<double>* level = GetLevelSet();
  if (!level) return false;
  const VecInt3D n = level->Dims();
  const f32 h = level->mLayout.cellSize;
  const f32 margin = h * 1.001f;
  bool moved = false;
  for (int a = 0; a < 3; ++a) {
    double& c = relative[a];
    if (c < h && (sides & kLowWall[a])) {
      c = margin;
    } else if (c > (n[a] - 2) * static_cast<double>(h) && (sides & kHighWall[a])) {
      c = (n[a] - 1) * static_cast<double>(h) - margin;
    } else {
      continue;
    }
    moved = true;
  }
  return moved;
}

bool GridBoundary::PushOut(Vec3d& position, bool relative, double margin, u8 sides) const {
  const EGrid<double>* level = GetLevelSet();
  if (!level) return true;
  const Vec3d origin = relative ? Vec3d{} : level->mLayout.simOrigin;
  Vec3d p = position - origin;
  const bool clamped = ClampToDomain(p, sides);
  const double phi = SampleRelative(p);
  if (phi < 0) p -= Normalised(GradientRelative(p)) * (phi + margin);
  // A point that stays where it is keeps its bits.
  if (clamped || phi < 0) position = p + origin;
  return clamped || phi < 0;
}

bool GridBoundary::Collide(const Vec3d& position, bool absolute, SolidContact& contact,
                           f32 radius) const {
  const EGrid<double>* level = GetLevelSet();
  if (!level) return true;
  const Vec3d origin = absolute ? level->mLayout.simOrigin : Vec3d{};
  const bool hitDomain = CollideDomain(position - origin, contact, radius);
  const Vec3d inside = contact.position;
  contact.depth = SampleRelative(inside) - radius;
  contact.position = inside + origin;
  if (hitDomain) return true;
  if (static_cast<f32>(contact.depth) >= 0.0f) {
    contact.hit = false;
    contact.normal = {0, 1, 0};
    contact.position = position;
    return false;
  }
  contact.hit = true;
  contact.normal = Normalised(GradientRelative(inside));
  contact.position -= contact.normal * contact.depth;
  return true;
}

bool GridBoundary::CollideDomain(const Vec3d& relative, SolidContact& contact, f32 radius) const {
  contact = {};
  contact.position = relative;
  const EGrid<double>* level = GetLevelSet();
  if (!level) return false;
  const VecInt3D n = level->Dims();
  const f32 h = level->mLayout.cellSize;
  const f32 limit = h + radius;
  for (int a = 0; a < 3; ++a) {
    const double top = (n[a] - 1) * static_cast<double>(h) - limit;
    if ((mWalls & kLowWall[a]) && relative[a] < limit) {
      contact.position[a] = limit;
      contact.normal[a] = 1.0;
      contact.depth = limit - relative[a];
    } else if ((mWalls & kHighWall[a]) && relative[a] > top) {
      contact.position[a] = top;
      contact.normal[a] = -1.0;
      contact.depth = relative[a] - top;
    } else {
      continue;
    }
    contact.hit = true;
  }
  return contact.hit;
}

u32 GridBoundary::SolidMask(const Vec3d& relative) const {
  const EGrid<double>* level = GetLevelSet();
  if (!level) return 0;
  const Vec3d c = relative * level->mLayout.simToCell;
  const VecInt3D n = level->Dims();
  for (int a = 0; a < 3; ++a)
    if (!(c[a] > -1.0 && c[a] < n[a] - 1)) return 0;
  const double* p = level->mData + level->Index(static_cast<i32>(c.x), static_cast<i32>(c.y),
                                                static_cast<i32>(c.z));
  u32 mask = 0;
  for (int corner = 0; corner < 8; ++corner) {
    const i32 dx = corner >> 2, dy = (corner >> 1) & 1, dz = corner & 1;
    if (p[dx + dy * level->mNx + dz * level->mSlice] < 0) mask |= 1u << corner;
  }
  return mask;
}

bool GridBoundary::IsOutsideOpenSide(const Vec3d& relative) const {
  const EGrid<double>* level = GetLevelSet();
  if (!level) return false;
  const VecInt3D n = level->Dims();
  const double h = level->mLayout.cellSize;
  for (int a = 0; a < 3; ++a) {
    if (!(mWalls & kLowWall[a]) && relative[a] < h) return true;
    if (!(mWalls & kHighWall[a]) && relative[a] > (n[a] - 2) * h) return true;
  }
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
