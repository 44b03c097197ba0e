#include "fluids/forces/nearby_solids.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/flow/ifluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "framework/scene.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

NearbySolids::NearbySolids(const Scene& scene, const Flow* flow) {
  if (flow) {
    Add(flow->mBoundary.GetLevelSet(), false, true);
    return;
  }
  for (const auto& [id, object] : scene.List(kListSolvers)) {
    const auto* solver = dynamic_cast<const iFluidSolver*>(object.get());
    if (solver && solver->Has(FLAG_ENABLED))
      Add(solver->GetFlow().mBoundary.GetLevelSet(), true, true);
  }
  std::vector<VolumeBase*> obstacles;
  CollectObstacles(scene, obstacles);
  for (const VolumeBase* obstacle : obstacles) Add(obstacle->GetGrid(), false, false);
}

void NearbySolids::Add(const EGrid<double>* grid, bool endsAtItsGrid, bool isOfFlow) {
  if (grid && grid->mData) mSources.push_back({grid, endsAtItsGrid, isOfFlow});
}

std::vector<std::pair<Vec3d, Vec3d>> NearbySolids::Boxes() const {
  const bool hasFlow = std::any_of(mSources.begin(), mSources.end(),
                                   [](const Source& source) { return source.isOfFlow; });
  std::vector<std::pair<Vec3d, Vec3d>> boxes;
  for (const Source& source : mSources) {
    if (source.isOfFlow != hasFlow) continue;
    const EGrid<double>& grid = *source.grid;
    boxes.push_back(
        {grid.PositionOf(0, 0, 0), grid.PositionOf(grid.mNx - 1, grid.mNy - 1, grid.mNz - 1)});
  }
  return boxes;
}

double NearbySolids::DistanceAt(const Vec3d& p) const {
  double least = std::numeric_limits<double>::max();
  for (const Source& source : mSources) {
    const EGrid<double>& grid = *source.grid;
    const Vec3d c = grid.ToSamples(p);
    const Vec3d last{grid.mNx - 1.0, grid.mNy - 1.0, grid.mNz - 1.0};
    const Vec3d inside = Max(Vec3d{}, Min(c, last));
    if (source.endsAtItsGrid && inside != c) continue;
    const double distance = SampleLinear(grid, inside);
    const double beyond = Length((c - inside) * grid.mLayout.simCell);
    least = std::min(least, distance + std::copysign(beyond, distance));
  }
  return least;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
