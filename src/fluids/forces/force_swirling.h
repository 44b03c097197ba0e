// Vorticity confinement.
#pragma once
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Gives back the small swirls that the grid damps: pushes at right angles to the vorticity and to
/// the gradient of its magnitude (Steinhoff and Underhill 1994; Fedkiw, Stam, Jensen 2001,
/// section 3.2).
class Force_Swirling : public ForceOf<Force_Swirling> {
 public:
  using ForceOf::ForceOf;
  Force_Swirling() = default;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kStrengthRow = 1000;
  bool ReadParameters() override;
  void Release(bool full) override;

  double Scale(double weight) const { return mForceScale * weight * mWeight; }
  template <class Place>
  void Push(Place& place, double s) const;
  /// The vorticity is known inside.
  bool ActsOn(const ForceSample& sample) const;

  /// The length of the vorticity (1/s) at cell centres; null outside of a step.
  const EGrid<double>* GetMagnitude() const {
    return Has(FLAG_ACTIVE) ? mMagnitude.get() : nullptr;
  }

 protected:
  bool PrepareForce() override;

 private:
  bool Allocate(const GridLayout& layout);
  /// Fills a row of the vorticity from the velocity.
  void CurlRow(i32 y, i32 z);
  /// Vorticity of the inner cells, less its mean, and its length.
  void ComputeVorticity();
  /// The push at a cell by a weight of `s`.
  Vec3d PushAt(i32 x, i32 y, i32 z, double s) const;
  VecInt3D CellOf(const ForceSample& sample) const;

  double mStrength = 0;
  bool mSubtractMean = true;
  bool mAlongFlow = false;  ///< weigh by the velocity along the vorticity
  double mForceScale = 0;
  double mEpsilon = 0;
  double mHalfInverse = 0;
  std::unique_ptr<EGrid<double>> mMagnitude;
  std::array<std::unique_ptr<EGrid<double>>, 3> mVorticity;
};

extern template class ForceOf<Force_Swirling>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
