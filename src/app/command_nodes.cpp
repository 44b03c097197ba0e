#include "app/command_nodes.h"

#include <fmt/format.h>

#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>

#include "app/diagnostics.h"
#include "app/exit_codes.h"
#include "app/parameter_text.h"
#include "app/render_section.h"
#include "app/scene_schema.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ParametersOf;
using Json = nlohmann::ordered_json;

namespace {

constexpr double kOpen = std::numeric_limits<double>::infinity();

// ---- JSON -------------------------------------------------------------------------------------

Json LimitJson(const ParameterRow& row, double limit) {
  return row.type == ParameterType::Long ? Json(static_cast<i64>(limit)) : Json(limit);
}

Json ParameterJson(const ParameterRow& row) {
  Json json = {{"id", row.id},
               {"name", row.name},
               {"type", NameOf(row.type)},
               {"default", DefaultJson(row)},
               {"unit", row.unit},
               {"help", row.help}};
  if (row.min != -kOpen) json["min"] = LimitJson(row, row.min);
  if (row.max != kOpen) json["max"] = LimitJson(row, row.max);
  for (const Choice& choice : row.choices)
    json["choices"].push_back({{"value", choice.value}, {"name", choice.name}});
  return json;
}

Json RowsJson(const ParameterTable& table) {
  Json rows = Json::array();
  for (const ParameterRow& row : table) rows.push_back(ParameterJson(row));
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
               {"group", kind.groups}};
  json["parameters"] = RowsJson(ParametersOf(kind));
  return json;
}

// ---- text -------------------------------------------------------------------------------------

/// The menu groups in the order in which they are shown; others follow as they come.
std::vector<std::string_view> Groups() {
  std::vector<std::string_view> groups = {"Support",
                                          "General",
                                          "Bodies",
                                          "Bodies/Forces",
                                          "Bodies/Operators",
                                          "Dynamics",
                                          "Dynamics/Operators",
                                          "Grids",
                                          "Grids/Forces",
                                          "Grids/Emitters",
                                          "Grids/Operators",
                                          "Particles",
                                          "Particles/Properties",
                                          "Particles/Forces",
                                          "Particles/Emitters",
                                          "Particles/Operators",
                                          "Constraints"};
  for (const NodeKind& kind : Catalogue())
    for (const std::string_view group : kind.groups)
      if (std::find(groups.begin(), groups.end(), group) == groups.end()) groups.push_back(group);
  return groups;
}

void PrintKindLine(const NodeKind& kind) {
  fmt::print("  {:<28} {:<40} {}\n", kind.type, kind.label, kind.id);
}

void PrintCatalogue() {
  const char* gap = "";
  const auto printGroup = [&](std::string_view title, auto&& belongs) {
    bool isOpen = false;
    for (const NodeKind& kind : Catalogue()) {
      if (!belongs(kind)) continue;
      if (!isOpen) fmt::print("{}{}\n", gap, title);
      isOpen = true;
      gap = "\n";
      PrintKindLine(kind);
    }
  };
  for (const std::string_view group : Groups())
    printGroup(group, [&](const NodeKind& kind) {
      return std::find(kind.groups.begin(), kind.groups.end(), group) != kind.groups.end();
    });
  printGroup("Others", [](const NodeKind& kind) { return kind.groups.empty(); });
  fmt::print("\nPictures\n");
  for (const PictureTable& table : PictureTables())
    fmt::print("  {:<28} {}\n", table.name, table.help);
}

std::string DefaultText(const ParameterRow& row) {
  const Json json = DefaultJson(row);
  if (const i32* whole = std::get_if<i32>(&row.creation))
    if (const Choice* choice = ChoiceOf(row, *whole)) return std::string(choice->name);
  if (const double* real = std::get_if<double>(&row.creation)) return fmt::format("{}", *real);
  return json.is_null() ? "-" : json.is_array() && json.empty() ? "[]" : json.dump();
}

std::string RangeText(const ParameterRow& row) {
  std::string text;
  for (const Choice& choice : row.choices)
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", choice.value, choice.name);
  if (!text.empty()) return text;
  return LimitsText(row);
}

void PrintRows(const ParameterTable& table) {
  for (const ParameterRow& row : table) {
    fmt::print("  {:<6} {:<30} {:<9} {:<14} {:<10} {}\n", row.id, row.name, NameOf(row.type),
               DefaultText(row), row.unit, row.help);
    const std::string range = RangeText(row);
    if (!range.empty()) fmt::print("  {:<6} {:<30} ({})\n", "", "", range);
  }
}

void PrintKind(const NodeKind& kind) {
  fmt::print("{}  \"{}\"  {}\n", kind.type, kind.label, kind.id);
  if (!kind.className.empty()) fmt::print("class {}\n", kind.className);
  std::string stages;
  for (const i32 stage : kind.stages)
    stages += fmt::format("{}{}", stages.empty() ? "" : ", ", stage);
  if (!stages.empty()) fmt::print("runs in stage {}", stages);
  if (!stages.empty() && kind.priority) fmt::print(", priority {}", *kind.priority);
  fmt::print("{}\n", stages.empty() ? "" : "\n");
  PrintRows(ParametersOf(kind));
}

const NodeKind& KindOrError(const std::string& name) {
  if (const NodeKind* kind = FindKind(std::string_view(name))) return *kind;
  std::vector<std::string_view> names;
  for (const NodeKind& kind : Catalogue()) names.push_back(kind.type);
  for (const NodeKind& kind : Catalogue()) names.push_back(kind.label);
  for (const PictureTable& table : PictureTables()) names.push_back(table.name);
  throw CommandError(kExitUsage,
                     fmt::format("unknown node type '{}'{}", Shown(name), Suggestion(name, names)));
}

}  // namespace

int RunNodes(const std::string& name, bool asJson) {
  for (const PictureTable& table : PictureTables()) {
    if (table.name != name) continue;
    if (asJson) {
      const Json json = {{"type", table.name}, {"parameters", RowsJson(table.rows())}};
      fmt::print("{}\n", Json::array({json}).dump(2));
    } else {
      fmt::print("{}: {}\n\n", table.name, table.help);
      PrintRows(table.rows());
    }
    return kExitDone;
  }
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
