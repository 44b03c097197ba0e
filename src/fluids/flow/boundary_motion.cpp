// How the obstacles of a boundary move in a step.
#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/flow/grid_boundary.h"
#include "fluids/volume/solid_hair.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr double kStride =
    4;  // cells: a box that follows a mover step by step costs more than room

/// The box of an obstacle's surface, simulation units. One that is turned inside out fills its grid
/// beyond that.
void FindSurfaceBox(const VolumeBase& obstacle, Vec3d& low, Vec3d& high) {
  const GridLayout& grid = obstacle.GetGrid()->mLayout;
  const TriMeshSTL& mesh = obstacle.GetMesh()->mMesh;
  low = obstacle.mInverted ? grid.simOrigin : Max(mesh.GetBoundsMin(), grid.simOrigin);
  high = obstacle.mInverted ? grid.simMax : Min(mesh.GetBoundsMax(), grid.simMax);
}

/// From the nearest closed side of a box of cells, negative behind it.
double DistanceFromSides(const GridLayout& layout, u8 walls, const Vec3d& p) {
  double least = std::numeric_limits<double>::max();
  for (i32 a = 0; a < 3; ++a) {
    const double low = layout.simOrigin[a] + layout.simCell[a];
    const double high = layout.simOrigin[a] + (layout.dims[a] - 1) * layout.simCell[a];
    if (walls & kLowWall[a]) least = std::min(least, p[a] - low);
    if (walls & kHighWall[a]) least = std::min(least, high - p[a]);
  }
  return least;
}
}  // namespace

double GridBoundary::TravelOf(const VolumeBase& obstacle) {
  const Mesh* mesh = obstacle.GetMesh();
  if (!obstacle.Has(FLAG_ENABLED) || !mesh || mesh->IsStatic() || !obstacle.HasGridData()) return 0;
  return mesh->GetTravel();
}

/// The obstacle that is nearest to `world`, of those whose grids hold it; null where it rests.
const VolumeBase* GridBoundary::MoverAt(const Vec3d& world) const {
  const VolumeBase* nearest = nullptr;
  double least = std::numeric_limits<double>::max();
  // A wall that is as near rests.
  if (mLevelSet)
    least = DistanceFromSides(mLevelSet->mLayout, mWalls, world) -
            kSolidHair * mLevelSet->mLayout.cellSize;
  for (const VolumeBase* obstacle : mObstacles) {
    if (!obstacle->Has(FLAG_ENABLED) || !obstacle->IsInBounds(world)) continue;
    const double distance = obstacle->DistanceAtWorld(world);
    if (!(distance < least)) continue;
    least = distance;
    nearest = obstacle;
  }
  return nearest && nearest->GetMesh() && !nearest->GetMesh()->IsStatic() ? nearest : nullptr;
}

Vec3d GridBoundary::GetSolidVelocity(const Vec3d& world) const {
  const VolumeBase* obstacle = MoverAt(world);
  return obstacle ? obstacle->SurfaceVelocityAt(world) : Vec3d{};
}

Vec3d GridBoundary::GetFlowVelocity(const Vec3d& world) const {
  const VolumeBase* obstacle = MoverAt(world);
  if (!obstacle) return {};
  const Mesh& mesh = *obstacle->GetMesh();
  // What a shape does beside moving as a whole is no turn.
  if (mesh.IsDeforming())
    return obstacle->SurfaceVelocityAt(world) * mesh.GetObstacle().linearTransfer;
  Vec3d linear, angular, turn;
  mesh.GetVelocityParts(world, linear, angular, turn);
  return linear + turn;
}

bool GridBoundary::DrivesFlow() const {
  return std::any_of(mObstacles.begin(), mObstacles.end(), [](const VolumeBase* obstacle) {
    if (TravelOf(*obstacle) > 0) return true;
    const Mesh* mesh = obstacle->GetMesh();
    if (!obstacle->Has(FLAG_ENABLED) || !obstacle->HasGridData() || !mesh || !mesh->IsDynamic())
      return false;
    Vec3d linear, angular;  // it may only be about to move
    mesh->GetVelocities(linear, angular);
    return linear != Vec3d{} || angular != Vec3d{};
  });
}

