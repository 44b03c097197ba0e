#include "fluids/flow/wall_feet.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "fluids/volume/solid_hair.h"
#include "fluids/volume/volume_base.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// In cells: a solid that is thicker than what counts as a thin wall is somewhere as deep.
constexpr double kDepth = 0.9;
/// Of a cell or face along an axis, in cells from its middle; close to its ends to find strips.
constexpr double kPlaces[] = {0, -0.45, 0.45};
constexpr double kFacePlaces[] = {0, -0.45, 0.45, -0.25, 0.25};
constexpr double kSamePlace = 1e-6;    ///< cells: by less no place is farther from the surfaces
constexpr double kLongestStep = 0.25;  ///< cells: farther off a node may know other triangles
constexpr i32 kMostSteps = 64;  ///< along a way; one that runs beside a surface for long meets it

auto OrderOf(const VecInt3D& cell) { return std::tuple(cell.z, cell.y, cell.x); }

auto OrderOf(const ThinWalls::Face& face) { return std::tuple(OrderOf(face.at), face.axis); }

/// In order, each once.
template <class T>
void SortOnce(std::vector<T>& items) {
  std::sort(items.begin(), items.end(),
            [](const T& a, const T& b) { return OrderOf(a) < OrderOf(b); });
  items.erase(std::unique(items.begin(), items.end()), items.end());
}

Vec3d CentreOf(const VecInt3D& cell) { return ToReal(cell) + Vec3d{0.5, 0.5, 0.5}; }

}  // namespace

WallFeet::WallFeet(const GridBoundary& boundary)
    : mLevel(*boundary.GetLevelSet()), mSolids(boundary) {
  for (const VolumeBase* obstacle : boundary.mObstacles)
    if (obstacle->Has(FLAG_ENABLED) && obstacle->IsSheet())
      if (auto surface = obstacle->GetWallSurface()) mSheets.push_back(*std::move(surface));
}

/// Some node of the cells, or one beside them, lies deep in a solid.
bool WallFeet::HasDepth(const CellBox& cells) const {
  const CellBox nodes =
      Clip({cells.min - VecInt3D{1, 1, 1}, cells.max + VecInt3D{2, 2, 2}}, {}, mLevel.Dims());
  double least = 0;
  ForEachCell(nodes, [&](i32 x, i32 y, i32 z) { least = std::min(least, mLevel(x, y, z)); });
  return least <= -kDepth * mLevel.mLayout.cellSize;
}

/// Those that share a corner with closed faces near thick solids.
std::vector<VecInt3D> WallFeet::CellsBeside(std::span<const Face> closed) const {
  const VecInt3D one{1, 1, 1};
  std::vector<VecInt3D> cells;
  for (const Face& face : closed) {
    const CellBox box = Clip({face.at - one - ExtraOf(face.axis), face.at + one + one}, one,
                             mLevel.mLayout.dims - one);
    if (box.IsEmpty() || !HasDepth(box)) continue;
    ForEachCell(box, [&](i32 x, i32 y, i32 z) { cells.push_back({x, y, z}); });
  }
  SortOnce(cells);
  return cells;
}

/// Those of sunk cells.
std::vector<WallFeet::Face> WallFeet::FacesAtFoot(std::span<const Face> closed, i32 threads) {
  const std::vector<VecInt3D> cells = CellsBeside(closed);
  mSunk.clear();
  if (cells.empty()) return {};
  mSolids.LinkTriangles();
  for (SharpSurface& sheet : mSheets) sheet.LinkTriangles();
  const double hair = kSolidHair * mLevel.mLayout.cellSize;
  std::vector<std::vector<Sunk>> found(cells.size());
  ForEachBlock(static_cast<i32>(cells.size()), threads, [&](i32 i) {
    const VecInt3D& cell = cells[i];
    if (mSolids.DistanceAt(mLevel.mLayout.simOrigin + CentreOf(cell) * mLevel.mLayout.simCell) >
            hair ||
        !HasDepth({cell, cell + VecInt3D{1, 1, 1}}))
      return;
    found[i].push_back({cell, FarthestPlace(cell)});
  });
  const auto comesBefore = [](const VecInt3D& a, const VecInt3D& b) {
    return OrderOf(a) < OrderOf(b);
  };
  std::vector<Face> faces;
  for (const std::vector<Sunk>& part : found)
    for (const Sunk& sunk : part) {
      mSunk.push_back(sunk);
      for (i32 axis = 0; axis < 3; ++axis)
        for (const i32 side : {0, 1}) {
          const VecInt3D other = sunk.cell + ExtraOf(axis) * (2 * side - 1);
          // Of others it isn't known what they stand for.
          if (std::binary_search(cells.begin(), cells.end(), other, comesBefore))
            faces.push_back({sunk.cell + ExtraOf(axis) * side, axis});
        }
    }
  SortOnce(faces);
  return faces;
}

