#include "scene/scene_hints.h"

#include <fmt/format.h>

#include <functional>
#include <limits>
#include <map>
#include <set>
#include <tuple>

#include "host/polygon_object.h"
#include "nodes/catalogue.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::NodeKind;

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
    const double hostUnits = Number(server, "host_units", 100);
    const double simulationUnits = Number(server, "simulation_units", 1);
    const double cell = Number(server, "cell_size", 0.2) * hostUnits / simulationUnits;
    for (const BaseNode* node : mNodes)
      if (IsKind(*node, "mesh")) CheckSize(*node, cell);
    CheckMoved();
    CheckEmitters(cell);
    const bool ownRange = Whole(server, "use_preview_range") == 0;
    CheckNumbers(ownRange ? Whole(server, "first_frame") : mScene.document->previewMin);
  }

  /// What concerns the nodes of all servers together.
  void LookAtAll() {
    mNodes.clear();
    for (const BaseNode* server : mScene.servers) Collect(*server);
    CheckRecordings();
  }

 private:
  void Collect(const BaseNode& node) {
    for (const BaseNode* child : node.Children()) {
      if (child->IsEnabled()) mNodes.push_back(child);
      Collect(*child);
    }
  }

  static bool IsKind(const BaseNode& node, std::string_view type) {
    const NodeKind* kind = FindKind(node.Type());
    return kind && kind->type == type;
  }

  static const Value* ValueOf(const BaseNode& node, std::string_view name) {
    if (node.Table())
      for (const ParameterRow& row : *node.Table())
        if (row.name == name) return node.Get(row.id);
    return nullptr;
  }

  static double Number(const BaseNode& node, std::string_view name, double otherwise) {
    const Value* value = ValueOf(node, name);
    const double* number = value ? std::get_if<double>(value) : nullptr;
    return number ? *number : otherwise;
  }

  const BaseNode* Linked(const BaseNode& node, std::string_view name) const {
    const Value* value = ValueOf(node, name);
    const Link* link = value ? std::get_if<Link>(value) : nullptr;
    return link ? mScene.document->Find(link->node) : nullptr;
  }

  static bool IsVolume(const BaseNode& node) {
    return IsKind(node, "volume") || IsKind(node, "volume_multi");
  }
  static bool IsMesh(const BaseNode& node) {
    return IsKind(node, "mesh") || IsKind(node, "mesh_multi");
  }
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

  void Warn(const BaseNode& node, const std::string& text, std::string_view key = {}) {
    mDiagnostics.Warning(mPlaces.Of(node, key),
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
    const auto* object = dynamic_cast<const PolygonObject*>(Linked(mesh, "object"));
    if (!object || object->GetGeometry().points.empty()) return;
    Vec3d low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
    AddBox(*object, low, high);
    const double size = std::max({high.x - low.x, high.y - low.y, high.z - low.z});
    if (size < cell)
      Warn(mesh,
           fmt::format("'{}' is {:.3g} host units large, less than one cell ({:.3g}); lengths "
                       "of objects are host units, by default 100 to a metre",
                       Shown(object->Name()), size, cell),
           "object");
  }

  /// The box of the points of all polygon objects that a node leads to, in host units; false where
  /// there are none, or where they move or change on the way.
  bool StillBox(const BaseNode& node, Vec3d& low, Vec3d& high, int depth = 0) const {
    constexpr int kDeepest = 16;
    if (depth > kDeepest || mPlaces.IsMoved(node) || Whole(node, "inverted") != 0) return false;
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

  /// Nothing comes out of an emitter that lies outside of every box of a gas.
  void CheckEmitters(double cell) {
    const auto deforms = [](const BaseNode* node) {
      return IsKind(*node, "mop_smoothing") || IsKind(*node, "mop_curvature");
    };
    if (std::any_of(mNodes.begin(), mNodes.end(), deforms)) return;
    for (const BaseNode* emitter : mNodes) {
      if (!IsKind(*emitter, "gridemitter") || !MayWork(*emitter)) continue;
      const BaseNode* volume = Linked(*emitter, "volume");
      Vec3d low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
      if (!volume || !StillBox(*volume, low, high)) continue;
      const double thinnest = std::min({high.x - low.x, high.y - low.y, high.z - low.z}) / cell;
      if (thinnest <= 0) {
        Warn(*emitter,
             fmt::format("it never emits: the shape of '{}' is flat and has no inside",
                         Shown(volume->Name())),
             "volume");
        continue;
      }
      if (thinnest < 1)
        Warn(*emitter,
             fmt::format("the shape of '{}' is {:.2g} of a cell thin: it emits only into cells "
                         "whose centres lie inside, of which there may be none",
                         Shown(volume->Name()), thinnest),
             "volume");
      if (LiesOutside(low, high))
        Warn(*emitter,
             fmt::format("it never emits: the shape of '{}' lies outside of the box of every "
                         "fluid; a box begins at its node's position, and its box_size is in host "
                         "units",
                         Shown(volume->Name())),
             "volume");
    }
  }

  bool LiesOutside(const Vec3d& low, const Vec3d& high) const {
    bool any = false;
    for (const BaseNode* fluid : mNodes) {
      if (!IsKind(*fluid, "fluid")) continue;
      const bool isKeyed = mPlaces.IsMoved(*fluid) || !fluid->Tracks().empty();
      const Value* value = ValueOf(*fluid, "box_size");
      const Vec3d* size = value ? std::get_if<Vec3d>(value) : nullptr;
      if (isKeyed || !size) return false;
      value = ValueOf(*fluid, "box_offset");
      const Vec3d* offset = value ? std::get_if<Vec3d>(value) : nullptr;
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

  /// Channels that an emitter feeds stand still where no advection has them as its target.
  void CheckMoved() {
    bool hasSolver = false;
    std::set<const BaseNode*> fed, moved;
    for (const BaseNode* node : mNodes) {
      hasSolver = hasSolver || IsKind(*node, "fluid");
      if (IsKind(*node, "channelsettings")) fed.insert(Linked(*node, "channel"));
      if (!IsKind(*node, "grid_advection")) continue;
      const BaseNode* target = Linked(*node, "target");
      moved.insert(target);
      // A group stands for its children.
      if (target) moved.insert(target->Children().begin(), target->Children().end());
    }
    if (!hasSolver) return;
    for (const BaseNode* channel : mNodes)
      if (fed.contains(channel) && !moved.contains(channel))
        Warn(*channel,
             "an emitter feeds it, but nothing moves it; add a grid_advection that has it "
             "as its 'target'");
  }

  /// Two caches of one name in one folder write over each other's files, frame by frame.
  void CheckRecordings() {
    using Place = std::tuple<i32, std::string, std::string>;
    std::map<Place, const BaseNode*> recorders;
    for (const BaseNode* cache : mNodes) {
      if (!IsKind(*cache, "cache") || Whole(*cache, "mode") == 0) continue;
      const i32 folder = Whole(*cache, "folder");
      const Place place = {folder, folder ? Text(*cache, "custom_folder") : "",
                           Text(*cache, "base_name")};
      const auto [found, isNew] = recorders.try_emplace(place, cache);
      if (!isNew)
        Warn(*cache, fmt::format("writes over the files of the cache '{}'; give it another "
                                 "'base_name'",
                                 Shown(found->second->Name())));
    }
  }

  /// Files are read by their count from the first frame, however they are numbered.
  void CheckNumbers(i32 first) {
    for (const BaseNode* cache : mNodes)
      if (IsKind(*cache, "cache") && Whole(*cache, "mode") != 1 &&
          Whole(*cache, "numbering") != 0 && Whole(*cache, "show_frame") == -1 &&
          Whole(*cache, "frame_offset") != first)
        Warn(*cache,
             fmt::format("it plays its files counted from the first frame, {}, and their numbers "
                         "are those of the scene; to bring both together, set 'frame_offset' to {}",
                         first, first));
  }

  static i32 Whole(const BaseNode& node, std::string_view name) {
    const Value* value = ValueOf(node, name);
    const i32* whole = value ? std::get_if<i32>(value) : nullptr;
    return whole ? *whole : 0;
  }
  static std::string Text(const BaseNode& node, std::string_view name) {
    const Value* value = ValueOf(node, name);
    const std::string* text = value ? std::get_if<std::string>(value) : nullptr;
    return text ? *text : "";
  }

  static constexpr double kFar = std::numeric_limits<double>::infinity();

  const LoadedScene& mScene;
  const ScenePlaces& mPlaces;
  Diagnostics& mDiagnostics;
  std::vector<const BaseNode*> mNodes;
};

}  // namespace

void AddHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  HintFinder finder(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) finder.LookAt(*server);
  finder.LookAtTags();
  finder.LookAtAll();
}

}  // namespace MELDO_GLOBAL::app
