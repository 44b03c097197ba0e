// Values of a surface's points, from particles or fields.
#pragma once
#include <optional>
#include <span>
#include <vector>

#include "fluids/particles/particle_store.h"
#include "framework/cached_grids.h"
#include "grids/point_lookup.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The mean velocity of the particles closer than `radius` to each point, by the weight
/// (1 - d^2 / r^2)^3; 0 where there are none. Simulation units a second.
std::vector<Vec3d> VelocitiesAt(const std::vector<Vec3d>& points, const PointLookup& particles,
                                const ParticleStore& store, double radius, i32 threads);

/// Whether most of the points have a particle closer than `radius`.
bool AreNear(const std::vector<Vec3d>& points, const PointLookup& particles, double radius);

/// The values of a field of three components at points, or of its single one three times.
std::vector<Vec3d> FieldAt(const std::vector<Vec3d>& points, CachedGrids& field, i32 threads);

/// What a scalar becomes as a colour.
struct ScalarColours {
  const host::Gradient* gradient = nullptr;  ///< over 0 to 1; without one they are grey
  double full = 1;                           ///< the scalar at 1

  Vec3d Of(double value) const;
};

/// The mean of a property, a vector or a scalar, over the living particles closer than `radius` to
/// each point. White where there are none, or none that has it; nothing where no kind has it.
std::optional<std::vector<Vec3d>> ColoursAt(const std::vector<Vec3d>& points,
                                            std::span<const ParticleStore* const> stores,
                                            i32 property, double radius,
                                            const ScalarColours& colours, i32 threads);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
