#include "framework/duration.h"

#include <algorithm>
#include <cmath>

#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Duration::Kind() {
  static const NodeKind kind = {
      .id = 1028240,
      .type = "duration",
      .label = "Duration",
      .className = "Duration",
      .typeId = kTypeDuration,
      .list = kListAuxiliary,
      .menu = {"General"},
      .purpose = "says when something happens and how strongly: emission, forces, operators",
      .example =
          {{example::kBall},
           {R"({ "type": "duration", "name": "puff", "parameters": { "start": 0.2, "length": 1.5, "curve": [[0, 1], [0.7, 1], [1, 0]] } })",
            R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 3, "duration": "puff" } })",
            example::kSmoke, example::kPair, example::kBallMesh, example::kBallVolume,
            example::kEmitter}},
      .rows = Parameters,
      .make = MakeNode<Duration>,
  };
  return kind;
}

const ParameterTable& Duration::Parameters() {
  static const ParameterTable table = {
      RealRow(1000, "length", 0.0, "s", "how long a puff lasts; 0 or less never ends")
          .OnlyWith(kUseFramesRow, {0})
          .To(&Duration::length),
      RealRow(kStartRow, "start", 0.0, "s", "how long it waits before the first puff")
          .OnlyWith(kUseFramesRow, {0})
          .To(&Duration::start),
      LongRow(kRepeatsRow, "repeats", 0, "", "further puffs after the first")
          .AtLeast(0)
          .To(&Duration::repeats),
      RealRow(kPauseRow, "pause", 10.0, "s", "quiet time between two puffs")
          .OnlyWith(kUseFramesRow, {0})
          .To(&Duration::pause),
      CurveRow(kCurveRow, "curve",
               "strength from the beginning (0) to the end (1); without it a puff fades out")
          .To(&Duration::spline),
      LongRow(1005, "length_frames", 0, "frames", "how many frames a puff lasts, with use_frames")
          .OnlyWith(kUseFramesRow, {1})
          .To(&Duration::mLengthFrames),
      LongRow(kStartFramesRow, "start_frames", 0, "frames",
              "how many frames it waits before the first puff, with use_frames")
          .OnlyWith(kUseFramesRow, {1})
          .To(&Duration::mStartFrames),
      LongRow(kPauseFramesRow, "pause_frames", 10, "frames",
              "quiet frames between two puffs, with use_frames")
          .OnlyWith(kUseFramesRow, {1})
          .To(&Duration::mPauseFrames),
      BoolRow(kUseFramesRow, "use_frames", false,
              "counts in frames of the scene instead of seconds")
          .To(&Duration::mUsesFrames),
  };
  return table;
}

bool Duration::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  if (mUsesFrames) {
    const double frame = mScene ? mScene->mClock.frameTime : 0.0;
    length = mLengthFrames * frame;
    start = mStartFrames * frame;
    pause = mPauseFrames * frame;
  }
  return true;
}

double Duration::Hair() const { return 1e-6 * (mScene ? mScene->mClock.frameTime : 1e-3); }

bool Duration::WindowAt(double time, double& windowStart) const {
  const double t = time + Hair();
  windowStart = start;
  if (length <= 0) return start <= t;
  if (t >= start && t < start + length) return true;
  if (t < start) return false;
  const double period = length + pause;
  if (period <= 0) return false;
  const double k = std::floor((t - start) / period);
  if (repeats < k) return false;
  windowStart = start + k * period;
  return t >= windowStart && t < windowStart + length;
}

bool Duration::IsActive(double time) const {
  double windowStart;
  return WindowAt(time, windowStart);
}

bool Duration::Weight(double time, double& weight) const {
  double windowStart;
  if (!WindowAt(time, windowStart)) return false;
  if (length > 0) {
    const double u = std::max(0.0, (time - windowStart) / length);
    weight = spline ? spline->Evaluate(u) : 1 - u;
  }
  return true;
}

/// By Gauss's rule with three points from knot to knot, exact for the cubics of a curve.
double Duration::MeanOfCurve(double from, double to) const {
  if (!spline) return 1 - 0.5 * (from + to);
  const double first = spline->Evaluate(from), at = std::sqrt(0.6);
  double sum = 0, begin = from;
  const auto add = [&](double end) {
    const double middle = 0.5 * (begin + end), half = 0.5 * (end - begin);
    const auto rise = [&](double x) { return spline->Evaluate(x) - first; };
    sum +=
        half / 9 * (8 * rise(middle) + 5 * (rise(middle - at * half) + rise(middle + at * half)));
    begin = end;
  };
  for (const auto& knot : spline->knots)
    if (knot.x > begin && knot.x < to) add(knot.x);
  add(to);
  return first + sum / (to - from);
}

bool Duration::MeanWeight(double time, double step, double& weight) const {
  constexpr double kMostWindows = 1000;  // in a step; of more the mean is taken
  if (!(step > 0)) return Weight(time, weight);
  const double hair = Hair(), end = time + step, period = length + pause;
  const auto shareOf = [&](double open) { return open >= step - hair ? 1.0 : open / step; };
  if (length <= 0) {
    const double open = end - std::max(time, start);
    if (open <= hair) return false;
    weight *= shareOf(open);
    return true;
  }
  const bool comesBack = repeats > 0 && period > 0;
  const double width = comesBack ? std::min(length, period) : length;
  if (comesBack && step > kMostWindows * period) {
    const double open = std::min(end, start + (repeats + 1.0) * period) - std::max(time, start);
    if (open <= hair) return false;
    weight = shareOf(open) * width / period * MeanOfCurve(0, width / length);
    return true;
  }
  double sum = 0;
  bool isOpen = false;
  const double first = comesBack ? std::floor((time - start) / period) : 0;
  for (double k = std::max(first, 0.0); k <= (comesBack ? repeats : 0); ++k) {
    const double begin = comesBack ? start + k * period : start;
    if (begin >= end) break;
    const double from = std::max(time, begin), to = std::min(end, begin + width);
    if (to - from <= hair) continue;
    isOpen = true;
    sum += shareOf(to - from) * MeanOfCurve((from - begin) / length, (to - begin) / length);
  }
  if (isOpen) weight = sum;
  return isOpen;
}

bool Duration::HasActed(const SceneTime& time) const {
  const double end = time.frameDuration - Hair();
  return time.frameIndex == 1 && IsActive(0) && length > 0 && start + length < end &&
         (repeats == 0 || start + length + pause >= end);
}

bool Duration::MeanWeight(const SceneTime& time, double& weight) const {
  if (!time.IsUnderWay() && !IsActive(time.elapsed)) return false;
  return MeanWeight(time.elapsed, time.stepDuration, weight);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
