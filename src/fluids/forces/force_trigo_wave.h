// Waves that run through space.
#pragma once
#include "fluids/forces/field_force.h"
#include "fluids/forces/trigo_wave.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// du = dt w D(q), with the weight w of the place and the displacement D of a wave, taken as an
/// acceleration, at the place q in the node's own axes, divided by a scale.
class Force_TrigoWave : public FieldForce {
 public:
  using FieldForce::FieldForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kAmplitudeRow = 1000, kSpeedRow = 1001, kLengthRow = 1002, kTypeRow = 1003,
                       kModeRow = 1004, kOffsetRow = 1005, kScaleRow = 1008, kRunsRow = 1009,
                       kTimeRow = 1010;

 protected:
  bool PrepareForce() override;
  void AddField(const FieldPoints& points) const override;

 private:
  double mAmplitude = 80, mSpeed = 50, mWaveLength = 200;  ///< host units, 1/s
  WaveType mType = WaveType::Spiral;
  WaveMode mMode = WaveMode::Forwards;
  double mOffset = 0, mFixedTime = 0;  ///< s
  bool mRuns = true;                   ///< by the time of the simulation
  Vec3d mScale{1, 1, 1};

  // For one step.
  TrigoWave mWave;
  Matrix mPlacement, mInverse;  ///< host units
  Vec3d mReciprocal{1, 1, 1};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
