#include "scene/scene_hints.h"

#include <fmt/format.h>

#include <functional>
#include <limits>
#include <map>
#include <set>
#include <tuple>

#include "cache/cache_rows.h"
#include "cache/grid_cacher.h"
#include "fluids/advection/grid_advection.h"
#include "fluids/emission/channel_pair.h"
#include "fluids/emission/emission_settings.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/multi_volume.h"
#include "framework/duration.h"
#include "framework/pipeline.h"
#include "framework/server_rows.h"
#include "host/polygon_object.h"
#include "nodes/catalogue.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

class HintFinder {
 public:
  HintFinder(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics)
      : mScene(scene), mPlaces(places), mDiagnostics(diagnostics) {}

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
    for (const BaseNode* node : mNodes)
      if (IsA<Mesh>(*node)) CheckSize(*node, cell);
    CheckThinEmitters(cell);
    CheckSettings(server);
    for (const BaseNode* node : mNodes) {
      CheckInsideOfObstacle(*node);
      CheckMeshOperator(*node);
      CheckWithoutValue(*node);
    }
    const bool ownRange = Whole(server, server_row::kUsePreviewRange) == 0;
    CheckNumbers(ownRange ? Whole(server, server_row::kFirstFrame) : mScene.document->previewMin);
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
      } else if (LiesOutside(low, high)) {
        empty[emitter.Id()] = shape +
                              " lies outside of the box of every fluid; a box begins at its node's "
                              "position, and its box_size is in host units";
      }
    });
  }

  /// What concerns the nodes of all servers together.
  void LookAtAll() {
    mNodes.clear();
    for (const BaseNode* server : mScene.servers) Collect(*server);
    CheckRecordings();
    CheckExports();
  }

 private:
  void Collect(const BaseNode& node) {
    for (const BaseNode* child : node.Children()) {
      if (child->IsEnabled()) mNodes.push_back(child);
      Collect(*child);
    }
  }

  /// What a row gives: the node's value, else that of a node without one; null where the node has
  /// no such row, or one of another type.
  template <class T>
  static const T* Get(const BaseNode& node, i32 row) {
    const Value* value = node.Get(row);
    if (!value && node.Table())
      if (const ParameterRow* own = FindRow(*node.Table(), row)) value = &own->WhenMissing();
    return value ? std::get_if<T>(value) : nullptr;
  }
  static double Number(const BaseNode& node, i32 row) {
    const double* number = Get<double>(node, row);
    return number ? *number : 0;
  }
  static i32 Whole(const BaseNode& node, i32 row) {
    const i32* whole = Get<i32>(node, row);
    return whole ? *whole : 0;
  }
  static std::string Text(const BaseNode& node, i32 row) {
    const std::string* text = Get<std::string>(node, row);
    return text ? *text : "";
  }
  const BaseNode* Linked(const BaseNode& node, i32 row) const {
    const Link* link = Get<Link>(node, row);
    return link ? mScene.document->Find(link->node) : nullptr;
  }
  static std::string_view NameOf(const BaseNode& node, i32 row) {
    return FindRow(*node.Table(), row)->name;
  }

  static bool IsVolume(const BaseNode& node) {
    return IsA<VolumeMesh>(node) || IsA<MultiVolume>(node);
  }
  static bool IsMesh(const BaseNode& node) { return IsA<Mesh>(node) || IsA<MultiMesh>(node); }
  static void AddLinks(const BaseNode& node, std::set<NodeId>& linked) {
    for (const auto& [id, value] : node.Values()) {
      if (const Link* link = std::get_if<Link>(&value)) linked.insert(link->node);
      if (const auto* list = std::get_if<InExcludeData>(&value))
        for (const InExcludeData::Entry& entry : list->entries) linked.insert(entry.node);
    }
  }
  void ForEachNode(const std::function<void(const BaseNode&)>& visit) const {
    const std::function<void(const BaseNode&)> walk = [&](const BaseNode& node) {
      visit(node);
      for (const BaseNode* child : node.Children()) walk(*child);
    };
    for (const BaseNode* root : mScene.document->Roots()) walk(*root);
  }

  void Warn(const BaseNode& node, const std::string& text, i32 row = 0) {
    mDiagnostics.Warning(mPlaces.Of(node, row ? NameOf(node, row) : ""),
                         fmt::format("{} \"{}\": {}", TypeWord(node), Shown(node.Name()), text));
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

  /// What a node can't do without and has no link for.
  void CheckWithoutValue(const BaseNode& node) {
    constexpr i32 kRadius = ParticleToGridEmitter::kRadiusRow;
    if (IsA<ParticleToGridEmitter>(node) && Number(node, kRadius) == 0 &&
        !node.Tracks().contains(kRadius))
      Warn(node, fmt::format("'{}' is 0: its points reach no cell", NameOf(node, kRadius)),
           kRadius);
    if (!IsA<ChannelOperator_Remap>(node) || !MayWork(node)) return;
    const Gradient* gradient = Get<Gradient>(node, ChannelOperator_Remap::kGradientRow);
    if (!gradient || gradient->knots.empty())
      Warn(node, fmt::format("it has no '{}', and changes nothing",
                             NameOf(node, ChannelOperator_Remap::kGradientRow)));
  }

  /// Whether a number is nothing but `most` or less, in all its keys.
  static bool StaysAtMost(const BaseNode& node, i32 row, double most) {
    const auto track = node.Tracks().find(row);
    if (track == node.Tracks().end()) return Number(node, row) <= most;
    return std::all_of(track->second.keys.begin(), track->second.keys.end(), [&](const auto& key) {
      const double* value = std::get_if<double>(&key.value);
      return value && *value <= most;
    });
  }

  /// Numbers that each are allowed, and with which nothing happens.
  void CheckSettings(const BaseNode& server) {
    const double scale = Number(server, server_row::kTimeScale);
    constexpr i32 kFixed = 2;
    const bool isFixed = Whole(server, server_row::kTimeMode) == kFixed &&
                         !server.Tracks().contains(server_row::kTimeMode);
    for (const i32 row : {i32{server_row::kTimeScale}, i32{server_row::kFixedStep}})
      if (StaysAtMost(server, row, 0) && (row == server_row::kTimeScale || isFixed))
        Warn(server,
             fmt::format("'{}' is {}: time stands still, and nothing moves", NameOf(server, row),
                         Number(server, row)),
             row);
    const bool ownRange = Whole(server, server_row::kUsePreviewRange) == 0;
    const double frames = ownRange
                              ? std::abs(double(Whole(server, server_row::kLastFrame)) -
                                         Whole(server, server_row::kFirstFrame))
                              : double(mScene.document->previewMax) - mScene.document->previewMin;
    const bool isSteady = scale > 0 && !server.Tracks().contains(server_row::kTimeScale);
    for (const BaseNode* node : mNodes) {
      if (IsA<ChannelPair>(*node)) CheckAmount(*node);
      if (IsA<Duration>(*node) && isSteady) CheckStart(*node, frames, scale);
    }
  }

  void CheckStart(const BaseNode& duration, double frames, double scale) {
    const bool usesFrames = Whole(duration, Duration::kUseFramesRow) != 0;
    const i32 row = usesFrames ? Duration::kStartFramesRow : Duration::kStartRow;
    const double start =
        usesFrames ? Whole(duration, row) : Number(duration, row) * mScene.document->fps / scale;
    if (start > frames && duration.Tracks().empty())
      Warn(
          duration,
          fmt::format("'{}': it begins {:.4g} frames behind the first one, and the range has {:g}: "
                      "it never opens",
                      NameOf(duration, row), start, frames),
          row);
  }

  /// Whether a number or vector is 0, in all its keys.
  static bool StaysZero(const BaseNode& node, i32 row) {
    const auto isZero = [](const Value& value) {
      const double* real = std::get_if<double>(&value);
      const Vec3d* vector = std::get_if<Vec3d>(&value);
      return (real && *real == 0) || (vector && *vector == Vec3d{});
    };
    const auto track = node.Tracks().find(row);
    if (track != node.Tracks().end())
      return std::all_of(track->second.keys.begin(), track->second.keys.end(),
                         [&](const auto& key) { return isZero(key.value); });
    const Value* value = node.Get(row);
    return isZero(value ? *value : FindRow(*node.Table(), row)->WhenMissing());
  }

  /// What adds nothing to the field of a pair.
  void CheckAmount(const BaseNode& pair) {
    using Settings = GridEmissionSettings;
    const BaseNode* channel = Linked(pair, ChannelPair::kChannelRow);
    const BaseNode* settings = Linked(pair, ChannelPair::kSettingsRow);
    const NodeKind* kind = channel ? FindKind(channel->Type()) : nullptr;
    constexpr i32 kSet = 1;
    if (!kind || !settings || Whole(*settings, Settings::kModeRow) == kSet) return;
    const bool isVector = (kind->categories & kCategoryVector) != 0;
    const BaseNode* rate = Linked(*settings, Settings::kRateRow);
    const bool hasRate = rate && rate->IsEnabled();
    const BaseNode& holder = hasRate ? *rate : *settings;
    const i32 ofRate = isVector ? EmissionRate::kVectorRow : EmissionRate::kRealRow;
    const i32 own = isVector ? Settings::kVectorAmountRow : Settings::kAmountRow;
    if (const i32 row = hasRate ? ofRate : own; StaysZero(holder, row))
      Warn(holder,
           fmt::format("'{}' is 0: it adds nothing to '{}'", NameOf(holder, row),
                       Shown(channel->Name())),
           row);
    const auto* curve = Get<SplineData>(*settings, Settings::kFalloffCurveRow);
    const bool isFlat = curve && !curve->knots.empty() &&
                        std::all_of(curve->knots.begin(), curve->knots.end(),
                                    [](const auto& knot) { return knot.y == 0; });
    if (isFlat && Whole(*settings, Settings::kFalloffRow) == Settings::kDepthCurve)
      Warn(*settings,
           fmt::format("'{}' is 0 at every depth: it adds nothing to '{}'",
                       NameOf(*settings, Settings::kFalloffCurveRow), Shown(channel->Name())),
           Settings::kFalloffCurveRow);
  }

  bool LiesOutside(const Vec3d& low, const Vec3d& high) const {
    bool any = false;
    for (const BaseNode* fluid : mNodes) {
      if (!IsA<FluidSolver>(*fluid)) continue;
      const bool isKeyed = mPlaces.IsMoved(*fluid) || !fluid->Tracks().empty();
      const Vec3d* size = Get<Vec3d>(*fluid, FluidSolver::kBoxSizeRow);
      if (isKeyed || !size) return false;
      const Vec3d* offset = Get<Vec3d>(*fluid, FluidSolver::kBoxOffsetRow);
      const Vec3d from = fluid->GlobalMatrix().offset - *size * (offset ? *offset : Vec3d{});
      bool meets = true;
      for (int a = 0; a < 3; ++a)
        meets = meets && low[a] <= from[a] + (*size)[a] && high[a] >= from[a];
      if (meets) return false;
      any = true;
    }
    return any;
  }

  bool MayWork(const BaseNode& node) const {
    const NodeReach* reach = mScene.reach.Of(node.Id());
    return !reach || reach->MayWork();
  }

  /// What an export names and never works leaves nothing in its files.
  void CheckExports() {
    std::set<NodeId> told;
    for (const ExportSpec& spec : mScene.exports)
      for (const auto& [name, id] : spec.grids) {
        const BaseNode* node = mScene.document->Find(id);
        const NodeReach* reach = mScene.reach.Of(id);
        if (node && reach && !reach->MayWork() && told.insert(id).second)
          Warn(*node, fmt::format("it is exported, and never works: {}", reach->whyIdle));
      }
  }

  /// Two caches of one name in one folder write over each other's files, frame by frame.
  void CheckRecordings() {
    using Place = std::tuple<i32, std::string, std::string>;
    std::map<Place, const BaseNode*> recorders;
    for (const BaseNode* cache : mNodes) {
      if (!IsA<GridCacher>(*cache) || Whole(*cache, cache_row::kMode) == cache_row::kPlayBack)
        continue;
      const i32 folder = Whole(*cache, cache_row::kFolder);
      if (folder && Text(*cache, cache_row::kCustomFolder).empty())
        Warn(*cache,
             fmt::format("it writes nothing: its '{}' is 'custom', and '{}' is empty",
                         NameOf(*cache, cache_row::kFolder),
                         NameOf(*cache, cache_row::kCustomFolder)),
             cache_row::kFolder);
      const Place place = {folder, folder ? Text(*cache, cache_row::kCustomFolder) : "",
                           Text(*cache, cache_row::kBaseName)};
      const auto [found, isNew] = recorders.try_emplace(place, cache);
      if (!isNew)
        Warn(*cache,
             fmt::format("writes over the files of the cache '{}'; give it another '{}'",
                         Shown(found->second->Name()), NameOf(*cache, cache_row::kBaseName)));
    }
  }

  /// Files are read by their count from the first frame, however they are numbered.
  void CheckNumbers(i32 first) {
    for (const BaseNode* cache : mNodes)
      if (IsA<GridCacher>(*cache) && Whole(*cache, cache_row::kMode) != cache_row::kRecord &&
          Whole(*cache, cache_row::kNumbering) != 0 && Whole(*cache, cache_row::kShowFrame) == -1 &&
          Whole(*cache, cache_row::kFrameOffset) != first)
        Warn(*cache,
             fmt::format("it plays its files counted from the first frame, {}, and their numbers "
                         "are those of the scene; to bring both together, set '{}' to {}",
                         first, NameOf(*cache, cache_row::kFrameOffset), first));
  }

  static constexpr double kFar = std::numeric_limits<double>::infinity();

  const LoadedScene& mScene;
  const ScenePlaces& mPlaces;
  Diagnostics& mDiagnostics;
  std::vector<const BaseNode*> mNodes;
};

}  // namespace

std::map<NodeId, std::string> FindEmptyShapes(const LoadedScene& scene, const ScenePlaces& places) {
  std::map<NodeId, std::string> empty;
  Diagnostics unused;
  HintFinder finder(scene, places, unused);
  for (const BaseNode* server : scene.servers) finder.FindEmptyShapes(*server, empty);
  return empty;
}

void AddHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  HintFinder finder(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) finder.LookAt(*server);
  finder.LookAtTags();
  finder.LookAtAll();
}

}  // namespace MELDO_GLOBAL::app
