// Links that are given and lead to what takes no part.
#pragma once

namespace MELDO_GLOBAL::MELDO_SULVA {

class iBase;

/// Puts an object to sleep that has a row which says so (`ParameterRow::RestsWhereDead`) and whose
/// link leads to what is switched off or not in its scene; true where it did.
bool RestsByDeadLink(iBase& object);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
