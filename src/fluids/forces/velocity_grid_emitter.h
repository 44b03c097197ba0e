// Forces into the staggered velocity.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sums forces at the cell centres of a flow and carries them to its faces.
class VelocityGridEmitter {
 public:
  /// Prepares the enabled forces for a step on `flow`; false when there is nothing to do.
  bool Prepare(Flow& flow);
  /// Adds what the forces give; only after `Prepare`, and without effect when that was false.
  void Run(Flow& flow);
  /// What `Run` gave to the cells, by axis; null without a run. Until `Finish`, as long as nothing
  /// else takes the flow's work grids.
  const std::array<Grid<double>*, 3>& CellChanges() const { return mScratch; }
  /// Whether forces act beyond the flow's cells; between `Prepare` and `Finish`.
  bool ActsAnywhere() const;
  /// What those give at places in simulation units, for one of the workers.
  void FindChanges(std::span<const Vec3d> places, const Vec3d& simToWorld, u32 worker,
                   std::span<Vec3d> changes) const;
  /// Lets go of the forces.
  void Finish();

  std::vector<Force*> mForces;  ///< in the order in which they add up

 private:
  void ZeroBorder(i32 z);
  void SumForces(const Flow& flow, i32 z, u32 worker, u8* isOpen);
  void CarryToFaces(Flow& flow, i32 z);

  bool mReady = false;
  /// The cell force of this step by axis, in the flow's work grids.
  std::array<Grid<double>*, 3> mScratch{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
