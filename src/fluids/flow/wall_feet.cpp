#include "fluids/flow/wall_feet.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "fluids/volume/solid_hair.h"
#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// In cells, from the closed face on: where it is looked for a way. The centre lies in a solid.
constexpr double kPlaces[] = {0.05, 0.15, 0.25, 0.35, 0.45, 0.55, 0.65, 0.75, 0.85, 0.95};
constexpr double kLongestStep = 0.25;  ///< likewise: farther off a node may know other triangles
constexpr i32 kMostSteps = 64;  ///< along a way; one that runs beside a surface for long meets it

auto OrderOf(const ThinWalls::Face& face) {
  return std::tuple(face.at.z, face.at.y, face.at.x, face.axis);
}

}  // namespace

WallFeet::WallFeet(const GridBoundary& boundary)
    : mLayout(boundary.GetLevelSet()->mLayout), mSolids(boundary) {
  for (const VolumeBase* obstacle : boundary.mObstacles) {
    const ThinWalls* walls = obstacle->Has(FLAG_ENABLED) ? obstacle->GetThinWalls() : nullptr;
    if (!walls || walls->Faces().empty()) continue;
    if (auto surface = obstacle->GetWallSurface()) mWalls.push_back(*std::move(surface));
  }
}

bool WallFeet::IsInside(const VecInt3D& cell) const {
  return Min(cell, VecInt3D{1, 1, 1}) == VecInt3D{1, 1, 1} &&
         Max(cell, mLayout.dims - VecInt3D{1, 1, 1}) == mLayout.dims - VecInt3D{1, 1, 1};
}

std::vector<ThinWalls::Face> WallFeet::Closed(std::vector<Candidate> beside, i32 threads) {
  if (beside.empty()) return {};
  mSolids.LinkTriangles();
  for (SharpSurface& wall : mWalls) wall.LinkTriangles();
  std::vector<u8> isFoot(beside.size());
  ForEachBlock(static_cast<i32>(beside.size()), threads, [&](i32 i) {
    const Candidate& candidate = beside[i];
    const Vec3d centre = ToReal(candidate.face.at) + OffsetOf(candidate.face.axis);
    const Vec3d p = mLayout.simOrigin + centre * mLayout.simCell;
    isFoot[i] = !(mSolids.DistanceAt(p) > 0) && !LeadsThrough(candidate);
  });
  std::vector<ThinWalls::Face> found;
  for (std::size_t i = 0; i < beside.size(); ++i)
    if (isFoot[i]) found.push_back(beside[i].face);
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return OrderOf(a) < OrderOf(b); });
  const auto isSame = [](const auto& a, const auto& b) { return OrderOf(a) == OrderOf(b); };
  found.erase(std::unique(found.begin(), found.end(), isSame), found.end());
  return found;
}

bool WallFeet::LeadsThrough(const Candidate& candidate) const {
  const i32 axis = candidate.face.axis;
  for (const double place : kPlaces) {
    Vec3d middle = ToReal(candidate.face.at) + OffsetOf(axis);
    middle[candidate.beside] -= candidate.step * (0.5 - place);
    Vec3d from = middle, to = middle;
    from[axis] -= 0.5;
    to[axis] += 0.5;
    from = mLayout.simOrigin + from * mLayout.simCell;
    to = mLayout.simOrigin + to * mLayout.simCell;
    const bool isOpen = mSolids.DistanceAt(from) > 0 && mSolids.DistanceAt(to) > 0;
    if (isOpen && !IsCrossed(from, to)) return true;
  }
  return false;
}

/// A wall crosses the straight way: no step is longer than the way to its nearest surface.
bool WallFeet::IsCrossed(const Vec3d& from, const Vec3d& to) const {
  const double length = Length(to - from), hair = kSolidHair * mLayout.cellSize;
  return std::ranges::any_of(mWalls, [&](const SharpSurface& wall) {
    double gone = 0;
    for (i32 step = 0; step < kMostSteps; ++step) {
      const SharpSurface::Nearest nearest = wall.Find(from + (to - from) * (gone / length));
      if (nearest.triangle < 0) return false;
      if (std::abs(nearest.distance) < hair) return true;
      gone += std::min(std::abs(nearest.distance), kLongestStep * mLayout.cellSize);
      if (gone > length) return false;
    }
    return true;
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
