#include "cli/graph_data.h"

#include <fmt/format.h>

#include <unordered_map>

#include "framework/pipeline.h"
#include "host/render_objects.h"
#include "nodes/catalogue.h"
#include "scene/node_names.h"
#include "scene/parameter_text.h"
#include "scene/render_section.h"
#include "scene/scene_context.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ObstacleParameters;
using Json = nlohmann::ordered_json;

namespace {

/// What the lists of a scene are called, by their number.
const char* GroupOfList(i32 list) {
  switch (list) {
    case MELDO_SULVA::kListChannels: return "Channels";
    case MELDO_SULVA::kListGeometry: return "Volumes and meshes";
    case MELDO_SULVA::kListEmitters: return "Emitters";
    case MELDO_SULVA::kListOperators: return "Operators";
    case MELDO_SULVA::kListSolvers: return "Solvers";
    case MELDO_SULVA::kListParticles: return "Particles";
    case MELDO_SULVA::kListForces: return "Forces";
    case MELDO_SULVA::kListCaches: return "Caches";
    case MELDO_SULVA::kListSettings: return "Settings";
    case MELDO_SULVA::kListAuxiliary: return "Helpers";
    default: return "Scene";
  }
}

std::string GroupOf(const BaseNode& node) {
  if (const NodeKind* kind = FindKind(node.Type()))
    if (kind->make || kind->list || kind->id == kServerNode) return GroupOfList(kind->list);
  if (node.Type() >= kMeshObject && node.Type() <= kPointsObject) return "Objects";
  return FindKind(node.Type()) && node.Parent() ? "Scene" : "Pictures";
}

Json PageRows(const ParameterTable& table) {
  Json rows = Json::array();
  for (const ParameterRow& row : table) {
    Json choices = Json::array();
    for (const Choice& choice : row.choices) choices.push_back(choice.name);
    rows.push_back({{"name", row.name},
                    {"id", row.id},
                    {"type", NameOf(row.type)},
                    {"unit", row.unit},
                    {"help", row.help},
                    {"default", DefaultJson(row)},
                    {"limits", LimitsText(row)},
                    {"choices", std::move(choices)}});
    const i32* whole = std::get_if<i32>(&row.creation);
    const Choice* choice = whole ? ChoiceOf(row, *whole) : nullptr;
    if (choice) rows.back()["default"] = choice->name;
  }
  return rows;
}

class GraphBuilder {
 public:
  explicit GraphBuilder(const LoadedScene& scene) : mScene(scene), mNames(*scene.document) {}

  Json Build() {
    const Document& document = *mScene.document;
    for (const BaseNode* root : document.Roots()) AddNode(*root, -1);
    for (const ExportSpec& spec : mScene.exports) AddExport(spec);
    for (const auto& [node, index] : mOrder) AddLinks(*node, index);
    if (mScene.render) AddPicture(*mScene.render);
    AddExportLinks();
    Json stages = Json::array();
    for (const MELDO_SULVA::StageRow& stage : MELDO_SULVA::kPipeline)
      stages.push_back({{"number", stage.number}, {"name", stage.name}, {"work", stage.work}});
    return {{"title", mScene.path.filename().string()},
            {"frames", {document.previewMin, document.previewMax}},
            {"fps", document.fps},
            {"stages", std::move(stages)},
            {"kinds", std::move(mKinds)},
            {"nodes", std::move(mNodes)},
            {"links", std::move(mLinks)}};
  }

 private:
  void AddNode(const BaseNode& node, int parent) {
    const int index = static_cast<int>(mNodes.size());
    mIndices[node.Id()] = index;
    mOrder.emplace_back(&node, index);
    const Vec3d place = node.GlobalMatrix().offset;
    mNodes.push_back({{"name", node.Name()},
                      {"path", node.Path()},
                      {"type", KindOf(node)},
                      {"group", GroupOf(node)},
                      {"parent", parent},
                      {"enabled", node.IsEnabled()},
                      {"position", {place.x, place.y, place.z}}});
    if (const NodeReach* reach = mScene.reach.Of(node.Id())) {
      if (!reach->whyIdle.empty()) mNodes[index]["idle"] = reach->whyIdle;
      const auto sleeper = mScene.sleepers.find(node.Id());
      if (reach->MayWork() && sleeper != mScene.sleepers.end())
        mNodes[index]["asleep"] = sleeper->second;
      if (reach->isUnread) mNodes[index]["unread"] = true;
    }
    for (const BaseNode* child : node.Children()) AddNode(*child, index);
  }

  /// The type of a node, whose kind is told once.
  std::string KindOf(const BaseNode& node) {
    const NodeKind* kind = FindKind(node.Type());
    const std::string type = kind                             ? std::string(kind->type)
                             : node.Type() == kRenderSettings ? "render"
                                                              : TypeWord(node);
    if (mKinds.contains(type)) return type;
    Json told = {{"label", kind ? std::string(kind->label) : type},
                 {"class", kind ? std::string(kind->className) : ""},
                 {"stages", kind ? Json(kind->stages) : Json::array()},
                 {"priority", kind && kind->priority ? Json(*kind->priority) : Json(nullptr)},
                 {"parameters", node.Table() ? PageRows(*node.Table()) : Json::array()}};
    mKinds[type] = std::move(told);
    return type;
  }

