// Thermal lift.
#pragma once
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Warm gas rises, laden gas sinks: lift in proportion to temperature and density (Fedkiw, Stam,
/// Jensen 2001, equation 8), along a direction of choice.
class Force_Buoyancy : public Force {
 public:
  using Force::Force;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ResolveLinks() override;
  void ClearLinks() override;
  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override;
  void EvaluateRow(const ForceRow& row) override;
  std::unique_ptr<iBase> Clone() const override { return std::make_unique<Force_Buoyancy>(*this); }

 protected:
  bool PrepareForce() override;

 private:
  Vec3d mUpwards{0, 1, 0};
  ScalarField* mTemperature = nullptr;
  ScalarField* mDensity1 = nullptr;
  ScalarField* mDensity2 = nullptr;
  Vec3d mUp{};  ///< lift of a unit of temperature with a coefficient of 1, in this step
  double mTemperatureCoefficient = 0;
  double mDensityCoefficient = 0;
  double mColdest = 0;  ///< lower limit of the temperature channel
  const double* mT = nullptr;
  const double* mD1 = nullptr;  ///< null without the channel
  const double* mD2 = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
