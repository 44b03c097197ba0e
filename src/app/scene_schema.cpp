#include "app/scene_schema.h"

#include <fmt/format.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "app/render_section.h"
#include "app/scene_objects.h"
#include "host/render_objects.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ObstacleParameters;
using MELDO_SULVA::ParametersOf;
using Json = nlohmann::ordered_json;

namespace {

constexpr double kOpen = std::numeric_limits<double>::infinity();

Json Ref(const std::string& name) { return {{"$ref", "#/$defs/" + name}}; }

Json ListOf(Json items, std::size_t atLeast = 0) {
  Json list = {{"type", "array"}, {"items", std::move(items)}};
  if (atLeast > 0) list["minItems"] = atLeast;
  return list;
}

Json NumbersOf(std::size_t count) {
  return {
      {"type", "array"}, {"items", {{"type", "number"}}}, {"minItems", count}, {"maxItems", count}};
}

Json Object(Json properties, Json required = Json::array()) {
  return {{"type", "object"},
          {"properties", std::move(properties)},
          {"required", std::move(required)},
          {"additionalProperties", false}};
}

/// `{"keys": [[frame, value], ...], "interpolation": word}`.
Json Keys(const Json& value) {
  Json key = {{"type", "array"},
              {"prefixItems", Json::array({{{"type", "number"}}, value})},
              {"minItems", 2},
              {"maxItems", 2}};
  return Object({{"keys", ListOf(std::move(key), 1)},
                 {"interpolation", {{"enum", {"linear", "step", "smooth"}}}}},
                Json::array({"keys"}));
}

/// `value`, or keys. What the keys of a parameter hold is left to `sulva check`.
Json OrKeys(const Json& value) { return {{"anyOf", Json::array({value, Ref("keys")})}}; }

Json PlainValue(const ParameterRow& row) {
  Json json;
  switch (row.type) {
    case ParameterType::Real: json = {{"type", "number"}}; break;
    case ParameterType::Long: {
      Json words = Json::array();
      for (const Choice& choice : row.choices) {
        words.push_back(choice.name);
        words.push_back(choice.value);
      }
      json = words.empty() ? Json{{"type", "integer"}} : Json{{"enum", std::move(words)}};
      break;
    }
    case ParameterType::Bool: json = {{"enum", {true, false, 0, 1}}}; break;
    case ParameterType::String: json = {{"type", "string"}}; break;
    case ParameterType::Vector: json = NumbersOf(3); break;
    case ParameterType::Filename:
    case ParameterType::Link: json = {{"type", {"string", "null"}}}; break;
    case ParameterType::Links: json = Ref("links"); break;
    case ParameterType::Curve: json = Ref("curve"); break;
    case ParameterType::Gradient: json = Ref("gradient"); break;
    case ParameterType::Button: json = false; break;
  }
  Json& limited = row.type == ParameterType::Vector ? json["items"] : json;
  if (row.min != -kOpen) limited["minimum"] = row.min;
  if (row.max != kOpen) limited["maximum"] = row.max;
  return json;
}

Json ParameterSchema(const ParameterRow& row) {
  if (row.type == ParameterType::Button) return false;
  const bool canBeKeyed = row.type == ParameterType::Real || row.type == ParameterType::Long ||
                          row.type == ParameterType::Bool || row.type == ParameterType::Vector;
  Json json = canBeKeyed ? OrKeys(PlainValue(row)) : PlainValue(row);
  json["description"] =
      row.unit.empty() ? std::string(row.help) : fmt::format("{} [{}]", row.help, row.unit);
  return json;
}

/// The parameters of a table, by name; ids are left to `sulva check`.
Json TableSchema(const ParameterTable& table) {
  Json properties = Json::object();
  for (const ParameterRow& row : table) properties[std::string(row.name)] = ParameterSchema(row);
  Json schema = Object(std::move(properties));
  schema["patternProperties"] = {{"^[0-9]+$", true}};
  return schema;
}

void AddPlacement(Json& properties) {
  for (const char* key : {"position", "rotation", "scale"}) properties[key] = Ref("placement");
  properties["obstacle"] = Ref("obstacle");
}

Json NodeSchema() {
  Json types = Json::array(), cases = Json::array();
  for (const NodeKind& kind : Catalogue()) {
    Json words = {kind.type, kind.label, kind.id, std::to_string(kind.id)};
    types.insert(types.end(), words.begin(), words.end());
    cases.push_back(
        {{"if", {{"properties", {{"type", {{"enum", std::move(words)}}}}}}},
         {"then",
          {{"properties", {{"parameters", Ref("parameters_" + std::string(kind.type))}}}}}});
  }
  Json properties = {{"type", {{"enum", std::move(types)}}},
                     {"name", {{"type", "string"}, {"minLength", 1}}},
                     {"parameters", {{"type", "object"}}},
                     {"children", ListOf(Ref("node"))},
                     {"enabled", {{"enum", {true, false, 0, 1}}}}};
  AddPlacement(properties);
  Json node = Object(std::move(properties), Json::array({"type"}));
  node["allOf"] = std::move(cases);
  return node;
}

/// What the keys of objects hold.
Json ObjectKey(std::string_view key, bool isFlat) {
  if (key == "file" || key == "frames") return {{"type", "string"}};
  if (key == "segments")
    return {{"type", "integer"}, {"minimum", kMinSegments}, {"maximum", kMaxSegments}};
  if (key == "closed") return {{"type", "boolean"}};
  if (key == "points") return ListOf(NumbersOf(3), 1);
  Json size = {{"type", "number"}, {"exclusiveMinimum", 0}};
  if (key != "size") return size;
  Json sizes = NumbersOf(isFlat ? 2 : 3);
  sizes["items"] = std::move(size);
  return sizes;
}

Json ObjectSchema() {
  Json kinds = Json::array();
  for (const ObjectType& type : ObjectTypes()) {
    Json properties = {{"type", {{"const", type.name}}},
                       {"name", {{"type", "string"}, {"minLength", 1}}}};
    for (const std::string_view key : type.keys)
      properties[std::string(key)] = key == "parameters"
                                         ? Ref("parameters_" + std::string(type.name))
                                         : ObjectKey(key, type.name == "plane");
    AddPlacement(properties);
    kinds.push_back(Object(std::move(properties), Json::array({"type"})));
  }
  return {{"oneOf", std::move(kinds)}};
}

/// A camera or light of a picture: the name of an object, or an object that needs no type.
Json NameOrObject(const std::string& word) {
  Json properties = {{"type", {{"const", word}}},
                     {"name", {{"type", "string"}, {"minLength", 1}}},
                     {"parameters", Ref("parameters_" + word)}};
  AddPlacement(properties);
  return {{"anyOf", Json::array({{{"type", "string"}}, Object(std::move(properties))})}};
}

Json MaterialSchema() {
  Json kinds = Json::array();
  for (const MaterialType& type : MaterialTypes()) {
    Json properties = {{"type", {{"enum", {type.name, type.id, std::to_string(type.id)}}}},
                       {"name", {{"type", "string"}, {"minLength", 1}}},
                       {"parameters", TableSchema(type.rows())}};
    if (type.isSurface) properties["objects"] = ListOf({{"type", "string"}});
    kinds.push_back(Object(std::move(properties), Json::array({"type"})));
  }
  return {{"oneOf", std::move(kinds)}};
}

Json RenderSchema() {
  Json size = NumbersOf(2);
  size["items"] = {{"type", "integer"}, {"minimum", 1}, {"maximum", kLargestPicture}};
  Json properties = {{"size", std::move(size)},
                     {"files", ListOf({{"type", "string"}, {"pattern", "#.*\\.(png|exr)$"}}, 1)},
                     {"camera", NameOrObject("camera")},
                     {"lights", ListOf(NameOrObject("light"))},
                     {"materials", ListOf(Ref("material"))}};
  for (const ParameterRow& row : RenderParameters())
    properties[std::string(row.name)] = ParameterSchema(row);
  return Object(std::move(properties));
}

Json ExportSchema() {
  const Json common = {
      {"file", {{"type", "string"}, {"pattern", "#"}}},
      {"grids",
       {{"type", "object"}, {"additionalProperties", {{"type", "string"}}}, {"minProperties", 1}}}};
  const Json required = {"format", "file", "grids"};
  Json vdb = common, png = common;
  vdb["format"] = {{"const", "vdb"}};
  png["format"] = {{"const", "png"}};
  png["axis"] = {{"enum", {"x", "y", "z"}}};
  return {
      {"oneOf", Json::array({Object(std::move(vdb), required), Object(std::move(png), required)})}};
}

Json Definitions() {
  Json link = {{"anyOf", Json::array({{{"type", "string"}},
                                      Object({{"node", {{"type", "string"}}},
                                              {"flags", {{"type", "integer"}, {"minimum", 0}}}},
                                             Json::array({"node"}))})}};
  Json colour = {{"type", "array"},
                 {"prefixItems", Json::array({{{"type", "number"}}, NumbersOf(3)})},
                 {"minItems", 2},
                 {"maxItems", 2}};
  const auto orNull = [](Json list) {
    list["type"] = {"array", "null"};
    return list;
  };
  Json definitions = {{"keys", Keys(true)},
                      {"placement", {{"anyOf", Json::array({NumbersOf(3), Keys(NumbersOf(3))})}}},
                      {"links", orNull(ListOf(std::move(link)))},
                      {"curve", orNull(ListOf(NumbersOf(2), 1))},
                      {"gradient", orNull(ListOf(std::move(colour), 1))},
                      {"obstacle", TableSchema(ObstacleParameters())},
                      {"object", ObjectSchema()},
                      {"node", NodeSchema()},
                      {"export", ExportSchema()},
                      {"render", RenderSchema()},
                      {"material", MaterialSchema()}};
  for (const ObjectType& type : ObjectTypes())
    if (type.rows) definitions["parameters_" + std::string(type.name)] = TableSchema(type.rows());
  for (const NodeKind& kind : Catalogue()) {
    const std::string name = "parameters_" + std::string(kind.type);
    definitions[name] = TableSchema(ParametersOf(kind));
  }
  return definitions;
}

}  // namespace

std::string SceneSchema() {
  Json range = NumbersOf(2);
  range["items"] = {{"type", "integer"}};
  Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                 {"title", "Sulva scene"}};
  schema.update(Object({{"sulva", {{"const", 1}}},
                        {"fps", {{"type", "number"}, {"exclusiveMinimum", 0}}},
                        {"range", std::move(range)},
                        {"objects", ListOf(Ref("object"))},
                        {"nodes", ListOf(Ref("node"), 1)},
                        {"exports", ListOf(Ref("export"))},
                        {"render", Ref("render")}},
                       Json::array({"sulva", "nodes"})));
  schema["$defs"] = Definitions();
  return schema.dump(1);
}

}  // namespace MELDO_GLOBAL::app
