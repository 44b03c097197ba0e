#include "scene/scene_schema.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/render_objects.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"
#include "scene/object_types.h"
#include "scene/parameter_text.h"
#include "scene/render_section.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ObstacleParameters;
using MELDO_SULVA::ParametersOf;
using Json = nlohmann::ordered_json;

namespace {

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

Json Text(const std::string& description) {
  return {{"type", "string"}, {"minLength", 1}, {"description", description}};
}

Json Described(Json schema, const std::string& description) {
  schema["description"] = description;
  return schema;
}

/// One of a few whole numbers; an `enum` would be offered by editors.
Json OneOf(const std::vector<i32>& numbers) {
  Json cases = Json::array();
  for (const i32 number : numbers) cases.push_back({{"minimum", number}, {"maximum", number}});
  return {{"type", "integer"}, {"anyOf", std::move(cases)}};
}

/// The words of a choice, which editors offer, and its numbers, which they only accept.
Json ChoiceSchema(const ParameterRow& row) {
  Json words = Json::array();
  std::vector<i32> numbers;
  for (const Choice& choice : row.choices) {
    words.push_back(choice.name);
    numbers.push_back(choice.value);
  }
  const Json number = row.orNumbers ? Json{{"type", "integer"}} : OneOf(numbers);
  return {{"anyOf", Json::array({{{"enum", std::move(words)}}, number})}};
}

/// `text` as a part of a regular expression.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (std::string_view("\\^$.|?*+()[]{}/").find(c) != std::string_view::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
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
    case ParameterType::Long:
      json = row.choices.empty() ? Json{{"type", "integer"}} : ChoiceSchema(row);
      break;
    case ParameterType::Bool: json = {{"enum", {true, false, 0, 1}}}; break;
    case ParameterType::String: json = row.script ? Ref("script") : Json{{"type", "string"}}; break;
    case ParameterType::Vector: json = NumbersOf(3); break;
    case ParameterType::Filename:
    case ParameterType::Link: json = {{"type", {"string", "null"}}}; break;
    case ParameterType::Links: json = Ref("links"); break;
    case ParameterType::Curve: json = Ref("curve"); break;
    case ParameterType::Gradient: json = Ref("gradient"); break;
    case ParameterType::Button: json = false; break;
  }
  // Of a choice the number has the limits, not the word.
  Json& limited = row.type == ParameterType::Vector ? json["items"]
                  : row.choices.empty()             ? json
                                                    : json["anyOf"].back();
  if (row.HasMin()) limited["minimum"] = row.min;
  if (row.HasMax()) limited["maximum"] = row.max;
  return json;
}

Json ParameterSchema(const ParameterRow& row, i32 kind = 0) {
  if (row.type == ParameterType::Button) return false;
  const bool canBeKeyed = CanBeKeyed(row.type) && !RestartsSimulation(kind, row);
  Json json = canBeKeyed ? OrKeys(PlainValue(row)) : PlainValue(row);
  json["description"] = row.unit.empty() || row.unit == "none"
                            ? std::string(row.help)
                            : fmt::format("{} [{}]", row.help, row.unit);
  Json standard = DefaultJson(row);
  if (const i32* whole = std::get_if<i32>(&row.creation))
    if (const Choice* choice = ChoiceOf(row, *whole)) standard = choice->name;
  if (!standard.is_null() && !standard.empty()) json["default"] = std::move(standard);
  return json;
}

/// The parameters of a table, by name; ids are left to `sulva check`.
Json TableSchema(const ParameterTable& table, i32 kind = 0) {
  Json properties = Json::object();
  for (const ParameterRow& row : table)
    properties[std::string(row.name)] = ParameterSchema(row, kind);
  Json schema = Object(std::move(properties));
  schema["patternProperties"] = {{"^[0-9]+$", true}};
  return schema;
}

void AddPlacement(Json& properties) {
  properties["position"] = Described(Ref("placement"), "Place in host units, y up.");
  properties["rotation"] = Described(Ref("placement"), "Degrees round x, y and z.");
  properties["scale"] = Described(Ref("placement"), "Factors along x, y and z.");
  properties["obstacle"] =
      Described(Ref("obstacle"), "Makes it an obstacle, with these parameters; {} for defaults.");
}

