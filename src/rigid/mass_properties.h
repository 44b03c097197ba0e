// Volume, centre of mass and inertia of what triangles enclose.
#pragma once
#include <span>

#include "grids/eigen.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a solid of density 1 weighs, where, and how it turns.
struct MassProperties {
  double volume = 0;
  Vec3d centre{};
  /// About the centre of mass, rows in order.
  Matrix3d inertia{};
};

/// Those of the solid that triangles enclose, by the moments of the tetrahedra between them and a
/// point (Lien and Kajiya 1984). Triangles that face inwards give the same. The volume is 0 where
/// they enclose none.
MassProperties MeasureMass(std::span<const Vec3d> vertices, std::span<const VecInt3D> triangles);

/// The inertia about a point `away` from the centre of mass (Huygens, Steiner).
Matrix3d MovedInertia(const MassProperties& mass, const Vec3d& away);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
