// Fluid that a lattice moves with a body.
#pragma once
#include <array>
#include <span>

#include "fluids/pressure/body_coupling.h"
#include "fluids/pressure/projection_fields.h"
#include "fluids/pressure/solid_push.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Volume along each axis, and the mean velocity of the faces across from the body.
struct BoundFluid {
  Vec3d volume{};    ///< below 0 where the lattice sees less than the body
  Vec3d velocity{};  ///< before the projection
  /// What pressures that rise along an axis do more than they do to the body: a push across that
  /// axis, in volumes, and a turn, in these times simulation units.
  std::array<Vec3d, 3> push{}, turn{};
};

/// What rows over all cells round a body take for a part of it.
///
/// By the theorem of Gauss the faces of a body, each at the centre of the cell from which the fluid
/// presses on it, enclose the volume that buoyancy counts. What that is beyond `volume`, the body's
/// own, is fluid that moves with it: layers between centres and surface, less what the faces miss
/// of corners. Evenly rising pressures push a body along their slope alone, and turn none whose
/// weight is spread evenly: what they do beside that to the faces, as in corners between walls,
/// isn't the body's either. Of a body that isn't surrounded by cells nothing is known, and one of
/// which half is in cells of air has none.
BoundFluid FindBoundFluid(const ProjectionFields& fields, std::span<const BodyRow> rows,
                          const MovingBody& body, double volume);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
