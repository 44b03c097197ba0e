#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "fluids/forces/force_gravity.h"
#include "fluids/mesh/obstacle_rows.h"
#include "fluids/mesh/obstacle_settings.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/solvers/water_solver.h"
#include "framework/server_rows.h"
#include "host/polygon_object.h"
#include "scene/shape_boxes.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Rigid bodies, and what is there to hold them.
class BodyHints : public ShapeBoxes {
 public:
  using ShapeBoxes::ShapeBoxes;

  void LookAt(const BaseNode& server) {
    mNodes.clear();
    mBodies.clear();
    mHolders.clear();
    Collect(server);
    for (const BaseNode* node : mNodes) Sort(*node);
    mScene.document->ForEachNode([&](const BaseNode& node) {
      if (dynamic_cast<const PolygonObject*>(&node)) Sort(node);
    });
    mMetresPerUnit =
        Number(server, server_row::kSimulationUnits) / Number(server, server_row::kHostUnits);
    for (const Body& body : mBodies)
      for (const BaseNode* node : mNodes)
        if (IsA<FluidSolver>(*node) && !IsA<WaterSolver>(*node)) CheckAir(body, *node);
    const Vec3d* gravity = Get<Vec3d>(server, server_row::kGravity);
    if (!gravity || gravity->y >= 0 || std::fabs(gravity->y) < Length(*gravity) * kUpright) return;
    for (const Body& body : mBodies)
      for (const BaseNode* node : mNodes)
        if (IsA<WaterSolver>(*node) && MayWork(*node)) CheckFloor(body, *node);
    for (const Body& body : mBodies)
      for (const BaseNode* node : mNodes)
        if (IsA<FluidSolver>(*node) && !IsA<WaterSolver>(*node) && MayWork(*node))
          CheckLift(body, *node);
  }

  /// What the tag of any node or object says that does nothing.
  void LookAtTags() {
    mScene.document->ForEachNode([&](const BaseNode& node) {
      if (const BaseNode* tag = node.Tag(kObstacleTag); tag && tag->Table()) LookAtTag(node, *tag);
    });
  }

 private:
  static constexpr double kUpright = 0.99;

  void LookAtTag(const BaseNode& node, const BaseNode& tag) {
    ObstacleSettings settings;
    FillMembers(*tag.Table(), &tag, settings);
    if (!Linked(tag, obstacle_row::kStartDirection) && settings.startSpeed != 0 &&
        IsGiven(tag, obstacle_row::kStartSpeed))
      Warn(node, fmt::format("it starts at rest: '{}' of its obstacle has no effect without '{}'",
                             NameOf(tag, obstacle_row::kStartSpeed),
                             NameOf(tag, obstacle_row::kStartDirection)));
    if (Linked(tag, obstacle_row::kStartDirection) && settings.startSpeed != 0 &&
        settings.IsHeavy() && (settings.wakesOnContact || settings.wakesOnForce))
      Warn(node, fmt::format("'{}' of its obstacle has no effect: it sleeps until '{}' wakes it",
                             NameOf(tag, obstacle_row::kStartSpeed),
                             NameOf(tag, settings.wakesOnContact ? obstacle_row::kWakeOnContact
                                                                 : obstacle_row::kWakeOnForce)));
    if (const BaseNode* object = settings.IsHeavy() ? ScaledObject(node) : nullptr)
      Warn(node, fmt::format("keys of the scale of {} have no effect: a body that has a mass keeps "
                             "the size with which it starts",
                             Named(*object)));
    if (settings.massMode == MassMode::Given && settings.mass == 0 &&
        IsGiven(tag, obstacle_row::kDensity) && !tag.Tracks().contains(obstacle_row::kMass) &&
        !tag.Tracks().contains(obstacle_row::kMassMode))
      Warn(node,
           fmt::format("it stays where it is: '{}' of its obstacle counts with '{}' "
                       "from_density alone, and '{}' is 0",
                       NameOf(tag, obstacle_row::kDensity), NameOf(tag, obstacle_row::kMassMode),
                       NameOf(tag, obstacle_row::kMass)));
    if (settings.massMode == MassMode::FromDensity && settings.density == 0 &&
        !tag.Tracks().contains(obstacle_row::kDensity))
      Warn(node, fmt::format("it stays where it is: '{}' of its obstacle is 0, so it has no mass",
                             NameOf(tag, obstacle_row::kDensity)));
  }

  /// An object whose polygons a node reads and whose scale has keys; null without one.
  const BaseNode* ScaledObject(const BaseNode& node, int depth = 0) const {
    constexpr int kDeepest = 4;
    if (dynamic_cast<const PolygonObject*>(&node)) return mPlaces.IsScaled(node) ? &node : nullptr;
    if (depth > kDeepest || !(IsVolume(node) || IsMesh(node))) return nullptr;
    for (const NodeId id : LinksOf(node)) {
      const BaseNode* target = mScene.document->Find(id);
      const BaseNode* found = target ? ScaledObject(*target, depth + 1) : nullptr;
      if (found) return found;
    }
    return nullptr;
  }

