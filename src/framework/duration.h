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

  /// What a source that gives by the second takes its rate times in the step from `time` on: the
  /// mean of the weight over the step, 0 wherever the window is closed. So the sum over all steps
  /// doesn't depend on their lengths. Windows without a length, and ends that are off by a
  /// millionth of a frame, are as above; without a step it is `Weight`. False when the window is
  /// closed throughout.
  bool MeanWeight(double time, double step, double& weight) const;
  /// The same for the step that the clock `time` stands in: no time passes in the start frame, so
  /// what opens later than it begins isn't open in it.
  bool MeanWeight(const SceneTime& time, double& weight) const;

  /// The clock stands in the first frame under way, and all of the window lay at its beginning: the
  /// start frame has seen it too, and what fills cells to an amount has done so.
  bool HasActed(const SceneTime& time) const;

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
  /// How far times may be off, seconds.
  double Hair() const;
  /// The mean of the curve over a part of the window, in shares of its length.
  double MeanOfCurve(double from, double to) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
