#include "host/parameter.h"

namespace MELDO_GLOBAL::host {

std::string_view NameOf(ParameterType type) {
  constexpr std::string_view names[] = {"real",     "long",  "bool",  "string",   "vector", "link",
                                        "filename", "links", "curve", "gradient", "button"};
  return names[static_cast<int>(type)];
}

const ParameterRow* FindRow(const ParameterTable& table, i32 id) {
  for (const ParameterRow& row : table)
    if (row.id == id) return &row;
  return nullptr;
}

namespace {
ParameterRow Row(i32 id, std::string_view name, ParameterType type, Value value,
                 std::string_view unit, std::string_view help) {
  ParameterRow row;
  row.id = id;
  row.name = name;
  row.type = type;
  row.creation = std::move(value);
  row.unit = unit;
  row.help = help;
  return row;
}
}  // namespace

ParameterRow RealRow(i32 id, std::string_view name, double value, std::string_view unit,
                     std::string_view help) {
  return Row(id, name, ParameterType::Real, value, unit, help);
}
ParameterRow LongRow(i32 id, std::string_view name, i32 value, std::string_view unit,
                     std::string_view help) {
  return Row(id, name, ParameterType::Long, value, unit, help);
}
ParameterRow BoolRow(i32 id, std::string_view name, bool value, std::string_view help) {
  return Row(id, name, ParameterType::Bool, i32{value}, "", help);
}
ParameterRow StringRow(i32 id, std::string_view name, std::string value, std::string_view help) {
  return Row(id, name, ParameterType::String, std::move(value), "", help);
}
ParameterRow VectorRow(i32 id, std::string_view name, const Vec3d& value, std::string_view unit,
                       std::string_view help) {
  return Row(id, name, ParameterType::Vector, value, unit, help);
}
ParameterRow LinkRow(i32 id, std::string_view name, std::string_view help,
                     std::vector<i32> accepts) {
  return Row(id, name, ParameterType::Link, Link{}, "", help).Accepts(std::move(accepts));
}
ParameterRow LinksRow(i32 id, std::string_view name, std::string_view help,
                      std::vector<i32> accepts) {
  return Row(id, name, ParameterType::Links, InExcludeData{}, "", help).Accepts(std::move(accepts));
}
ParameterRow AbsentLinksRow(i32 id, std::string_view name, std::string_view help,
                            std::vector<i32> accepts) {
  return Row(id, name, ParameterType::Links, std::monostate{}, "", help)
      .Accepts(std::move(accepts));
}
ParameterRow FilenameRow(i32 id, std::string_view name, std::string_view help) {
  return Row(id, name, ParameterType::Filename, Filename{}, "", help);
}
ParameterRow CurveRow(i32 id, std::string_view name, std::string_view help) {
  return Row(id, name, ParameterType::Curve, std::monostate{}, "", help);
}
ParameterRow GradientRow(i32 id, std::string_view name, std::string_view help) {
  return Row(id, name, ParameterType::Gradient, std::monostate{}, "", help);
}
ParameterRow ButtonRow(i32 id, std::string_view name, std::string_view help) {
  return Row(id, name, ParameterType::Button, std::monostate{}, "", help);
}

}  // namespace MELDO_GLOBAL::host
