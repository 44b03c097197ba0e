// Time windows.
#pragma once
#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A time window with repeats and a weight curve, linked by emitters, forces and operators.
class Duration : public iBase {
 public:
  Duration() = default;
  Duration(host::BaseNode* node, Scene* scene) : iBase(node, scene) {}
  Duration(const Duration&) = default;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kStartRow = 1001, kRepeatsRow = 1002, kPauseRow = 1003, kCurveRow = 1004,
                       kStartFramesRow = 1006, kPauseFramesRow = 1007, kUseFramesRow = 1008;
  bool ReadParameters() override;

  /// Whether the window is open at `time` (seconds). A length of 0 or less is open from `start` on.
  /// A millionth of a frame before its start counts as its start: times are sums of rounded steps.
  bool IsActive(double time) const;
  /// As `IsActive`; inside a window of some length `weight` becomes the curve's y over the window,
  /// or without a curve fades from 1 to 0.
  bool Weight(double time, double& weight) const;

  double start = 0;    ///< seconds
  double length = 25;  ///< seconds
  double pause = 25;   ///< seconds between windows
  i32 repeats = 0;     ///< windows after the first
  const host::SplineData* spline = nullptr;

 private:
  bool mUsesFrames = false;
  i32 mLengthFrames = 0, mStartFrames = 0, mPauseFrames = 0;

  /// The start of the open window at `time`; false when none is open.
  bool WindowAt(double time, double& windowStart) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
