// Values of parameters as JSON, in the shape that scene files give them.
#pragma once
#include <nlohmann/json.hpp>
#include <string>

#include "host/parameter.h"

namespace MELDO_GLOBAL::app {

/// A value of the row's type: numbers, texts, lists of numbers, lists of knots. A link is null and
/// a list of links empty: their names are a document's matter.
nlohmann::ordered_json ValueJson(const host::ParameterRow& row, const host::Value& value);

/// The default of a new node.
nlohmann::ordered_json DefaultJson(const host::ParameterRow& row);

/// The word of a choice, or null where the row has none of this value.
const host::Choice* ChoiceOf(const host::ParameterRow& row, i32 value);

/// The word for a value of a long or bool, as scene files give it.
std::string WordFor(const host::ParameterRow& row, i32 value);

/// "with time_mode fixed_step": when a parameter of `table` counts; empty for always.
std::string ConditionText(const host::ParameterTable& table, const host::ParameterRow& row);

/// "0 to 1", "at least 0", "at most 5", or an empty text.
std::string LimitsText(const host::ParameterRow& row);

}  // namespace MELDO_GLOBAL::app
