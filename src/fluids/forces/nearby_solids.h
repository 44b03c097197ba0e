// How far it is to the nearest solid, for forces that know nothing of flows.
#pragma once
#include <utility>
#include <vector>

#include "fluids/flow/flow.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The distance to the nearest wall or obstacle, negative inside, from the level sets that are
/// there: that of the flow that is worked on, or, without one, those of all solvers of the scene
/// inside their boxes, and of all obstacles everywhere. Beyond the grid of an obstacle its distance
/// goes on from the nearest place of the grid. Valid for the step in which it is made.
class NearbySolids {
 public:
  NearbySolids() = default;
  NearbySolids(const Scene& scene, const Flow* flow);
  /// Simulation units; the largest double where nothing is solid.
  double DistanceAt(const Vec3d& p) const;
  /// The lowest and highest corners of the boxes in which the distances to solids are known: of the
  /// solvers, which see obstacles too, or, without one, of the obstacles. Simulation units.
  std::vector<std::pair<Vec3d, Vec3d>> Boxes() const;

 private:
  struct Source {
    const EGrid<double>* grid;
    bool endsAtItsGrid;
    bool isOfFlow;
  };
  void Add(const EGrid<double>* grid, bool endsAtItsGrid, bool isOfFlow);
  std::vector<Source> mSources;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
