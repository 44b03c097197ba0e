// What each kind of node is for, and a small scene that shows it at work.
#pragma once
#include <string>
#include <string_view>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a kind of node (or the obstacle tag) is for, in a clause; empty for an unknown id.
std::string_view PurposeOf(i32 id);

/// A whole scene of some ten lines in which a kind of node does its work; empty for an unknown id.
/// The text is a scene file that is valid as it stands.
std::string ExampleOf(i32 id);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