  Json TextOf(const ParameterRow& row, const Value& value) const {
    if (const i32* whole = std::get_if<i32>(&value))
      if (const Choice* choice = ChoiceOf(row, *whole)) return choice->name;
    if (const Link* link = std::get_if<Link>(&value))
      return link->node ? Json(mNames.Of(link->node)) : Json(nullptr);
    const auto* links = std::get_if<InExcludeData>(&value);
    if (!links) return ValueJson(row, value);
    Json names = Json::array();
    for (const InExcludeData::Entry& entry : links->entries) names.push_back(mNames.Of(entry.node));
    return names;
  }

  /// What a node or tag holds that differs from the defaults.
  Json ValuesOf(const BaseNode& node) const {
    Json values = Json::object();
    if (!node.Table()) return values;
    for (const ParameterRow& row : *node.Table()) {
      const Value* value = node.Get(row.id);
      const auto track = node.Tracks().find(row.id);
      const bool isKeyed = track != node.Tracks().end();
      if (!value || (*value == row.creation && !isKeyed)) continue;
      Json told = {{"value", TextOf(row, *value)}};
      if (isKeyed)
        for (const Track::Key& key : track->second.keys)
          told["keys"].push_back(Json::array({key.frame, TextOf(row, key.value)}));
      values[std::string(row.name)] = std::move(told);
    }
    return values;
  }

  void AddLinks(const BaseNode& node, int index) {
    mNodes[index]["values"] = ValuesOf(node);
    AddLinksOf(node, index, "");
    const BaseNode* obstacle = node.Tag(kObstacleTag);
    if (!obstacle) return;
    if (!mKinds.contains("obstacle"))
      mKinds["obstacle"] = {{"parameters", PageRows(ObstacleParameters())}};
    mNodes[index]["obstacle"] = ValuesOf(*obstacle);
    AddLinksOf(*obstacle, index, "obstacle ");
  }

  void AddLinksOf(const BaseNode& node, int index, const std::string& prefix) {
    if (!node.Table()) return;
    for (const ParameterRow& row : *node.Table()) {
      const Value* value = node.Get(row.id);
      if (!value) continue;
      const std::string name = prefix + std::string(row.name);
      if (const Link* link = std::get_if<Link>(value)) AddLink(index, link->node, name);
      if (const auto* links = std::get_if<InExcludeData>(value))
        for (const InExcludeData::Entry& entry : links->entries) AddLink(index, entry.node, name);
    }
  }

  void AddLink(int from, NodeId to, std::string_view parameter) {
    const auto found = mIndices.find(to);
    if (found != mIndices.end())
      mLinks.push_back({{"from", from}, {"to", found->second}, {"parameter", parameter}});
  }

  void AddPicture(const RenderSpec& render) {
    const auto find = [&](const BaseNode* node) {
      const auto found = node ? mIndices.find(node->Id()) : mIndices.end();
      return found == mIndices.end() ? -1 : found->second;
    };
    const int settings = find(render.settings);
    if (settings >= 0) {
      if (render.camera) AddLink(settings, render.camera->Id(), "camera");
      for (const BaseNode* light : render.lights) AddLink(settings, light->Id(), "lights");
      for (const BaseNode* medium : render.media) AddLink(settings, medium->Id(), "materials");
    }
    for (const auto& [object, surface] : render.surfaces)
      if (const int index = find(surface); index >= 0) AddLink(index, object, "objects");
  }

  void AddExport(const ExportSpec& spec) {
    const std::string type = spec.format + " export";
    if (!mKinds.contains(type))
      mKinds[type] = {{"label", "Export"},
                      {"class", ""},
                      {"stages", Json::array()},
                      {"priority", nullptr},
                      {"parameters", Json::array()}};
    mExports.emplace_back(&spec, static_cast<int>(mNodes.size()));
    mNodes.push_back({{"name", spec.file},
                      {"path", "exports/" + spec.file},
                      {"type", type},
                      {"group", "Exports"},
                      {"parent", -1},
                      {"enabled", true},
                      {"values", Json::object()}});
  }

  void AddExportLinks() {
    for (const auto& [spec, index] : mExports)
      for (const auto& [name, node] : spec->grids) AddLink(index, node, name);
  }

  const LoadedScene& mScene;
  NodeNames mNames;
  std::unordered_map<NodeId, int> mIndices;
  std::vector<std::pair<const BaseNode*, int>> mOrder;
  std::vector<std::pair<const ExportSpec*, int>> mExports;
  Json mKinds = Json::object(), mNodes = Json::array(), mLinks = Json::array();
};

}  // namespace

Json GraphData(const LoadedScene& scene) { return GraphBuilder(scene).Build(); }

}  // namespace MELDO_GLOBAL::app
