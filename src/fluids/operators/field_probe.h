// Any field that a link can name, at points.
#pragma once
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "fluids/flow/ifluid_solver.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a scalar or vector channel, a volume or a solver has at a point: the value, the signed
/// distance, the velocity.
class FieldProbe {
 public:
  void Connect(std::span<const host::LinkTarget> targets);
  bool IsEmpty() const { return !mScalar && !mField && !mVolume && !mSolver; }
  /// Takes the grids as they are now; false where there are none.
  bool Open();
  /// Trilinear between the samples, of a velocity of each component's own; a number stands in all
  /// three. Nothing where `p` (simulation units) lies outside of the grids; of several volumes the
  /// least distance of those whose grids hold it.
  std::optional<Vec3d> At(const Vec3d& p) const;

 private:
  std::optional<Vec3d> DistanceAt(const Vec3d& p) const;

  ScalarField* mScalar = nullptr;
  VectorField* mField = nullptr;
  iVolume* mVolume = nullptr;
  iFluidSolver* mSolver = nullptr;

  // Since `Open`.
  std::array<const EGrid<double>*, 3> mGrids{};  ///< of a number thrice the same
  std::vector<VolumeBase*> mMembers;             ///< of a volume, those with grids
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
