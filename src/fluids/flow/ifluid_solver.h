// What the rest of a simulation sees of a solver.
#pragma once
#include "fluids/flow/flow.h"
#include "framework/cached_grids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class ParticleGroup;

/// A solver of list 5 with a flow of its own that emitters, operators and exports may link to.
class iFluidSolver : public iObject, public CachedGrids {
 public:
  using iObject::iObject;
  virtual Flow& GetFlow() = 0;
  const Flow& GetFlow() const { return const_cast<iFluidSolver*>(this)->GetFlow(); }
  /// Bits of sides of the container that stand in mid-air, inside of the user's box.
  virtual u8 FreeSides() const { return 0; }
  /// The groups whose liquid particles a liquid is; null for a gas.
  virtual const std::vector<ParticleGroup*>* LiquidGroups() const { return nullptr; }
  std::array<EGrid<double>*, 3> GetCachedGrids() override {
    return GetFlow().mVelocity.GetCachedGrids();
  }
  i32 CachedKind() const override { return kFaceX; }
  bool TakeCachedPlace(const GridLayout& /*layout*/, i32 /*kind*/) override { return false; }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
