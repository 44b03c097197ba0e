// The velocity of a flow at a point.
#pragma once
#include "fluids/fields/channel.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Each component from its own faces; 0 without a velocity.
inline Vec3d SampledVelocity(const VelocityField* field, const Vec3d& p) {
  Vec3d velocity{};
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>* grid = field ? field->GetGrid(a) : nullptr;
    if (grid && grid->mData) velocity[a] = SampleLinear(*grid, grid->ToSamples(p));
  }
  return velocity;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
