// A constant acceleration.
#pragma once
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class AlignmentVector3D;
class GridEmissionSettings;

/// Accelerates everything the same way, in the node's own axes, or by a unit of velocity a second
/// along a direction that an alignment node gives for each point.
class Force_Gravity : public Force {
 public:
  using Force::Force;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ReadParameters() override;
  void PrepareFor(Flow& flow) override;
  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override;
  void EvaluateRow(const ForceRow& row) override;

 private:
  double Scalar(double weight) const { return mTime->stepDuration * weight * mWeight * mStrength; }

  GridEmissionSettings* mSettings = nullptr;  ///< their time window gates the force
  AlignmentVector3D* mAlignment = nullptr;
  Vec3d mAcceleration{0, -9.81, 0};  ///< in the node's own axes
  Vec3d mDirection{0, -9.81, 0};
  double mStrength = 1.0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
