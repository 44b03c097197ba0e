// Rows of what isn't a kind, with kinds under their links.
#pragma once
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The rows of something that is no kind of the catalogue, by an id of its own, with the kinds that
/// each link takes by its groups; those that `AddKind` brings join them.
const host::ParameterTable& TableWithKinds(i32 id, const host::ParameterTable& (*rows)());

}  // namespace MELDO_GLOBAL::MELDO_SULVA
