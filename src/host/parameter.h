// The rows of a parameter table: the one place where a parameter of a node kind is described.
//
// Creation defaults, scene-file validation, `sulva nodes`, the node reference and the values that a
// core object reads when a parameter is missing all come from these rows.
#pragma once
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/value.h"

namespace MELDO_GLOBAL::host {

enum class ParameterType {
  Real,
  Long,
  Bool,
  String,
  Vector,
  Link,
  Filename,
  Links,
  Curve,
  Gradient,
  Button
};

/// The name of a type as `sulva nodes --json` prints it: "real", "long", ...
std::string_view NameOf(ParameterType type);

/// One allowed value of a long, with the word that scene files may use for it.
struct Choice {
  i32 value;
  std::string_view name;
};

/// A parameter counts only while another one of its node, a long or bool, has one of these values.
struct Condition {
  i32 id = 0;
  std::vector<i32> values;
};

struct ParameterRow {
  i32 id = 0;
  std::string_view name;  ///< readable, snake_case
  ParameterType type = ParameterType::Real;
  Value creation;                ///< default of a new node
  std::optional<Value> missing;  ///< default of a missing parameter, where it differs
  std::string_view unit;
  double min = -std::numeric_limits<double>::infinity();
  double max = std::numeric_limits<double>::infinity();
  std::vector<Choice> choices;
  std::vector<i32> accepts;            ///< node types that a link may point to; empty means any
  std::optional<Condition> condition;  ///< none: it always counts
  std::string_view help;

  /// The value that a core object reads when the node doesn't hold the parameter.
  const Value& WhenMissing() const { return missing ? *missing : creation; }

  ParameterRow& Missing(Value v) { return missing = std::move(v), *this; }
  ParameterRow& Range(double low, double high) { return min = low, max = high, *this; }
  ParameterRow& AtLeast(double low) { return min = low, *this; }
  ParameterRow& Choices(std::vector<Choice> c) { return choices = std::move(c), *this; }
  ParameterRow& OnlyWith(i32 other, std::vector<i32> values) {
    return condition = {other, std::move(values)}, *this;
  }
  ParameterRow& Accepts(std::vector<i32> types) { return accepts = std::move(types), *this; }
};

using ParameterTable = std::vector<ParameterRow>;

/// The row of `id`, or null.
const ParameterRow* FindRow(const ParameterTable& table, i32 id);

/// Makers of rows, so that a table reads as a table. Lengths with the unit "host" are in host
/// units, "cells" in cells.
ParameterRow RealRow(i32 id, std::string_view name, double value, std::string_view unit,
                     std::string_view help);
ParameterRow LongRow(i32 id, std::string_view name, i32 value, std::string_view unit,
                     std::string_view help);
ParameterRow BoolRow(i32 id, std::string_view name, bool value, std::string_view help);
ParameterRow StringRow(i32 id, std::string_view name, std::string value, std::string_view help);
ParameterRow VectorRow(i32 id, std::string_view name, const Vec3d& value, std::string_view unit,
                       std::string_view help);
ParameterRow LinkRow(i32 id, std::string_view name, std::string_view help,
                     std::vector<i32> accepts);
ParameterRow LinksRow(i32 id, std::string_view name, std::string_view help,
                      std::vector<i32> accepts);
/// A list of links that a new node does not hold at all: absent and empty mean different things.
ParameterRow AbsentLinksRow(i32 id, std::string_view name, std::string_view help,
                            std::vector<i32> accepts);
ParameterRow FilenameRow(i32 id, std::string_view name, std::string_view help);
ParameterRow CurveRow(i32 id, std::string_view name, std::string_view help);
ParameterRow GradientRow(i32 id, std::string_view name, std::string_view help);
ParameterRow ButtonRow(i32 id, std::string_view name, std::string_view help);

}  // namespace MELDO_GLOBAL::host
