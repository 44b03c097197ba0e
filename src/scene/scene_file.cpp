#include "scene/scene_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "framework/server_rows.h"
#include "framework/stage_order.h"
#include "host/exit_codes.h"
#include "host/mesh_files.h"
#include "nodes/catalogue.h"
#include "scene/output_name.h"
#include "scene/render_section.h"
#include "scene/scene_advice.h"
#include "scene/scene_exports.h"
#include "scene/scene_fingerprint.h"
#include "scene/scene_hints.h"
#include "scene/scene_nodes.h"
#include "scene/scene_places.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

constexpr i32 kSimulationUnits = MELDO_SULVA::server_row::kSimulationUnits;

constexpr std::size_t kLargestFile = std::size_t{64} << 20;

// Frames a second and frames between which times, and the distance of two frames, are exact.
constexpr double kSlowest = 1e-6, kFastest = 1e6;
constexpr i32 kFarthestFrame = 1000000000;

/// The members at the top of a scene file.
void ReadHeader(SceneContext& context, const JsonValue& root) {
  Document& document = context.document;
  context.CheckKeys(
      root, {"$schema", "sulva", "fps", "range", "objects", "nodes", "exports", "render"}, "");
  // Where an editor finds names and ranges; it means nothing here.
  if (const JsonValue* schema = root.Find("$schema")) context.ReadText(*schema, "", "'$schema'");
  if (const JsonValue* version = root.Find("sulva")) {
    const auto number = context.ReadNumber(*version, "", "'sulva'");
    if (number && *number != 1)
      context.Error(*version, "",
                    fmt::format("'sulva': format version {} is unknown; expected 1", *number));
  } else {
    context.Error(root, "", "'sulva' is missing; expected \"sulva\": 1, the format version");
  }
  if (const JsonValue* fps = root.Find("fps")) {
    const auto number = context.ReadNumber(*fps, "", "'fps'");
    const bool isRate = number && *number >= kSlowest && *number <= kFastest;
    if (number && !(*number > 0)) {
      context.Error(*fps, "", fmt::format("'fps': expected a number above 0, got {}", *number));
    } else if (number && !isRate) {
      context.Error(
          *fps, "",
          fmt::format("'fps': {} is out of range; expected {} to {}", *number, kSlowest, kFastest));
    }
    if (isRate) document.fps = *number;
  }
  const JsonValue* range = root.Find("range");
  if (!range) return;
  const auto frames = context.ReadNumbers(*range, 2, "", "'range'");
  if (!frames) return;
  const auto first = context.ReadWhole((*range->Items())[0], "", "'range'");
  const auto last = context.ReadWhole((*range->Items())[1], "", "'range'");
  if (!first || !last) return;
  for (const i32 frame : {*first, *last}) {
    if (frame >= -kFarthestFrame && frame <= kFarthestFrame) continue;
    context.Error(*range, "",
                  fmt::format("'range': {} is out of range; expected {} to {}", frame,
                              -kFarthestFrame, kFarthestFrame));
    return;
  }
  if (*first > *last) {
    context.Error(*range, "",
                  fmt::format("'range': is reversed: {} lies behind {}", *first, *last));
    return;
  }
  document.previewMin = *first;
  document.previewMax = *last;
}

/// The value of an override: as the scene file writes it, or plain text. A text needs no quotes,
/// even where it looks like something else.
JsonValue OverrideValue(const ParameterRow& row, const std::string& text) {
  JsonValue value;
  Diagnostics unused;
  const bool isJson = ParseJson(text, {}, value, unused) && !unused.HasErrors();
  const bool isText = row.type == ParameterType::String && !row.script;
  const bool isName = row.type == ParameterType::Filename || row.type == ParameterType::Link;
  if (!isJson || ((isText || (isName && !value.IsNull())) && !value.Text())) value.data = text;
  return value;
}

/// The node of an override: of several of a name the one that has the parameter.
BaseNode* OverriddenNode(SceneContext& context, const NameTable& names,
                         const std::string& reference, const std::string& key) {
  std::vector<BaseNode*> fitting;
  for (const NameTable::Candidate& candidate : names.Find(reference))
    if (const ParameterTable* table = candidate.node->Table(); table && RowNamed(*table, key))
      fitting.push_back(candidate.node);
  if (fitting.size() == 1) return fitting.front();
  return ValueReader(context, names).ResolveLink(reference, {}, {}, "", "node");
}

