// What glows in the media, as a lamp for surfaces.
#pragma once
#include <vector>

#include "host/renderer.h"

namespace MELDO_GLOBAL::app {

/// A tree over glowing boxes that finds one for a point, the likelier the more light it sends
/// there.
class GlowTree {
 public:
  explicit GlowTree(std::vector<host::GlowingBox> boxes = {});

  bool IsEmpty() const { return mNodes.empty(); }

  struct Pick {
    Vec3d point;  ///< in the box
    Vec3d light;  ///< what a surface facing it gets, divided by the box's share of the picks
  };
  /// `choice` picks the box and `place` the point in it; all numbers are 0 to 1.
  Pick Choose(const Vec3d& at, double choice, const Vec3d& place) const;

 private:
  struct Node {
    Vec3d min, max;
    double weight = 0;
    i32 right = 0;  ///< the second child; the first one follows its parent
    i32 box = -1;   ///< of a leaf
    double WeightAt(const Vec3d& at) const;
    double Radius2() const;
  };
  void Build(i32 first, i32 last);

  std::vector<host::GlowingBox> mBoxes;
  std::vector<Node> mNodes;
};

}  // namespace MELDO_GLOBAL::app