  struct Body {
    const BaseNode* node;
    Box box;
    ObstacleSettings settings;
  };

  void Sort(const BaseNode& node) {
    const BaseNode* tag = node.Tag(kObstacleTag);
    if (!tag || !tag->Table()) return;
    ObstacleSettings settings;
    FillMembers(*tag->Table(), tag, settings);
    Box box{{kFar, kFar, kFar}, {-kFar, -kFar, -kFar}};
    const bool isStill = StillBox(node, box.low, box.high);
    if (!settings.IsHeavy())
      // What moves may come below anything.
      mHolders.push_back(isStill ? box : Box{box.high, box.low});
    else if (isStill && !dynamic_cast<const PolygonObject*>(&node))
      mBodies.push_back({&node, box, settings});
  }

  /// As far as can be told of one whose density follows from its mass: as if it filled its box.
  bool Floats(const Body& body, const BaseNode& liquid) const {
    const Vec3d size = (body.box.high - body.box.low) * mMetresPerUnit;
    const double density = body.settings.massMode == MassMode::FromDensity
                               ? body.settings.density
                               : body.settings.mass / (size.x * size.y * size.z);
    return density < Number(liquid, FluidSolver::kDensityRow);
  }

  bool StandsIn(const Body& body, const BaseNode& fluid) const {
    if (mPlaces.IsMoved(fluid) || !Get<Vec3d>(fluid, FluidSolver::kBoxSizeRow)) return false;
    const Box box = BoxOf(fluid);
    bool stands = true;
    for (int a = 0; a < 3; ++a)
      stands = stands && body.box.low[a] < box.high[a] && body.box.high[a] > box.low[a];
    return stands;
  }

  /// A body in a gas that has no cells, since nothing is ever let into it.
  void CheckAir(const Body& body, const BaseNode& gas) {
    const auto feeds = [](const BaseNode* node) {
      return FindKind(node->Type())->list == kListEmitters;
    };
    if (!StandsIn(body, gas) || std::any_of(mNodes.begin(), mNodes.end(), feeds)) return;
    Warn(*body.node,
         fmt::format("it meets no air: {} has none where nothing is emitted into it", Named(gas)));
  }

  /// A body lighter than a gas that has no weight.
  void CheckLift(const Body& body, const BaseNode& gas) {
    if (body.settings.massMode != MassMode::FromDensity || !StandsIn(body, gas)) return;
    if (Linked(gas, FluidSolver::kDensityChannelRow) ||
        body.settings.density >= Number(gas, FluidSolver::kDensityRow))
      return;
    const Value* value = gas.Get(FluidSolver::kForcesRow);
    const auto* forces = value ? std::get_if<InExcludeData>(value) : nullptr;
    const auto pulls = [&](const InExcludeData::Entry& entry) {
      const BaseNode* force = mScene.document->Find(entry.node);
      return !force || IsA<Force_Gravity>(*force);
    };
    if (forces && std::any_of(forces->entries.begin(), forces->entries.end(), pulls)) return;
    Warn(*body.node,
         fmt::format("it is lighter than {} and sinks all the same: a gas lifts it once "
                     "a {} stands under its '{}'",
                     Named(gas), Force_Gravity::Kind().type, NameOf(gas, FluidSolver::kForcesRow)));
  }

  /// A body that falls into a liquid whose floor is a wall of the container alone.
  void CheckFloor(const Body& body, const BaseNode& liquid) {
    constexpr i32 kLowY = 2;
    const Vec3d &low = body.box.low, &high = body.box.high;
    if (mPlaces.IsMoved(liquid) || !Get<Vec3d>(liquid, FluidSolver::kBoxSizeRow)) return;
    const Box box = BoxOf(liquid);
    const bool isInside = low.x < box.high.x && high.x > box.low.x && low.z < box.high.z &&
                          high.z > box.low.z && low.y >= box.low.y;
    if (!isInside || StaysZero(liquid, FluidSolver::kWallRows[kLowY])) return;
    const auto isBelow = [&](const Box& holder) {
      return holder.low.x < high.x && holder.high.x > low.x && holder.low.z < high.z &&
             holder.high.z > low.z && holder.low.y < low.y;
    };
    if (Floats(body, liquid) || std::any_of(mHolders.begin(), mHolders.end(), isBelow)) return;
    Warn(
        *body.node,
        fmt::format("it will fall through the floor of {}: walls of a container hold fluids alone; "
                    "bodies rest on obstacles without a mass",
                    Named(liquid)));
  }

  double mMetresPerUnit = 1;
  std::vector<Body> mBodies;
  std::vector<Box> mHolders;
};

}  // namespace

void AddBodyHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  BodyHints hints(scene, places, diagnostics);
  hints.LookAtTags();
  for (const BaseNode* server : scene.servers) hints.LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