/// Applies one `NODE.PARAMETER=VALUE` and adds it to `given`.
void ApplyOverride(SceneContext& context, const NameTable& names, const std::string& text,
                   std::vector<GivenOption>& given) {
  const std::string option = "--set " + Shown(text);
  context.SetOption(option);
  const JsonValue nowhere;
  const auto equals = text.find('=');
  const auto dot = text.substr(0, equals).rfind('.');
  if (equals == std::string::npos || dot == std::string::npos || dot == 0 || dot + 1 == equals) {
    context.Error(nowhere, "", "expected NODE.PARAMETER=VALUE");
    return;
  }
  const JsonMember key{text.substr(dot + 1, equals - dot - 1), 0, 0, {}};
  BaseNode* node = OverriddenNode(context, names, text.substr(0, dot), key.key);
  if (!node || node->Type() == kUnknownNode) return;
  const Subject subject = KindAndName(*node) + ": ";
  if (!node->Table()) {
    context.Error(nowhere, subject, "it has no parameters");
    return;
  }
  ValueReader reader(context, names);
  reader.LookFrom(*node);
  const ParameterRow* row = reader.FindRow(key, *node->Table(), subject);
  if (!row) return;
  const JsonValue value = OverrideValue(*row, text.substr(equals + 1));
  const Value* held = node->Get(row->id);
  const Value before = held ? *held : row->WhenMissing();
  reader.ReadParameter(*row, value, *node, context.document.previewMin, subject);
  given.push_back({node, row, option, subject, "--set " + text});
  if (node->Type() != kServerNode || row->id != kSimulationUnits) return;
  if (const std::string done = FollowUnits(*node, std::get<double>(before)); !done.empty())
    context.Note(key, subject, done);
}

/// Both fingerprints of a scene. Overrides of nodes that pictures alone are made of don't count.
void TakeFingerprints(const JsonValue& root, const std::vector<GivenOption>& given,
                      LoadedScene& scene) {
  std::vector<std::string> all, ofSimulation;
  for (const GivenOption& one : given) {
    if (scene.render && scene.render->Holds(*one.node)) continue;
    all.push_back(one.whole);
    if (!IsRecorder(*one.node)) ofSimulation.push_back(one.whole);
  }
  scene.fingerprint = FingerprintOf(root, all, *scene.document);
  scene.simulation =
      FingerprintOf(root, ofSimulation, *scene.document, RecordersOf(*scene.document));
}

std::set<NodeId> NodesOf(const std::vector<ExportSpec>& exports) {
  std::set<NodeId> nodes;
  for (const ExportSpec& spec : exports) {
    for (const auto& [name, node] : spec.grids) nodes.insert(node);
    nodes.insert(spec.particles.begin(), spec.particles.end());
    nodes.insert(spec.meshes.begin(), spec.meshes.end());
  }
  return nodes;
}

void TellFindings(const Reachability& reach, const ScenePlaces& places, Diagnostics& diagnostics) {
  for (const Finding& found : reach.Findings()) {
    SourceLocation where = places.Of(*found.node, found.row, found.entry);
    std::string text = KindAndName(*found.node) + ": " + found.text;
    if (found.isNote) {
      diagnostics.Note(std::move(where), std::move(text));
    } else {
      diagnostics.Warning(std::move(where), std::move(text));
    }
  }
}

/// Two nodes that change one thing with nothing to say which goes first, and the stages in which
/// they do.
struct OrderConflict {
  MELDO_SULVA::OrderTie tie;
  std::size_t stages = 1;

  std::string Stages() const {
    std::string text =
        fmt::format("stage {} ({})", tie.stage, MELDO_SULVA::kPipeline[tie.stage].name);
    if (stages > 1)
      text += fmt::format(" and {} later {}", stages - 1, stages == 2 ? "one" : "ones");
    return text;
  }
};

std::vector<OrderConflict> ConflictsOf(const std::vector<MELDO_SULVA::OrderTie>& ties) {
  std::vector<OrderConflict> conflicts;
  for (const MELDO_SULVA::OrderTie& tie : ties) {
    const auto same = std::find_if(conflicts.begin(), conflicts.end(), [&](const auto& known) {
      return known.tie.first == tie.first && known.tie.second == tie.second &&
             known.tie.target == tie.target;
    });
    if (same == conflicts.end())
      conflicts.push_back({tie});
    else
      ++same->stages;
  }
  return conflicts;
}

