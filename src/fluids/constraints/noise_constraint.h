// Noise in space and time.
#pragma once
#include "framework/constraint.h"
#include "host/noise.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures noise about the place of its node: 0 to 1, cut and stretched. Where nothing is left of
/// it the point is out, whatever the range says.
class NoiseConstraint : public MeasuredConstraint<NoiseConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 20;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kScaleRow = 1001, kAxesRow = 1002;
  std::optional<double> Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Open() override;

 private:
  static constexpr i32 kSpeedRow = 1006;

  double mScale = 1;
  Vec3d mAxes{1, 1, 1};
  i32 mOctaves = 3;
  host::NoiseType mType = host::NoiseType::Fbm;
  double mContrast = 1;
  double mSpeed = 0;
  double mBias = 0;
  i32 mSeed = 0;
  i32 mRepeat = 0;
  double mLow = 0, mHigh = 1;
  bool mAbsolute = false;

  // For one run of a stage.
  host::Noise mNoise{0};
  Vec3d mFrequency{};  ///< 1 / host units
  Vec3d mOrigin{};     ///< host units
  Vec3d mSimToWorld{};
  bool mMoves = false;
  double mTimeOfNoise = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