Json NodeSchema() {
  Json types = Json::array(), cases = Json::array();
  std::vector<i32> ids;
  std::string others;
  for (const NodeKind& kind : Catalogue()) {
    const std::string names = fmt::format("{}|{}", Escaped(kind.label), kind.id);
    types.push_back({{"const", kind.type}, {"description", kind.label}});
    ids.push_back(kind.id);
    others += (others.empty() ? "" : "|") + names;
    Json type =
        Json::array({{{"type", "string"}, {"pattern", fmt::format("^({}|{})$", kind.type, names)}},
                     OneOf({kind.id})});
    cases.push_back(
        {{"if", {{"properties", {{"type", {{"anyOf", std::move(type)}}}}}, {"required", {"type"}}}},
         {"then",
          {{"properties", {{"parameters", Ref("parameters_" + std::string(kind.type))}}}}}});
  }
  // Labels and ids are accepted too, but not offered.
  types.push_back({{"type", "string"}, {"pattern", "^(" + others + ")$"}});
  types.push_back(OneOf(ids));
  Json properties = {
      {"type", {{"anyOf", std::move(types)}, {"description", "Kind of the node."}}},
      {"name", Text("Name by which other nodes link this one; siblings have different names.")},
      {"parameters", {{"type", "object"}, {"description", "What differs from the defaults."}}},
      {"children", Described(ListOf(Ref("node")), "Nodes below this one.")},
      {"enabled", {{"enum", {true, false, 0, 1}}, {"description", "False leaves the node out."}}}};
  AddPlacement(properties);
  Json node = Object(std::move(properties), Json::array({"type"}));
  node["allOf"] = std::move(cases);
  return node;
}

/// What the keys of objects hold.
Json ObjectKey(std::string_view key, std::string_view type) {
  if (key == "file" || key == "frames" || key == "placements") return {{"type", "string"}};
  if (key == "segments" && type == "spline")
    return ListOf({{"type", "integer"}, {"minimum", 2}}, 1);
  if (key == "segments")
    return {{"type", "integer"}, {"minimum", kMinSegments}, {"maximum", kMaxSegments}};
  if (key == "closed" || key == "smooth" || key == "go_on_after_failure") return {{"type", "boolean"}};
  if (key == "points") {
    const Json points = ListOf(NumbersOf(3), 1);
    Json entry = {{"type", "array"},
                  {"prefixItems", {{{"type", "number"}}, points}},
                  {"minItems", 2},
                  {"maxItems", 2}};
    Json keyed = Object({{"keys", ListOf(std::move(entry), 1)},
                         {"interpolation", {{"enum", {"linear", "step", "smooth"}}}}},
                        Json::array({"keys"}));
    return {{"anyOf", {points, std::move(keyed)}}};
  }
  Json size = {{"type", "number"}, {"exclusiveMinimum", 0}};
  if (key != "size") return size;
  Json sizes = NumbersOf(type == "plane" ? 2 : 3);
  sizes["items"] = std::move(size);
  return sizes;
}

Json ObjectSchema() {
  Json kinds = Json::array();
  for (const ObjectType& type : ObjectTypes()) {
    Json properties = {
        {"type", {{"const", type.name}}},
        {"name", Text("Name by which others link it.")},
        {"children", Described(ListOf(Ref("object")), "Objects that move with it.")}};
    for (const std::string_view key : type.keys)
      properties[std::string(key)] = key == "parameters"
                                         ? Ref("parameters_" + std::string(type.name))
                                         : ObjectKey(key, type.name);
    AddPlacement(properties);
    kinds.push_back(Object(std::move(properties), Json::array({"type"})));
  }
  return {{"oneOf", std::move(kinds)}};
}

/// A camera or light of a picture: the name of an object, or an object that needs no type.
Json NameOrObject(const std::string& word) {
  Json properties = {{"type", {{"const", word}}},
                     {"name", Text("Name by which others link it.")},
                     {"parameters", Ref("parameters_" + word)}};
  AddPlacement(properties);
  return {{"anyOf", Json::array({{{"type", "string"}}, Object(std::move(properties))})}};
}

