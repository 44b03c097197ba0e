// Rows of what isn't a kind, with kinds under their links.
#pragma once
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A table with the kinds of the catalogue that each link takes by its groups; those that come
/// later are left out.
host::ParameterTable WithKinds(host::ParameterTable table);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
