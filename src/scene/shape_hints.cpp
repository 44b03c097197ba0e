#include "scene/hint_base.h"

#include <fmt/format.h>

#include <limits>
#include <map>

#include "fluids/advection/grid_advection.h"
#include "fluids/emission/channel_pair.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/multi_volume.h"
#include "framework/pipeline.h"
#include "framework/server_rows.h"
#include "host/polygon_object.h"
#include "scene/scene_hints.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Meshes, volumes, obstacles, and emitters as far as their shape goes.
class ShapeHints : public HintBase {
 public:
  using HintBase::HintBase;

  /// Tags outside of volumes make nothing solid, unless a volume with a tag has the shape.
  void LookAtTags() {
    std::set<NodeId> solid;
    for (const auto isShape : {IsVolume, IsMesh})
      ForEachNode([&](const BaseNode& node) {
        if (!isShape(node)) return;
        const bool hasTag = node.Tag(kObstacleTag) != nullptr;
        if (IsVolume(node) ? hasTag : solid.contains(node.Id())) AddLinks(node, solid);
      });
    ForEachNode([&](const BaseNode& node) {
      if (node.Tag(kObstacleTag) && !IsVolume(node) && !solid.contains(node.Id()))
        Warn(node,
             "its obstacle tag makes nothing solid for the gas; give the tag to the volume that "
             "has its shape");
    });
  }

  void LookAt(const BaseNode& server) {
    mNodes.clear();
    Collect(server);
    const double hostUnits = Number(server, server_row::kHostUnits);
    const double simulationUnits = Number(server, server_row::kSimulationUnits);
    const double cell = Number(server, server_row::kCellSize) * hostUnits / simulationUnits;
    for (const BaseNode* node : mNodes) {
      if (IsA<Mesh>(*node)) CheckSize(*node, cell);
      CheckInsideOfObstacle(*node);
      CheckMeshOperator(*node);
    }
    CheckThinEmitters(cell);
    CheckMovers();
  }

  /// Nothing comes out of an emitter that is flat, or outside of every box of a gas.
  void FindEmptyShapes(const BaseNode& server, std::map<NodeId, std::string>& empty) {
    mNodes.clear();
    Collect(server);
    ForEachStillEmitter([&](const BaseNode& emitter, const BaseNode& volume, const Vec3d& low,
                            const Vec3d& high) {
      const std::string shape = fmt::format("the shape of '{}'", Shown(volume.Name()));
      if (ThinnestSide(low, high) <= 0) {
        empty[emitter.Id()] = shape + " is flat and has no inside";
      } else if (IsA<VolumeMesh>(volume) && Number(volume, VolumeMesh::kShellRow) == 0 &&
                 !volume.Tracks().contains(VolumeMesh::kShellRow)) {
        empty[emitter.Id()] =
            fmt::format("the skin of '{}' has no thickness: its '{}' is 0", Shown(volume.Name()),
                        NameOf(volume, VolumeMesh::kShellRow));
      } else if (LiesOutside(low, high)) {
        empty[emitter.Id()] = shape +
                              " lies outside of the box of every fluid; a box begins at its node's "
                              "position, and its box_size is in host units";
      }
    });
  }

 private:
  static bool IsVolume(const BaseNode& node) {
    return IsA<VolumeMesh>(node) || IsA<MultiVolume>(node);
  }
  static bool IsMesh(const BaseNode& node) { return IsA<Mesh>(node) || IsA<MultiMesh>(node); }
  static void AddLinks(const BaseNode& node, std::set<NodeId>& linked) {
    linked.merge(LinksOf(node));
  }
  void ForEachNode(const std::function<void(const BaseNode&)>& visit) const {
    const std::function<void(const BaseNode&)> walk = [&](const BaseNode& node) {
      visit(node);
      for (const BaseNode* child : node.Children()) walk(*child);
    };
    for (const BaseNode* root : mScene.document->Roots()) walk(*root);
  }

