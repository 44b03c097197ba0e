// Where shapes, emitters and fluids of a scene lie, as far as that is known without running it.
#pragma once
#include <algorithm>
#include <functional>
#include <limits>

#include "host/polygon_object.h"
#include "scene/hint_base.h"

namespace MELDO_GLOBAL::app {

/// Base of hints that ask for boxes, in host units. What moves, or changes on the way, has none.
class ShapeBoxes : public HintBase {
 public:
  using HintBase::HintBase;

 protected:
  struct Box {
    Vec3d low, high;
    Box Wider(double by) const { return {low - Vec3d{by, by, by}, high + Vec3d{by, by, by}}; }
  };
  using EmitterVisit = std::function<void(const BaseNode& emitter, const BaseNode& shape,
                                          const Vec3d& low, const Vec3d& high)>;

  /// The size of a server's cells.
  static double CellOf(const BaseNode& server);
  static bool IsVolume(const BaseNode& node);
  static bool IsMesh(const BaseNode& node);
  static void AddLinks(const BaseNode& node, std::set<NodeId>& linked) {
    linked.merge(LinksOf(node));
  }
  static double ThinnestSide(const Vec3d& low, const Vec3d& high) {
    return std::min({high.x - low.x, high.y - low.y, high.z - low.z});
  }
  static void AddBox(const host::PolygonObject& object, Vec3d& low, Vec3d& high);
  static void AddPoints(const std::vector<Vec3d>& points, const Matrix& place, Vec3d& low,
                        Vec3d& high);

  /// The box of the points of all polygon objects that a node leads to; false where there are none,
  /// or where they move or change on the way.
  bool StillBox(const BaseNode& node, Vec3d& low, Vec3d& high, int depth = 0) const;
  /// Visits the emitters of a kind with the boxes of the shapes, under a row, that stay as they
  /// are.
  void ForEachStill(const MELDO_SULVA::NodeKind& kind, i32 row, const EmitterVisit& f) const;
  /// Those that fill a volume.
  void ForEachStillEmitter(const EmitterVisit& f) const;
  static Box BoxOf(const BaseNode& fluid);
  /// Whether shapes in a box may meet that of a fluid; so may all where the fluid moves.
  bool MayMeet(const BaseNode& fluid, const Vec3d& low, const Vec3d& high) const;
  /// Whether shapes in a box meet no fluid of the server, where there is one.
  bool LiesOutside(const Vec3d& low, const Vec3d& high) const;

  /// Where boxes are, for whoever looks for something outside of them.
  static constexpr std::string_view kOfBoxes =
      "a box begins at its node's position, and its box_size is in host units";
  static constexpr double kFar = std::numeric_limits<double>::infinity();
};

}  // namespace MELDO_GLOBAL::app