Json MaterialSchema() {
  Json kinds = Json::array();
  for (const MaterialType& type : MaterialTypes()) {
    Json properties = {{"type", {{"enum", {type.name, type.id, std::to_string(type.id)}}}},
                       {"name", Text("Name by which others link it.")},
                       {"parameters", TableSchema(type.rows())}};
    if (type.use == MaterialType::Use::Surface)
      properties["objects"] = ListOf({{"type", "string"}});
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
  const Json file = {{"type", "string"},
                     {"pattern", "#"},
                     {"description", "File in the output folder; #### is the frame number."}};
  const Json grids = {
      {"type", "object"},
      {"additionalProperties", {{"type", "string"}}},
      {"minProperties", 1},
      {"description", "Name in the file, and the channel, solver or volume that it shows."}};
  const Json group = Text("The particle group.");
  const Json polygons = Text("The mesher, mesh or object of polygons.");
  Json vdb = {{"format", {{"const", "vdb"}}}, {"file", file}, {"grids", grids}};
  Json png = {{"format", {{"const", "png"}}},
              {"file", file},
              {"grids", grids},
              {"particles", {{"anyOf", Json::array({group, ListOf(Text("A particle group."))})}}},
              {"kinds", Ref("kinds")},
              {"meshes", {{"anyOf", Json::array({polygons, ListOf(polygons)})}}},
              {"axis", {{"enum", {"x", "y", "z"}}, {"description", "Direction of view."}}}};
  Json points = {{"format", {{"const", "points"}}},
                 {"file", file},
                 {"particles", group},
                 {"kinds", Ref("kinds")}};
  Json mesh = {{"format", {{"const", "mesh"}}}, {"file", file}, {"mesh", polygons}};
  Json bodies = {{"format", {{"const", "bodies"}}},
                 {"file",
                  {{"type", "string"},
                   {"pattern", "^[^#]*\\.glb$"},
                   {"description", "File in the output folder, written at the end."}}}};
  return {{"oneOf", Json::array({Object(std::move(vdb), {"format", "file", "grids"}),
                                 Object(std::move(png), {"format", "file"}),
                                 Object(std::move(points), {"format", "file", "particles"}),
                                 Object(std::move(mesh), {"format", "file", "mesh"}),
                                 Object(std::move(bodies), {"format", "file"})})}};
}

Json Definitions() {
  Json kinds = {{"type", "array"},
                {"items", {{"enum", {"passive", "vorticity", "liquid", "diffuse"}}}},
                {"minItems", 1},
                {"description", "Which particles of a group; one entry for each."}};
  Json link = {{"anyOf", Json::array({{{"type", "string"}},
                                      Object({{"node", {{"type", "string"}}},
                                              {"flags", {{"type", "integer"}, {"minimum", 0}}},
                                              {"kinds", Ref("kinds")}},
                                             Json::array({"node"}))})}};
  Json colour = {{"type", "array"},
                 {"prefixItems", Json::array({{{"type", "number"}}, NumbersOf(3)})},
                 {"minItems", 2},
                 {"maxItems", 2}};
  const auto orNull = [](Json list) {
    list["type"] = {"array", "null"};
    return list;
  };
  Json script = {
      {"anyOf", Json::array({{{"type", "string"}},
                             ListOf({{"type", "string"}}),
                             Object({{"file", {{"type", "string"}}}}, Json::array({"file"}))})}};
  Json definitions = {{"keys", Keys(true)},
                      {"script", std::move(script)},
                      {"kinds", std::move(kinds)},
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
    definitions[name] = TableSchema(ParametersOf(kind), kind.id);
  }
  return definitions;
}

}  // namespace

std::string SceneSchema() {
  Json range = NumbersOf(2);
  range["items"] = {{"type", "integer"}};
  Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                 {"title", "Sulva scene"}};
  schema.update(Object(
      {{"$schema", Text("Where editors find this schema.")},
       {"sulva", {{"const", 1}, {"description", "Version of the format."}}},
       {"fps", {{"type", "number"}, {"exclusiveMinimum", 0}, {"description", "Frames a second."}}},
       {"range", Described(std::move(range), "First and last frame, both simulated.")},
       {"objects",
        Described(ListOf(Ref("object")), "Geometry, splines, lights and cameras that nodes use.")},
       {"nodes",
        Described(ListOf(Ref("node"), 1), "Servers; all other nodes are children of one.")},
       {"exports", Described(ListOf(Ref("export")), "Files for other tools, each frame.")},
       {"render", Described(Ref("render"), "Pictures that the render command draws.")}},
      Json::array({"sulva", "nodes"})));
  schema["$defs"] = Definitions();
  return schema.dump(1);
}

}  // namespace MELDO_GLOBAL::app
