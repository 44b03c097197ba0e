// A constant acceleration.
#pragma once
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class AlignmentVector3D;
class GridEmissionSettings;

/// Accelerates everything the same way, in the node's own axes, or by a unit of velocity a second
/// along a direction that an alignment node gives for each point.
class Force_Gravity : public ForceOf<Force_Gravity> {
 public:
  using ForceOf::ForceOf;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kAccelerationRow = 1000, kAlignmentRow = 1001, kStrengthRow = 1002;
  bool ReadParameters() override;
  bool ActsAnywhere() const override { return true; }

  /// du = dt w s g, with the weight w of the place, the strength s and the acceleration g.
  double Scale(double weight) const { return mTime->stepDuration * weight * mWeight * mStrength; }
  template <class Place>
  void Push(Place& place, double s) const {
    AddAlong(place, DirectionAt(place), [s](i32) { return s; });
  }
  bool IsAlikeInRows() const { return !mAlignment; }

 private:
  void Open() override;
  Vec3d DirectionAt(const ForceSample& sample) const;
  Vec3d DirectionAt(const ForceRow& /*row*/) const { return mDirection; }

  GridEmissionSettings* mSettings = nullptr;  ///< their time window gates the force
  AlignmentVector3D* mAlignment = nullptr;
  Vec3d mAcceleration{0, -9.81, 0};  ///< in the node's own axes
  Vec3d mDirection{0, -9.81, 0};
  double mStrength = 1.0;
};

extern template class ForceOf<Force_Gravity>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
