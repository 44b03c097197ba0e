// How many particles appear, when, and how they vary.
#pragma once
#include "fluids/emission/alignment_vector.h"
#include "fluids/emission/emission_settings.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Settings of emitters of particles.
class ParticleEmissionSettings : public iEmissionSettings {
 public:
  using iEmissionSettings::iEmissionSettings;
  ParticleEmissionSettings() = default;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kRateRow = 1001, kAmountRow = 1004;
  void CheckDirty() override;

  /// Particles a second, or a step where `mPerStep` is set.
  i32 GetAmount() const { return mRate ? mRate->mWhole : mAmount; }
  /// Its time window is open at `time` (seconds), with the weight that it has there, or in the mean
  /// over the step of that length from there on.
  bool IsOpen(double time, double step, double& weight) const;

  bool mPerStep = false;
  Duration* mDuration = nullptr;
  AlignmentVector3D* mAlignment = nullptr;  ///< of the vorticity that particles are born with
  i32 mAmount = 1;
  double mJitter = 0;     ///< of a lattice in a volume, in quarters of a cell
  double mAgeSpread = 0;  ///< share by which lives are cut short at random
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
