// Velocity of faces that lie closed inside solids.
#pragma once
#include <vector>

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How the flow meets a solid.
struct SolidContactSettings {
  double blend = 1.0;              ///< 0 sticks to the solid, 1 slides freely
  bool followObstacles = true;     ///< what slides along a moving surface moves out with it
  bool useBodyVelocities = false;  ///< what sticks moves with the body
};

/// Gives closed faces the solid's velocity, or what slides along it. Open faces aren't touched.
class VelocityConstrain {
 public:
  void Run(Flow& flow);
  void Release() { mFaces.clear(); }

  SolidContactSettings mSettings;

 private:
  /// The new velocity of a closed face.
  struct ClosedFace {
    i32 axis;
    i32 index;
    double value;
  };
  void Compute(const Flow& flow, i32 axis, i32 z);
  bool mMoves = false;  ///< some obstacle moves in this step
  double SolidFace(const Flow& flow, i32 axis, i32 x, i32 y, i32 z) const;

  std::vector<std::vector<ClosedFace>> mFaces;  ///< by layer
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
