// Points of the host as places in the simulation.
#pragma once
#include "grids/grid_layout.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Calls f(place) with each point of an object, in simulation units.
template <class F>
void ForEachLoosePoint(const host::PointsObject& object, const GridLayout& domain, F&& f) {
  const auto place = object.GlobalMatrix();
  for (const Vec3d& p : object.points) f(place * p * domain.worldToSim);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