/// Warns where only the file says what goes first, and notes where names do. Nodes that wait for
/// each other are an error.
void TellOrder(const std::vector<BaseNode*>& servers, const ScenePlaces& places,
               Diagnostics& diagnostics) {
  for (BaseNode* server : servers) {
    if (!server->IsEnabled()) continue;
    try {
      const auto scene = MELDO_SULVA::CreateScene(*server);
      for (const OrderConflict& conflict : ConflictsOf(scene->LookAtOrder())) {
        const MELDO_SULVA::OrderTie& tie = conflict.tie;
        const bool isByName = tie.first->Commutes();
        std::string text = fmt::format(
            "{}: it and {} both change '{}' in {}, and only {} that it goes second; "
            "give one of them a priority",
            KindAndName(*tie.second->Node()), KindAndName(*tie.first->Node()),
            Shown(tie.target->mName), conflict.Stages(),
            isByName ? "their names say" : "the order of the file says");
        SourceLocation where = places.Of(*tie.second->Node(), "priority", -1);
        if (isByName)
          diagnostics.Note(std::move(where), std::move(text));
        else
          diagnostics.Warning(std::move(where), std::move(text));
      }
    } catch (const MELDO_SULVA::OrderError& error) {
      diagnostics.Error(places.Of(*error.Node(), {}, -1),
                        KindAndName(*error.Node()) + ": " + error.what());
    }
  }
}

/// Whether an override changes a server's units: the cell sizes follow these, and those that the
/// command line gives stand above that.
bool ChangesUnits(const std::string& text) {
  const std::string left = text.substr(0, text.find('='));
  return left.ends_with(".simulation_units") ||
         left.ends_with(fmt::format(".{}", kSimulationUnits));
}

}  // namespace

std::set<NodeId> LoadedScene::Idle() const {
  std::set<NodeId> idle = reach.Idle();
  for (const auto& [node, why] : sleepers) idle.insert(node);
  return idle;
}

bool LoadedScene::IsExported(const BaseNode& node) const {
  return NodesOf(exports).contains(node.Id());
}

std::string ReadSceneText(const std::filesystem::path& path) {
  const auto fail = [&](const std::string& why) {
    throw CommandError(kExitFile, fmt::format("{}: can't be read: {}", path.string(), why));
  };
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) fail("it is a folder");
  std::ifstream file(path, std::ios::binary);
  if (!file) fail(std::strerror(errno));
  std::string text;
  std::vector<char> block(1 << 16);
  while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() > 0) {
    text.append(block.data(), static_cast<std::size_t>(file.gcount()));
    if (text.size() > kLargestFile) fail("it is larger than 64 MB");
  }
  if (file.bad()) fail(std::strerror(errno));
  return text;
}

std::optional<LoadedScene> LoadScene(const std::filesystem::path& path, Diagnostics& diagnostics,
                                     const std::vector<std::string>& overrides) {
  const std::string text = ReadSceneText(path);
  JsonValue root;
  const std::string file = path.string();
  if (!ParseJson(text, file, root, diagnostics)) return {};

  LoadedScene scene;
  scene.path = path;
  scene.document = std::make_unique<Document>();
  SceneContext context(*scene.document, diagnostics, file, path.parent_path());
  if (!root.Members()) {
    context.Error(root, "", fmt::format("a scene is an object, got {}", KindOf(root)));
    return {};
  }
  ReadHeader(context, root);
  SceneBuilder builder(context, scene.document->previewMin, scene.document->previewMax);
  const JsonValue* nodes = root.Find("nodes");
  builder.Make(root.Find("objects"), nodes);
  if (!nodes) context.Error(root, "", "'nodes' is missing");
  if (nodes && nodes->Items() && builder.Servers().empty())
    context.Error(*nodes, "", "'nodes' has no server; a scene needs a node of type 'server'");
  if (const JsonValue* render = root.Find("render"))
    scene.render = ReadRender(context, builder, *render);
  builder.ReadParameters();
  if (const JsonValue* exports = root.Find("exports"))
    scene.exports = ReadExports(context, builder.Names(), *exports);
  std::vector<GivenOption> given;
  for (const bool units : {true, false})
    for (const std::string& override : overrides)
      if (ChangesUnits(override) == units) ApplyOverride(context, builder.Names(), override, given);
  context.SetOption({});
  CheckCacheNames(context, builder.Made());
  if (!diagnostics.HasErrors()) Advise(context, builder.Made(), given);
  if (diagnostics.HasErrors()) return {};

  scene.servers = builder.Servers();
  scene.server = scene.servers.front();
  scene.document->sceneFolder = path.parent_path().string();
  scene.document->SetFrame(scene.document->previewMin);
  TakeFingerprints(root, given, scene);
  const ScenePlaces places(context, builder.Made(), given);
  scene.hasMotion = places.IsAnyMoved();
  scene.reach = Reachability(*scene.document, scene.servers, NodesOf(scene.exports),
                             FindEmptyShapes(scene, places));
  TellFindings(scene.reach, places, diagnostics);
  TellOrder(scene.servers, places, diagnostics);
  if (diagnostics.HasErrors()) return {};
  AddHints(scene, places, diagnostics);
  scene.sleepers = diagnostics.Sleepers();
  return scene;
}

}  // namespace MELDO_GLOBAL::app
