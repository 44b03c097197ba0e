// From a node's values to the members that the rows of its table name.
#include <algorithm>

#include "host/document.h"
#include "host/node.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::host {

double RealOf(const Value& value, double fallback) {
  if (const double* v = std::get_if<double>(&value)) return *v;
  if (const i32* v = std::get_if<i32>(&value)) return *v;
  return fallback;
}

namespace {
i32 Truncate(double v) {
  constexpr double limit = 2147483647.0;
  if (!(v > -limit)) return v < 0 ? -2147483647 : 0;
  return static_cast<i32>(v < limit ? v : limit);
}

/// Whether a stored value is of the kind that a row asks for; longs and reals stand for each other.
bool Fits(const Value& value, ParameterType type) {
  switch (type) {
    case ParameterType::Real:
    case ParameterType::Long:
    case ParameterType::Bool:
      return std::holds_alternative<double>(value) || std::holds_alternative<i32>(value);
    case ParameterType::String: return std::holds_alternative<std::string>(value);
    case ParameterType::Vector: return std::holds_alternative<Vec3d>(value);
    case ParameterType::Filename: return std::holds_alternative<Filename>(value);
    default: return true;
  }
}

/// Keyed values and overrides pass no validation: they are limited here. Not a number passes, so
/// that the run can tell of it.
Value Limited(const Value& value, const ParameterRow& row) {
  if (const double* real = std::get_if<double>(&value))
    return std::isnan(*real) ? *real : std::clamp(*real, row.min, row.max);
  if (const i32* whole = std::get_if<i32>(&value)) {
    const double limited = std::clamp(static_cast<double>(*whole), row.min, row.max);
    return limited == *whole ? value : Value(limited);
  }
  return value;
}
}  // namespace

i32 LongOf(const Value& value, i32 fallback) {
  if (const i32* v = std::get_if<i32>(&value)) return *v;
  if (const double* v = std::get_if<double>(&value)) return Truncate(*v);
  return fallback;
}

void FillMembers(const ParameterTable& table, const BaseNode* node, ParameterHolder& holder) {
  if (!node) return;
  for (const ParameterRow& row : table) {
    if (!row.fill) continue;
    const Value* stored = node->Get(row.id);
    if (!stored || !Fits(*stored, row.type)) stored = &row.WhenMissing();
    // Curves, gradients and lists are handed on by address.
    const bool isNumber =
        std::holds_alternative<double>(*stored) || std::holds_alternative<i32>(*stored);
    if (isNumber) {
      row.fill(holder, Limited(*stored, row));
    } else {
      row.fill(holder, *stored);
    }
  }
}

std::vector<LinkTarget> TargetsOf(const ParameterRow& row, const BaseNode& node,
                                  const LinkSource& source) {
  const Value* value = node.Get(row.id);
  if (!value) return row.allWhenAbsent ? source.All(row) : std::vector<LinkTarget>{};
  std::vector<LinkTarget> targets;
  const auto add = [&](NodeId id, u32 flags) {
    BaseNode* target = node.GetDocument().Find(id);
    if (target) targets.push_back({target, source.Find(*target, row), flags});
  };
  if (const Link* link = std::get_if<Link>(value)) add(link->node, 0);
  if (const auto* list = std::get_if<InExcludeData>(value))
    for (const InExcludeData::Entry& entry : list->entries) add(entry.node, entry.flags);
  return targets;
}

void ConnectLinks(const ParameterTable& table, const BaseNode& node, ParameterHolder& holder,
                  const LinkSource& source) {
  for (const ParameterRow& row : table)
    if (row.connect) row.connect(holder, TargetsOf(row, node, source));
}

void ClearLinks(const ParameterTable& table, ParameterHolder& holder) {
  for (const ParameterRow& row : table)
    if (row.connect) row.connect(holder, {});
}

}  // namespace MELDO_GLOBAL::host
