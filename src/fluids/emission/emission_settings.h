// What is emitted, how fast and for how long.
#pragma once
#include "fluids/emission/emission_rate.h"
#include "fluids/fields/emission_handler.h"
#include "framework/duration.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Whether a linked object, which may be null, is dirty in this frame: it is checked before its
/// turn.
bool IsDirtyNow(iBase* object);

/// Base of emission settings: a rate that may come from a node of its own.
class iEmissionSettings : public iBase {
 public:
  using iBase::iBase;
  iEmissionSettings() = default;
  void CheckDirty() override;

  EmissionRate* mRate = nullptr;
};

/// Settings of emission into grids.
class GridEmissionSettings : public iEmissionSettings {
 public:
  using iEmissionSettings::iEmissionSettings;
  GridEmissionSettings() = default;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kModeRow = 1000, kRateRow = 1002, kLimitRow = 1003, kDurationRow = 1004,
                       kFalloffCurveRow = 1005, kFalloffRow = 1006, kAmountRow = 1013,
                       kVectorAmountRow = 1014;
  void CheckDirty() override;

  /// The amount per second, or per step when absolute.
  double GetAmount() const { return mRate ? mRate->mReal : mValue; }
  Vec3d GetVectorAmount() const { return mRate ? mRate->mVector : mVector; }
  /// What the channels' handlers need to know.
  EmissionWrite Write() const;

  enum Falloff : i32 { kNoFalloff = 0, kDepth = 1, kDepthCurve = 2 };
  Duration* mDuration = nullptr;
  EmissionRate* mLimit = nullptr;
  double mValue = 1;
  Vec3d mVector{1, 1, 1};
  i32 mMode = 0;           ///< `EmissionMode`
  bool mAbsolute = false;  ///< the amount isn't multiplied by the step's length
  i32 mFalloff = kNoFalloff;
  const host::SplineData* mFalloffCurve = nullptr;
  bool mSplat = true;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
