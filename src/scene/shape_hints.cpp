#include "scene/shape_boxes.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/advection/grid_advection.h"
#include "fluids/emission/channel_pair.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/multi_volume.h"
#include "framework/pipeline.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Meshes, volumes, obstacles, and emitters as far as their shape goes.
class ShapeHints : public ShapeBoxes {
 public:
  using ShapeBoxes::ShapeBoxes;

  /// Tags outside of volumes make nothing solid, unless a volume with a tag has the shape; but rigid
  /// bodies meet what they stand on.
  void LookAtTags() {
    std::set<NodeId> solid;
    for (const auto isShape : {IsVolume, IsMesh})
      ForEachNode([&](const BaseNode& node) {
        if (!isShape(node)) return;
        const bool hasTag = node.Tag(kObstacleTag) != nullptr;
        if (IsVolume(node) ? hasTag : solid.contains(node.Id())) AddLinks(node, solid);
      });
    if (HasBodies()) return;
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
    const double cell = CellOf(server);
    for (const BaseNode* node : mNodes) {
      if (IsA<Mesh>(*node)) CheckSize(*node, cell);
      CheckInsideOfObstacle(*node);
      CheckFarObstacle(*node);
      CheckMeshOperator(*node);
    }
    CheckThinEmitters(cell);
    CheckMovers();
  }

 private:
  void ForEachNode(const std::function<void(const BaseNode&)>& visit) const {
    const std::function<void(const BaseNode&)> walk = [&](const BaseNode& node) {
      visit(node);
      for (const BaseNode* child : node.Children()) walk(*child);
    };
    for (const BaseNode* root : mScene.document->Roots()) walk(*root);
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
    WarnOfSleep(emitter,
                fmt::format("{}, whose cells it fills, is an obstacle, and no gas is inside of it; "
                            "emit from a larger shape without an obstacle tag",
                            Named(*volume)),
                ObjectGridEmitter::kVolumeRow);
  }

  void CheckFarObstacle(const BaseNode& volume) {
    Vec3d low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
    if (IsVolume(volume) && volume.Tag(kObstacleTag) && StillBox(volume, low, high) &&
        LiesOutside(low, high))
      Note(volume, "it lies outside of the box of every fluid, and is in the way of no gas");
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
};

}  // namespace

void AddShapeHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  ShapeHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) hints.LookAt(*server);
  hints.LookAtTags();
}

}  // namespace MELDO_GLOBAL::app
