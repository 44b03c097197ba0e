// What moves of a body, and where it touches others.
#pragma once
#include "host/matrix.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// A place where two bodies touch, as one of them sees it. Simulation units.
struct BodyContact {
  /// Of what rests on each other; contacts are found some millimetres ahead of the touch.
  static constexpr double kGap = 1e-4;
  bool IsTouch() const { return distance <= kGap; }
  bool persistent = false;  ///< it was there before
  Vec3d position{};         ///< on this body
  Vec3d normal{};           ///< towards the first of the two
  double distance = 0;      ///< negative where they overlap
  i32 lifetime = 0;         ///< internal steps
  i32 index = -1;           ///< of the triangle on this body
  i32 part = -1;            ///< and of its mesh
};

/// What a checkpoint keeps of a body.
struct BodyMotion {
  Vec3d centre{};
  Matrix axes;  ///< of the library's body; without offset
  bool isKeyed = false;
  Vec3d linear{}, angular{};
  double calm = 0;     ///< seconds that it has been slow for
  i32 activation = 1;  ///< the library's state
  bool isFrozen = false;
  bool waits = false;    ///< asleep from the start
  bool hasLeft = false;  ///< the world; told already
  double previousMass = 0, mass = 0;
  Vec3d force{}, torque{};                  ///< for the next step
  Vec3d contactLinear{}, contactAngular{};  ///< what contacts changed in the last step
  Vec3d impulse{}, turn{};                  ///< of all fluids, for the next step
  Vec3d fluidForce{};                       ///< of the last step
  bool isCarried = false;
  bool isNew = false;  ///< it stood still until now
  bool isLulled = false;
  Vec3d lull{}, breeze{};
  i32 touches = 0;  ///< contacts when it was last awake
  double volume = 0;
  void Persist(StateArchive& archive);
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
