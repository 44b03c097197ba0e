// How a body turns when nothing twists it.
#pragma once
#include <LinearMath/btQuaternion.h>

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Turns a body of the moments of inertia `inertia` (kg m^2, about its own axes) freely for `dt`
/// seconds; `turn` is from its axes to those of the world, `spin` in the world, rad/s.
///
/// Euler's equations by the implicit midpoint rule, P' = P x J P for the angular momentum P in the
/// body's axes, which keeps |P| and the energy P . J P. With Cayley's map of the same middle
/// velocity for the turn, the momentum in the world stays what it was (Austin, Krishnaprasad and
/// Wang 1993). Steps are stretched so that a steady spin turns at its true rate.
void TurnFreely(const btVector3& inertia, double dt, btQuaternion& turn, btVector3& spin);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
