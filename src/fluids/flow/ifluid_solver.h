// What the rest of a simulation sees of a solver.
#pragma once
#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A solver of list 5 with a flow of its own that emitters, operators and exports may link to.
class iFluidSolver : public iObject {
 public:
  using iObject::iObject;
  virtual Flow& GetFlow() = 0;
  const Flow& GetFlow() const { return const_cast<iFluidSolver*>(this)->GetFlow(); }
  /// The box that it takes while a cache feeds its velocity.
  virtual void SetStoredLayout(const GridLayout& /*layout*/) {}
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
