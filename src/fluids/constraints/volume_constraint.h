// The inside of a shape or of a liquid.
#pragma once
#include "fluids/flow/ifluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures 1 inside of a volume, of any member of a group of volumes, or below the surface of a
/// liquid, and 0 outside; on demand how deep inside of the volume, as a share of its deepest place.
class VolumeConstraint : public MeasuredConstraint<VolumeConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 21;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kVolumeRow = 1000;
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Fetch() override;

 private:
  bool Holds(const VolumeBase& member, const Vec3d& position) const;

  iVolume* mVolume = nullptr;
  iFluidSolver* mSolver = nullptr;
  bool mUsesDepth = false;
  double mOffsetCells = 0;

  // For one holder.
  std::vector<VolumeBase*> mMembers;
  const EGrid<double>* mSurface = nullptr;
  double mOffset = 0;  ///< simulation units
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
