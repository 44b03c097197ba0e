#include "scene/parameter_text.h"

#include <fmt/format.h>

namespace MELDO_GLOBAL::app {

using namespace host;
using Json = nlohmann::ordered_json;

namespace {

Json VectorJson(const Vec3d& v) { return Json::array({v.x, v.y, v.z}); }

}  // namespace

Json ValueJson(const ParameterRow& row, const Value& value) {
  if (const double* real = std::get_if<double>(&value)) return *real;
  if (const i32* whole = std::get_if<i32>(&value))
    return row.type == ParameterType::Bool ? Json(*whole != 0) : Json(*whole);
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const Vec3d* vector = std::get_if<Vec3d>(&value)) return VectorJson(*vector);
  if (const Filename* file = std::get_if<Filename>(&value)) return file->path;
  if (std::holds_alternative<InExcludeData>(value)) return Json::array();
  if (const auto* curve = std::get_if<SplineData>(&value)) {
    Json knots = Json::array();
    for (const auto& knot : curve->knots) knots.push_back(Json::array({knot.x, knot.y}));
    return knots;
  }
  if (const auto* gradient = std::get_if<Gradient>(&value)) {
    Json knots = Json::array();
    for (const auto& knot : gradient->knots)
      knots.push_back(Json::array({knot.position, VectorJson(knot.colour)}));
    return knots;
  }
  return nullptr;
}

Json DefaultJson(const ParameterRow& row) { return ValueJson(row, row.creation); }

const Choice* ChoiceOf(const ParameterRow& row, i32 value) {
  for (const Choice& choice : row.choices)
    if (choice.value == value) return &choice;
  return nullptr;
}

std::string WordFor(const ParameterRow& row, i32 value) {
  if (row.type == ParameterType::Bool) return value ? "true" : "false";
  const Choice* choice = ChoiceOf(row, value);
  return choice ? std::string(choice->name) : std::to_string(value);
}

std::string ConditionText(const ParameterTable& table, const ParameterRow& row) {
  if (!row.condition) return {};
  const ParameterRow* mode = FindRow(table, row.condition->id);
  if (row.condition->values.empty()) return fmt::format("without {}", mode->name);
  std::string words;
  for (const i32 value : row.condition->values)
    words.append(words.empty() ? "" : " or ").append(WordFor(*mode, value));
  return fmt::format("with {} {}", mode->name, words);
}

std::string LimitsText(const ParameterRow& row) {
  if (row.HasMin() && row.HasMax()) return fmt::format("{} to {}", row.min, row.max);
  if (row.HasMin()) return fmt::format("at least {}", row.min);
  if (row.HasMax()) return fmt::format("at most {}", row.max);
  return {};
}

}  // namespace MELDO_GLOBAL::app