  static void AddBox(const PolygonObject& object, Vec3d& low, Vec3d& high) {
    const Matrix place = object.GlobalMatrix();
    for (const Vec3d& point : object.GetGeometry().points) {
      const Vec3d p = place * point;
      low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
      high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
  }

  void CheckSize(const BaseNode& mesh, double cell) {
    const auto* object = dynamic_cast<const PolygonObject*>(Linked(mesh, Mesh::kObjectRow));
    if (!object || object->GetGeometry().points.empty() || mPlaces.IsMoved(*object)) return;
    Vec3d low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
    AddBox(*object, low, high);
    const double size = std::max({high.x - low.x, high.y - low.y, high.z - low.z});
    if (size < cell)
      Warn(mesh,
           fmt::format("'{}' is {:.3g} host units large, less than one cell ({:.3g}); lengths "
                       "of objects are host units, by default 100 to a metre",
                       Shown(object->Name()), size, cell),
           Mesh::kObjectRow);
  }

  /// The box of the points of all polygon objects that a node leads to, in host units; false where
  /// there are none, or where they move or change on the way.
  bool StillBox(const BaseNode& node, Vec3d& low, Vec3d& high, int depth = 0) const {
    constexpr int kDeepest = 16;
    if (depth > kDeepest || mPlaces.IsMoved(node) ||
        (IsVolume(node) && Whole(node, VolumeMesh::kInvertedRow)))
      return false;
    if (const auto* object = dynamic_cast<const PolygonObject*>(&node)) {
      if (!object->FramePattern().empty() || object->GetGeometry().points.empty()) return false;
      AddBox(*object, low, high);
      return true;
    }
    std::set<NodeId> linked;
    AddLinks(node, linked);
    bool any = false;
    for (const NodeId id : linked) {
      const BaseNode* target = mScene.document->Find(id);
      const bool isShape =
          target && (IsVolume(*target) || IsMesh(*target) || target->Type() == kMeshObject);
      if (!isShape) continue;
      if (!StillBox(*target, low, high, depth + 1)) return false;
      any = true;
    }
    return any;
  }

  /// Calls f(emitter, volume, low, high) with the boxes of the shapes that stay as they are.
  void ForEachStillEmitter(const std::function<void(const BaseNode&, const BaseNode&, const Vec3d&,
                                                    const Vec3d&)>& f) const {
    const auto deforms = [](const BaseNode* node) { return IsA<MeshSmoothingOperator>(*node); };
    if (std::any_of(mNodes.begin(), mNodes.end(), deforms)) return;
    for (const BaseNode* emitter : mNodes) {
      if (!IsA<ObjectGridEmitter>(*emitter)) continue;
      const BaseNode* volume = Linked(*emitter, ObjectGridEmitter::kVolumeRow);
      Vec3d low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
      if (volume && volume->IsEnabled() && StillBox(*volume, low, high))
        f(*emitter, *volume, low, high);
    }
  }
  static double ThinnestSide(const Vec3d& low, const Vec3d& high) {
    return std::min({high.x - low.x, high.y - low.y, high.z - low.z});
  }

  void CheckThinEmitters(double cell) {
    ForEachStillEmitter(
        [&](const BaseNode& emitter, const BaseNode& volume, const Vec3d& low, const Vec3d& high) {
          const double thinnest = ThinnestSide(low, high) / cell;
          if (thinnest > 0 && thinnest < 1 && MayWork(emitter))
            Warn(emitter,
                 fmt::format("the shape of '{}' is {:.2g} of a cell thin: it emits only into cells "
                             "whose centres lie inside, of which there may be none",
                             Shown(volume.Name()), thinnest),
                 ObjectGridEmitter::kVolumeRow);
        });
  }

  /// Cells inside of an obstacle hold no gas.
  void CheckInsideOfObstacle(const BaseNode& emitter) {
    if (!IsA<ObjectGridEmitter>(emitter) || !MayWork(emitter)) return;
    const BaseNode* volume = Linked(emitter, ObjectGridEmitter::kVolumeRow);
    if (!volume || !volume->Tag(kObstacleTag) || HandsOver(emitter)) return;
    Warn(emitter,
         fmt::format("'{}', whose cells it fills, is an obstacle, and no gas is inside of it; emit "
                     "from a larger shape without an obstacle tag",
                     Shown(volume->Name())),
         ObjectGridEmitter::kVolumeRow);
  }

  /// Whether some field of an emitter is moved by a scheme that gives what lies in solids to the
  /// gas beside them.
  bool HandsOver(const BaseNode& emitter) const {
    constexpr i32 kFirstConservative = 2;
    return std::any_of(mNodes.begin(), mNodes.end(), [&](const BaseNode* node) {
      if (!IsA<GridAdvection>(*node) ||
          Whole(*node, GridAdvection::kSchemeRow) < kFirstConservative)
        return false;
      const BaseNode* field = Linked(*node, GridAdvection::kTargetRow);
      std::set<NodeId> pairs;
      AddLinks(emitter, pairs);
      return std::any_of(pairs.begin(), pairs.end(), [&](NodeId id) {
        const BaseNode* pair = mScene.document->Find(id);
        return field && pair && IsA<ChannelPair>(*pair) &&
               Linked(*pair, ChannelPair::kChannelRow) == field;
      });
    });
  }

  /// A mesh that changes behind the volumes that read it changes for nobody.
  void CheckMeshOperator(const BaseNode& node) {
    if (!IsA<MeshSmoothingOperator>(node)) return;
    const i32 own = Whole(node, common_row::kStage);
    const i32 stage = own > 0 ? own : FindKind(node.Type())->stages.front();
    const BaseNode* mesh = Linked(node, MeshOperator::kTargetRow);
    if (mesh && IsA<VolumeMesh>(*mesh)) mesh = Linked(*mesh, VolumeMesh::kMeshRow);
    if (!mesh || stage <= kVolumes || !MayWork(node)) return;
    for (const BaseNode* volume : mNodes) {
      std::set<NodeId> linked;
      if (IsVolume(*volume)) AddLinks(*volume, linked);
      if (!linked.contains(mesh->Id())) continue;
      return Warn(node,
                  fmt::format("it changes '{}' in stage {}, behind the volume '{}', which reads it "
                              "in stage {}; with 'stage' {} the volume sees the change",
                              Shown(mesh->Name()), stage, Shown(volume->Name()), i32{kVolumes},
                              i32{kVolumes}),
                  own > 0 ? i32{common_row::kStage} : 0);
    }
  }

  /// Whether shapes in a box may meet that of a fluid; so may all where the fluid moves.
  bool MayMeet(const BaseNode& fluid, const Vec3d& low, const Vec3d& high) const {
    const Vec3d* size = Get<Vec3d>(fluid, FluidSolver::kBoxSizeRow);
    if (mPlaces.IsMoved(fluid) || !fluid.Tracks().empty() || !size) return true;
    const Vec3d* offset = Get<Vec3d>(fluid, FluidSolver::kBoxOffsetRow);
    const Vec3d from = fluid.GlobalMatrix().offset - *size * (offset ? *offset : Vec3d{});
    for (int a = 0; a < 3; ++a)
      if (low[a] > from[a] + (*size)[a] || high[a] < from[a]) return false;
    return true;
  }

  bool LiesOutside(const Vec3d& low, const Vec3d& high) const {
    bool any = false;
    for (const BaseNode* fluid : mNodes) {
      if (!IsA<FluidSolver>(*fluid)) continue;
      if (MayMeet(*fluid, low, high)) return false;
      any = true;
    }
    return any;
  }

  /// Emitters of fields that only solvers elsewhere move.
  void CheckMovers() {
    ForEachStillEmitter([&](const BaseNode& emitter, const BaseNode& volume, const Vec3d& low,
                            const Vec3d& high) {
      if (!MayWork(emitter)) return;
      for (const NodeId id : LinksOf(emitter)) {
        const BaseNode* pair = mScene.document->Find(id);
        const BaseNode* field =
            pair && IsA<ChannelPair>(*pair) ? Linked(*pair, ChannelPair::kChannelRow) : nullptr;
        if (const BaseNode* mover = field ? MoverElsewhere(*field, low, high) : nullptr)
          Warn(emitter, fmt::format("{}, which it fills, stays where it is: {} lies outside of the "
                                    "box of the solver of {}, which alone moves it",
                                    Named(*field), Named(volume), Named(*mover)));
      }
    });
  }

  /// An advection of a field, where all of them take flows that a box doesn't meet.
  const BaseNode* MoverElsewhere(const BaseNode& field, const Vec3d& low, const Vec3d& high) const {
    const BaseNode* mover = nullptr;
    for (const BaseNode* node : mNodes) {
      if (!IsA<GridAdvection>(*node) || !MayWork(*node) ||
          Linked(*node, GridAdvection::kTargetRow) != &field)
        continue;
      const BaseNode* solver = Linked(*node, GridAdvection::kSolverRow);
      if (!solver || !IsA<FluidSolver>(*solver) || MayMeet(*solver, low, high)) return nullptr;
      mover = node;
    }
    return mover;
  }

  static constexpr double kFar = std::numeric_limits<double>::infinity();
};

}  // namespace

std::map<NodeId, std::string> FindEmptyShapes(const LoadedScene& scene, const ScenePlaces& places) {
  std::map<NodeId, std::string> empty;
  Diagnostics unused;
  ShapeHints hints(scene, places, unused);
  for (const BaseNode* server : scene.servers) hints.FindEmptyShapes(*server, empty);
  return empty;
}

void AddShapeHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  ShapeHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) hints.LookAt(*server);
  hints.LookAtTags();
}

}  // namespace MELDO_GLOBAL::app
