// What every object does with the constraints of its class, which it need not know.
#pragma once
#include <span>

#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class ConstraintList;
class Scene;
class StateArchive;

/// `ConstraintList::Connect`.
void ConnectConstraints(ConstraintList& list, std::span<const host::LinkTarget> targets);
/// `ConstraintList::Persist`.
void PersistConstraints(ConstraintList& list, StateArchive& archive, const Scene& scene);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
