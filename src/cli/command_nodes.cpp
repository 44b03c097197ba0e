#include "cli/command_nodes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/exit_codes.h"
#include "nodes/catalogue.h"
#include "nodes/guide.h"
#include "nodes/menu.h"
#include "nodes/presets.h"
#include "scene/diagnostics.h"
#include "scene/parameter_text.h"
#include "scene/render_section.h"
#include "scene/scene_schema.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::ExampleOf;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::GroupsOf;
using MELDO_SULVA::Menu;
using MELDO_SULVA::MenuGroup;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ObstacleParameters;
using MELDO_SULVA::ParametersOf;
using MELDO_SULVA::Preset;
using MELDO_SULVA::Presets;
using MELDO_SULVA::PurposeOf;
using Json = nlohmann::ordered_json;

namespace {

// ---- JSON -------------------------------------------------------------------------------------

Json LimitJson(const ParameterRow& row, double limit) {
  return row.type == ParameterType::Long ? Json(static_cast<i64>(limit)) : Json(limit);
}

Json ParameterJson(const ParameterTable& table, const ParameterRow& row) {
  Json json = {{"id", row.id},
               {"name", row.name},
               {"type", NameOf(row.type)},
               {"default", DefaultJson(row)},
               {"unit", row.unit},
               {"help", row.help}};
  if (row.HasMin()) json["min"] = LimitJson(row, row.min);
  if (row.HasMax()) json["max"] = LimitJson(row, row.max);
  for (const Choice& choice : row.choices)
    json["choices"].push_back({{"value", choice.value}, {"name", choice.name}});
  if (row.orNumbers) json["or_numbers"] = true;
  if (!row.accepts.empty()) json["accepts"] = row.accepts;
  if (row.script) json["told"] = row.script->variables;
  if (row.condition) json["counts"] = ConditionText(table, row);
  if (!row.HasEffect()) json["kept"] = true;
  return json;
}

Json RowsJson(const ParameterTable& table) {
  Json rows = Json::array();
  for (const ParameterRow& row : table) rows.push_back(ParameterJson(table, row));
  return rows;
}

Json KindJson(const NodeKind& kind) {
  Json json = {{"id", kind.id},
               {"type", kind.type},
               {"label", kind.label},
               {"class", kind.className},
               {"type_id", kind.typeId},
               {"list", kind.list},
               {"categories", kind.categories},
               {"flags", kind.flags},
               {"stages", kind.stages},
               {"priority", kind.priority ? Json(*kind.priority) : Json(nullptr)},
               {"group", GroupsOf(kind.id)},
               {"purpose", PurposeOf(kind.id)},
               {"example", ExampleOf(kind.id)}};
  json["parameters"] = RowsJson(ParametersOf(kind));
  return json;
}

// ---- text -------------------------------------------------------------------------------------

constexpr std::string_view kObstacle = "obstacle";

/// A kind of node or the obstacle tag, as the text shows it.
struct Entry {
  i32 id;
  std::string_view type, label;
};

/// What stands behind an id of the menu; no label for a kind that this version doesn't have.
Entry EntryOf(i32 id) {
  if (id == kObstacleTag) return {id, kObstacle, "Obstacle (a tag)"};
  const NodeKind* kind = FindKind(id);
  return kind ? Entry{id, kind->type, kind->label} : Entry{id, {}, {}};
}

void PrintEntry(const Entry& entry) {
  fmt::print("  {:<22} {:<29} {}\n", entry.type, entry.label, PurposeOf(entry.id));
}

void PrintCatalogue() {
  const char* gap = "";
  for (const MenuGroup& group : Menu()) {
    bool isOpen = false;
    for (const i32 id : group.entries) {
      const Entry entry = EntryOf(id);
      if (entry.label.empty()) continue;
      if (!isOpen) fmt::print("{}{}\n", gap, group.name);
      isOpen = true;
      gap = "\n";
      PrintEntry(entry);
    }
  }
  fmt::print("\nPresets: ready-made scenes, `sulva new NAME`\n");
  for (const Preset& preset : Presets()) fmt::print("  {:<22} {}\n", preset.name, preset.label);
  fmt::print("\nObjects and pictures: what objects have, and the section \"render\" of a scene\n");
  for (const PictureTable& table : PictureTables())
    fmt::print("  {:<22} {}\n", table.name, table.help);
  fmt::print("\n`sulva nodes KIND` shows the parameters of a kind, with an example.\n");
}

std::string DefaultText(const ParameterRow& row) {
  const Json json = DefaultJson(row);
  if (const i32* whole = std::get_if<i32>(&row.creation))
    if (const Choice* choice = ChoiceOf(row, *whole)) return std::string(choice->name);
  if (const double* real = std::get_if<double>(&row.creation)) return fmt::format("{}", *real);
  return json.is_null() || json == ""      ? "none"
         : json.is_array() && json.empty() ? "[]"
                                           : json.dump();
}

std::string RangeText(const ParameterRow& row) {
  std::string text;
  for (const Choice& choice : row.choices)
    text += fmt::format("{}{} ({})", text.empty() ? "one of " : ", ", choice.name, choice.value);
  if (row.orNumbers) text += ", or a number";
  return text.empty() ? LimitsText(row) : text;
}

/// "to volume, volume_multi": the kinds that a link takes, as far as this version has them.
std::string AcceptsText(const ParameterRow& row) {
  std::string text;
  for (const i32 type : row.accepts) {
    const NodeKind* kind = FindKind(type);
    const std::string_view word = type == kMeshObject ? "an object" : kind ? kind->type : "";
    if (!word.empty()) text.append(text.empty() ? "to " : ", ").append(word);
  }
  return text;
}

/// Two lines for a parameter: what it is, and what it does.
void PrintRow(const ParameterTable& table, const ParameterRow& row) {
  std::string facts = fmt::format("{:<9}", NameOf(row.type));
  if (row.type != ParameterType::Button) facts += fmt::format(" default {}", DefaultText(row));
  if (!row.unit.empty() && row.unit != "none") facts += fmt::format(" {}", row.unit);
  if (const std::string range = RangeText(row); !range.empty()) facts += ", " + range;
  if (const std::string kinds = AcceptsText(row); !kinds.empty()) facts += ", " + kinds;
  if (row.condition) facts += ", only " + ConditionText(table, row);
  fmt::print("  {:<30} {:<6} {}\n      {}\n", row.name, row.id, facts, row.help);
}

/// Parameters that do something, and apart from them those that are only kept with the scene.
void PrintRows(const ParameterTable& table, const std::vector<const ParameterRow*>& rows) {
  for (const ParameterRow* row : rows)
    if (row->HasEffect()) PrintRow(table, *row);
  bool isFirst = true;
  for (const ParameterRow* row : rows) {
    if (row->HasEffect()) continue;
    if (isFirst) fmt::print("\nKept with the scene, without effect:\n");
    isFirst = false;
    PrintRow(table, *row);
  }
}

void PrintRows(const ParameterTable& table) {
  std::vector<const ParameterRow*> rows;
  for (const ParameterRow& row : table) rows.push_back(&row);
  PrintRows(table, rows);
}

/// The parameters of a kind: its own, those that every kind has, and those without effect.
void PrintParameters(const ParameterTable& table) {
  const auto isCommon = [](const ParameterRow& row) {
    return FindRow(MELDO_SULVA::iBase::CommonParameters(), row.id) != nullptr;
  };
  for (const ParameterRow& row : table)
    if (!isCommon(row) && row.HasEffect()) PrintRow(table, row);
  std::vector<const ParameterRow*> rest;
  bool hasCommon = false;
  for (const ParameterRow& row : table) {
    if (isCommon(row) || !row.HasEffect()) rest.push_back(&row);
    hasCommon = hasCommon || (isCommon(row) && row.HasEffect());
  }
  if (hasCommon) fmt::print("\nAs other nodes have them:\n");
  PrintRows(table, rest);
}

void PrintHead(const Entry& entry) {
  fmt::print("{}  \"{}\"  {}\n{}\n", entry.type, entry.label, entry.id, PurposeOf(entry.id));
}

void PrintExample(i32 id) { fmt::print("\nExample, a scene as it stands:\n\n{}", ExampleOf(id)); }

void PrintKind(const NodeKind& kind) {
  PrintHead({kind.id, kind.type, kind.label});
  if (!kind.className.empty()) fmt::print("class {}", kind.className);
  std::string stages;
  for (const i32 stage : kind.stages)
    stages += fmt::format("{}{}", stages.empty() ? "" : ", ", stage);
  if (!stages.empty()) fmt::print(", runs in stage {}", stages);
  if (!stages.empty() && kind.priority) fmt::print(", priority {}", *kind.priority);
  fmt::print("{}\n", kind.className.empty() ? "" : "\n");
  PrintParameters(ParametersOf(kind));
  PrintExample(kind.id);
}

/// Small letters: a person who asks for a kind needn't know how it is written.
std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

const NodeKind& KindOrError(const std::string& name) {
  if (const NodeKind* kind = FindKind(std::string_view(name))) return *kind;
  for (const NodeKind& kind : Catalogue())
    if (Lower(kind.type) == Lower(name) || Lower(kind.label) == Lower(name)) return kind;
  std::vector<std::string_view> names;
  for (const NodeKind& kind : Catalogue()) names.push_back(kind.type);
  for (const NodeKind& kind : Catalogue()) names.push_back(kind.label);
  for (const PictureTable& table : PictureTables()) names.push_back(table.name);
  names.push_back(kObstacle);
  throw CommandError(kExitUsage,
                     fmt::format("unknown node type '{}'{}", Shown(name), Suggestion(name, names)));
}

int PrintPictureTable(const PictureTable& table, bool asJson) {
  if (asJson) {
    const Json json = {{"type", table.name}, {"parameters", RowsJson(table.rows())}};
    fmt::print("{}\n", Json::array({json}).dump(2));
  } else {
    fmt::print("{}: {}\n\n", table.name, table.help);
    PrintRows(table.rows());
  }
  return kExitDone;
}

int PrintObstacle(bool asJson) {
  if (asJson) {
    const Json json = {{"id", kObstacleTag},
                       {"type", kObstacle},
                       {"label", EntryOf(kObstacleTag).label},
                       {"purpose", PurposeOf(kObstacleTag)},
                       {"example", ExampleOf(kObstacleTag)},
                       {"parameters", RowsJson(ObstacleParameters())}};
    fmt::print("{}\n", Json::array({json}).dump(2));
  } else {
    PrintHead(EntryOf(kObstacleTag));
    fmt::print("\n");
    PrintRows(ObstacleParameters());
    PrintExample(kObstacleTag);
  }
  return kExitDone;
}

}  // namespace

int RunNodes(const std::string& name, bool asJson) {
  for (const PictureTable& table : PictureTables())
    if (Lower(table.name) == Lower(name)) return PrintPictureTable(table, asJson);
  if (Lower(name) == kObstacle || name == std::to_string(kObstacleTag))
    return PrintObstacle(asJson);
  const NodeKind* one = name.empty() ? nullptr : &KindOrError(name);
  if (!asJson) {
    if (one) {
      PrintKind(*one);
    } else {
      PrintCatalogue();
    }
    return kExitDone;
  }
  Json kinds = Json::array();
  for (const NodeKind& kind : Catalogue())
    if (!one || one == &kind) kinds.push_back(KindJson(kind));
  fmt::print("{}\n", kinds.dump(2));
  return kExitDone;
}

int RunNodesSchema() {
  fmt::print("{}\n", SceneSchema());
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
