// What the sides of a simulation that feed a solver see of it.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A solver of list 5 with fields of its own that emitters and operators may link to.
class iFluidSolver : public iObject {
 public:
  using iObject::iObject;
  iFluidSolver() = default;
  /// The divergence source of the step, cell centres, 1/s: where a link asks for the solver's
  /// pressure channel.
  virtual ScalarField* GetDivergenceChannel() = 0;
  /// The staggered velocity, simulation units per second.
  virtual VelocityField* GetVelocityChannel() = 0;
  /// The box that it takes while a cache feeds its velocity.
  virtual void SetStoredLayout(const GridLayout& /*layout*/) {}

  /// Something makes gas in this frame: what it carries gets thinner there. Set while links
  /// resolve.
  bool mExpands = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
