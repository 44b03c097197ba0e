// Forces into the staggered velocity.
#pragma once
#include <array>
#include <vector>

#include "fluids/forces/force.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class FluidSolver;

/// Sums the grid forces at cell centres and carries them to the faces.
class VelocityGridEmitter : public iObject {
 public:
  VelocityGridEmitter() { mPassCount = 2; }
  VelocityGridEmitter(const VelocityGridEmitter& other);
  bool ResolveLinks() override;
  void ClearLinks() override;
  void CheckDirty() override;
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  FluidSolver* mSolver = nullptr;

 private:
  void ZeroBorder(const CellBox& box);
  void SumForces(const EvaluationThreadData& data);
  void CarryToFaces(const EvaluationThreadData& data);

  std::vector<Force*> mForces;
  /// The cell force of this step by axis, in the solver's work grids.
  std::array<Grid<double>*, 3> mScratch{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