std::vector<WallFeet::Face> WallFeet::Closed(const std::vector<Face>& asked, i32 threads) const {
  std::vector<u8> isClosed(asked.size());
  ForEachBlock(static_cast<i32>(asked.size()), threads,
               [&](i32 i) { isClosed[i] = !LeadsThrough(asked[i]); });
  std::vector<Face> closed;
  for (std::size_t i = 0; i < asked.size(); ++i)
    if (isClosed[i]) closed.push_back(asked[i]);
  return closed;
}

/// From all surfaces, negative in solids; simulation units.
double WallFeet::DistanceAt(const Vec3d& place) const {
  const Vec3d p = mLevel.mLayout.simOrigin + place * mLevel.mLayout.simCell;
  double distance = mSolids.DistanceAt(p);
  for (const SharpSurface& sheet : mSheets) {
    if (!(distance > 0)) break;
    const SharpSurface::Nearest nearest = sheet.Find(p);
    if (nearest.triangle >= 0) distance = std::min(distance, std::abs(nearest.distance));
  }
  return distance;
}

std::optional<Vec3d> WallFeet::FarthestPlace(const VecInt3D& cell) const {
  const double cellSize = mLevel.mLayout.cellSize;
  std::optional<Vec3d> farthest;
  double most = kSolidHair * cellSize;
  for (const double x : kPlaces)
    for (const double y : kPlaces)
      for (const double z : kPlaces) {
        const Vec3d place = CentreOf(cell) + Vec3d{x, y, z};
        const double distance = DistanceAt(place);
        if (!(distance > most + kSamePlace * cellSize)) continue;
        most = distance;
        farthest = place;
      }
  return farthest;
}

std::optional<Vec3d> WallFeet::PlaceOf(const VecInt3D& cell) const {
  const auto sunk = std::lower_bound(
      mSunk.begin(), mSunk.end(), cell,
      [](const Sunk& a, const VecInt3D& b) { return OrderOf(a.cell) < OrderOf(b); });
  return sunk != mSunk.end() && sunk->cell == cell ? sunk->place : CentreOf(cell);
}

bool WallFeet::LeadsThrough(const Face& face) const {
  const auto from = PlaceOf(face.at - ExtraOf(face.axis)), to = PlaceOf(face.at);
  if (!from || !to) return false;
  const i32 u = (face.axis + 1) % 3, v = (face.axis + 2) % 3;
  for (const double j : kFacePlaces)
    for (const double k : kFacePlaces) {
      Vec3d through = ToReal(face.at) + OffsetOf(face.axis);
      through[u] += j;
      through[v] += k;
      if (IsFree(through, *from) && IsFree(through, *to)) return true;
    }
  return false;
}

/// No surface crosses the straight way: no step is longer than the way to the nearest one.
bool WallFeet::IsFree(const Vec3d& from, const Vec3d& to) const {
  const double cellSize = mLevel.mLayout.cellSize, length = Length(to - from) * cellSize;
  double gone = 0;
  for (i32 step = 0; step < kMostSteps; ++step) {
    const double distance = DistanceAt(from + (to - from) * (gone / length));
    if (!(distance > kSolidHair * cellSize)) return false;
    if (gone == length) return true;
    gone = std::min(gone + std::min(distance, kLongestStep * cellSize), length);
  }
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
