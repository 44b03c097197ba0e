// The numbered properties of particles.
#pragma once
#include <string_view>
#include <vector>

#include "host/node.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Ids 0 to 24 are scalars, 25 to 49 vectors, 50 to 74 switches; from 75 up they are the user's, of
/// any type. Those below 0 are vectors that no node declares.
namespace property_id {
enum Id : i32 {
  kSlopeU = -3,  ///< how the particle's velocity changes about it, 1/s: its x component
  kSlopeV = -2,
  kSlopeW = -1,
  kRadius = 0,    ///< simulation units
  kLifeSpan = 1,  ///< the age that it started with, frames
  kAge = 2,       ///< frames that are left
  kDensity = 3,
  kViscosity = 4,
  kPressure = 5,
  kTemperature = 6,
  kFire = 7,
  kFuel = 8,
  kMass = 9,
  kKernelSum = 10,
  kScratch = 11,
  kAnisotropy = 12,
  kCurvature = 13,
  kColor = 25,
  kSortedVelocity = 26,  ///< as `ParticleSort` stores it on request
  kPositionBefore = 27,  ///< before the step of the velocity Verlet integrator
  kSteering = 28,
  kEllipsoidCentre = 29,
  kEllipsoidX = 30,  ///< columns of the ellipsoid's matrix
  kEllipsoidY = 31,
  kEllipsoidZ = 32,
  kEllipsoidScales = 33,
  kNormal = 34,
  kSurfaceNormal = 35,
  kOldPosition = 36,  ///< one substep of the motion ago
  kVelocity = 37,     ///< the particle's own field
  kVorticity = 38,
  kBallisticForces = 39,  ///< newtons, gathered for the next substep of the motion
  kPosition = 40,         ///< the particle's own field
  kFrameStart = 41,       ///< position at the start of the frame's first substep
  kSplineStateA = 42,
  kSplineStateB = 43,
  kSplineStateC = 44,
  kUv = 45,
  kRandomScale = 46,
  kRandomRotation = 47,  ///< on a painted point its place in the triangle
  kDeformed = 48,
};
inline constexpr i32 kFirstVector = 25, kFirstBool = 50, kFirstUser = 75;
}  // namespace property_id

/// A property: its id, and for a user's one the node that declares it. Owner 0 finds the first one
/// of an id.
struct PropertyKey {
  i32 id = 0;
  host::NodeId owner = 0;
  constexpr PropertyKey(i32 number, host::NodeId node = 0)
      : id(number), owner(number < property_id::kFirstUser ? 0 : node) {}
  PropertyKey() = default;
  friend bool operator==(const PropertyKey&, const PropertyKey&) = default;
  /// Whether a look-up of `asked` may find it.
  bool Answers(const PropertyKey& asked) const {
    return id == asked.id && (asked.owner == 0 || owner == asked.owner);
  }
};

struct BuiltInProperty {
  i32 id;
  std::string_view name;   ///< readable: of columns in files, and in scene files
  std::string_view label;  ///< as menus show it; empty for those that no node declares
};

/// All built-in properties by id.
const std::vector<BuiltInProperty>& BuiltInProperties();
/// The readable name of a built-in property; empty for a user's.
std::string_view NameOfProperty(i32 id);
/// Whether a property means something to others: what only carries state from step to step doesn't.
bool IsDeclaredProperty(i32 id);
/// The words of a row that picks a property: of the ids from `first` to below `last` those that
/// nodes declare.
std::vector<host::Choice> PropertyChoices(i32 first, i32 last);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