double GridBoundary::ObstacleTravel() const {
  double most = 0;
  for (const VolumeBase* obstacle : mObstacles) most = std::max(most, TravelOf(*obstacle));
  return most;
}

std::vector<GridBoundary::Mover> GridBoundary::Movers() const {
  std::vector<Mover> movers;
  for (const VolumeBase* obstacle : mObstacles) {
    const double travel = TravelOf(*obstacle);
    if (travel == 0) continue;
    Vec3d low, high;
    FindSurfaceBox(*obstacle, low, high);
    const Vec3d reach = Vec3d{1, 1, 1} * (travel + mLevelSet->mLayout.cellSize);
    low = mLevelSet->mLayout.ToCells(low - reach);
    high = mLevelSet->mLayout.ToCells(high + reach);
    CellBox cells;
    for (i32 a = 0; a < 3; ++a) {
      const double last = mLevelSet->mLayout.dims[a] - 1.0;
      cells.min[a] = static_cast<i32>(std::clamp(std::floor(low[a]), 1.0, last));
      cells.max[a] = static_cast<i32>(std::clamp(std::ceil(high[a]), 1.0, last));
    }
    movers.push_back({obstacle, cells, travel});
  }
  return movers;
}

void GridBoundary::WidenToMovers(double margin, const Vec3d& low, const Vec3d& high, Vec3d& min,
                                 Vec3d& max) const {
  struct Box {
    Vec3d low, high;
    double reach;
  };
  std::vector<Box> movers;
  for (const VolumeBase* obstacle : mObstacles) {
    const double travel = TravelOf(*obstacle);
    if (travel == 0) continue;
    const TriMeshSTL& mesh = obstacle->GetMesh()->mMesh;
    const double cell = obstacle->GetGrid()->mLayout.cellSize;
    movers.push_back(
        {mesh.GetBoundsMin() / cell, mesh.GetBoundsMax() / cell, margin + travel / cell});
  }
  const auto touches = [&](const Box& box) {
    for (i32 a = 0; a < 3; ++a) {
      if (box.low[a] >= high[a] || box.high[a] <= low[a]) return false;
      if (box.low[a] > max[a] + box.reach || box.high[a] < min[a] - box.reach) return false;
    }
    return true;
  };
  // A box that has grown may touch others.
  for (bool isWider = true; isWider;) {
    isWider = false;
    for (const Box& box : movers) {
      if (!touches(box)) continue;
      for (i32 a = 0; a < 3; ++a) {
        const double from = std::max(low[a], kStride * std::floor((box.low[a] - margin) / kStride));
        const double to = std::min(high[a], kStride * std::ceil((box.high[a] + margin) / kStride));
        isWider |= from < min[a] || to > max[a];
        min[a] = std::min(min[a], from);
        max[a] = std::max(max[a], to);
      }
    }
  }
}

double GridBoundary::DistanceBefore(const VecInt3D& node) const {
  const Vec3d p = mLevelSet->PositionOf(node.x, node.y, node.z);
  double distance = WallDistance(node);
  for (const VolumeBase* obstacle : mObstacles) {
    if (!obstacle->Has(FLAG_ENABLED) || !obstacle->HasGridData() || obstacle->IsSheet()) continue;
    const Mesh* mesh = obstacle->GetMesh();
    // What is at p + motion now was at p.
    const Vec3d now = mesh && !mesh->IsStatic() ? p + obstacle->SurfaceVelocityAt(p) : p;
    if (obstacle->IsInBounds(now)) distance = std::min(distance, obstacle->DistanceAtWorld(now));
  }
  return std::fabs(distance) < kNoise * mLevelSet->mLayout.cellSize ? 0 : distance;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
