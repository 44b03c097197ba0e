// A whirl about an axis.
#pragma once
#include "fluids/forces/field_force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// du = dt w s (z x r), with the weight w of the place, the strength s and the way r from the
/// node's z axis: as a solid body that begins to turn, faster the farther out.
class Force_Vortex : public FieldForce {
 public:
  using FieldForce::FieldForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kStrengthRow = 1000;
  /// What a cell of strength gives a host unit of distance from the axis: with a hundred of them
  /// to the metre about one metre a second squared at a metre.
  static constexpr double kPerHostUnit = 0.010005072145190424;

 protected:
  bool PrepareForce() override;
  void AddField(const FieldPoints& points) const override;

 private:
  double mStrength = 1.0;  ///< cells

  // For one step.
  Matrix mInverse, mTurn;  ///< host units
  double mPush = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
