// Thermal lift.
#pragma once
#include "fluids/flow/cut_cells.h"
#include "fluids/flow/flow_cells.h"
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Warm gas rises, laden gas sinks: lift in proportion to temperature and density (Fedkiw, Stam,
/// Jensen 2001, equation 8), along a direction of choice. With coefficients a and b a cell gains
/// (a (T - Tmin) + b rho) / 2 metres a second in each second: their unit is half an acceleration.
class Force_Buoyancy : public ForceOf<Force_Buoyancy> {
 public:
  using ForceOf::ForceOf;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kDirectionRow = 1003, kTemperatureRow = 1004, kDensityRow = 1005;
  bool ResolveLinks() override;
  void ClearLinks() override;

  template <class Place>
  void Push(Place& place, double s) const;
  bool ActsOn(const ForceSample& sample) const;

 protected:
  bool PrepareForce() override;
  void FinishForce() override;

 private:
  /// The lift of a cell: nothing where it is neither warm nor laden.
  double Lift(double temperature, double density1, double density2) const {
    const double t = temperature - mColdest;
    const double lift = t * mTemperatureCoefficient + density1 * mDensityCoefficient +
                        density2 * mDensityCoefficient;
    return (density1 > 0) | (t > 0) ? lift : 0.0;
  }
  void ContinueIntoSolids();
  /// A second density counts weights twice.
  double Weight(double s) const { return mDensity2 ? s * s : s; }

  Vec3d mUpwards{0, 1, 0};
  ScalarField* mTemperature = nullptr;
  ScalarField* mDensity1 = nullptr;
  ScalarField* mDensity2 = nullptr;
  Vec3d mUp{};  ///< lift of a unit of temperature with a coefficient of 1, in this step
  static constexpr double kShare = 0.5;  ///< of an acceleration that is a coefficient's unit

  double mTemperatureCoefficient = 0;
  double mDensityCoefficient = 0;
  double mColdest = 0;  ///< lower limit of the temperature channel
  CutCells mCut;
  CellSamples mT, mD1, mD2;  ///< at the flow's cells, from `PrepareFor` to `Finish`
};

extern template class ForceOf<Force_Buoyancy>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
