// The average of a field.
#pragma once
#include "fluids/constraints/field_share.h"
#include "fluids/fields/channel.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Weighs all points alike, by the mean value of the cells of a field that are above 0, as a share
/// of its range: what the field as a whole comes to switches the holder on and off. While no cell
/// is above 0 the last mean stands.
class ChannelAverageConstraint : public MeasuredConstraint<ChannelAverageConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 17;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  void Reset() override;
  void Persist(StateArchive& archive) override;
  double Measure(const Vec3d&, const ConstraintUse&) const { return mShare; }

 protected:
  bool Open() override;

 private:
  ScalarField* mChannel = nullptr;
  double mMinimum = 0.5;
  double mAverage = 0;  ///< the last one, in the units of the field
  double mShare = 0;    ///< of the range, in this run of a stage
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
