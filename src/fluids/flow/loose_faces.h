// Faces of walls that a liquid has left.
#pragma once
#include <vector>

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Closed faces beside cells that a liquid's level set calls air: a wall keeps what comes from
/// there from entering, and holds nothing that leaves. Take their velocities once they are
/// continued from the liquid, give the walls theirs, and put these back.
class LooseFaces {
 public:
  void Take(const Flow& flow);
  /// Each face moves away from its wall as taken, or with the wall if that is faster.
  void Put(Flow& flow);
  void Release() { mFaces = {}; }

 private:
  struct Face {
    i32 axis, index;
    bool isBelowWall;
    double velocity;
  };
  static void TakeLayer(const Flow& flow, i32 axis, i32 z, std::vector<Face>& faces);

  std::vector<std::vector<Face>> mFaces;  ///< by layer
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
