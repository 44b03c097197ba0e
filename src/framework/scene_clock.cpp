// The clock of a scene: the frame, its substeps, and their length.
#include "framework/sulva_scene.h"

#include <algorithm>
#include <cmath>

#include "host/console.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

bool SulvaScene::UpdateDomain(double hostUnits, double simUnits, double cellSize) {
  const double w = hostUnits / simUnits * cellSize;
  GridLayout layout;
  layout.Set({1, 1, 1}, {w, w, w}, static_cast<f32>(cellSize), {});
  if (mDomain.count > 0 && layout.Equals(mDomain)) {
    mFlags &= ~kDomainChanged;
    ForEachPart([&](ScenePart& part) { part.UpdateDomain(*this); });
    return false;
  }
  mDomain = layout;
  mFlags |= kDomainChanged;
  mCellHalf = mDomain.cellSize * 0.5;
  mCellQuarter = mCellHalf * 0.5;
  ForEachPart([&](ScenePart& part) {
    part.DomainChanged(mDomain);
    part.UpdateDomain(*this);
  });
  return true;
}

void SulvaScene::GetFrameRange(i32& first, i32& last) const {
  const SceneSettings settings = ReadSettings();
  const bool preview = settings.usePreviewRange;
  first = preview ? GetDocument()->previewMin : settings.firstFrame;
  last = preview ? GetDocument()->previewMax : settings.lastFrame;
  if (first > last) std::swap(first, last);
}

void SulvaScene::ReadClock() {
  const Document& document = *GetDocument();
  mClock.document = &document;
  mClock.fps = document.fps;
  mClock.frameTime = 1.0 / document.fps;
  GetFrameRange(mClock.startFrame, mClock.endFrame);
  ++mClock.endFrame;
  const double seconds = document.Time();
  // A whole frame must not fall one short by the rounding of frame / fps * fps.
  mClock.frame = static_cast<i32>(std::floor(seconds * mClock.fps + 1e-6));
  mClock.frameFromStart = mClock.frame - mClock.startFrame;
  const bool keepsTime = mClock.time == mClock.lastTime && seconds > 0 &&
                         std::abs(mClock.time - mClock.frameTime - seconds) < 1e-12;
  if (!keepsTime) mClock.time = seconds;
}

void SulvaScene::ReadBlur(i32& sample, i32& samples) const {
  sample = samples = 0;
  if (!mIsRender) return;
  samples = GetDocument()->blurSamples;
  const double past = mClock.time - mClock.frame * mClock.frameTime;
  sample = static_cast<i32>(std::floor(past * mClock.fps * samples + 1e-6));
}

void SulvaScene::SetTimes(i32 frameIndex, double, double frameDuration, i32 timeMode, double cfl,
                          double fixedStep, i32 substeps, i32 minSubsteps, double fps,
                          i32 blurSample, i32 blurSamples) {
  mTime.frameIndex = frameIndex;
  mTime.frameDuration = frameDuration;
  mTime.fps = static_cast<i32>(fps);
  mTimeMode = timeMode;
  mCfl = cfl;
  mTime.substep = 0;
  mTime.maxSubsteps = static_cast<u8>(std::clamp(substeps, 1, 255));
  mTime.minSubsteps = static_cast<u8>(std::clamp(minSubsteps, 1, 255));
  mTime.stepFraction = 1.0 / mTime.maxSubsteps;
  const bool blur = blurSample > 0 && blurSamples > 0;
  switch (timeMode) {
    case 1:
      mTime.stepDuration = frameDuration / mTime.maxSubsteps;
      if (blur) mTime.stepDuration = frameDuration / blurSamples * blurSample;
      break;
    case 2:
      mTime.stepDuration = fixedStep / mTime.maxSubsteps;
      if (blur) mTime.stepDuration = mTime.stepDuration / blurSamples * blurSample;
      break;
    default: mTime.stepDuration = frameDuration;
  }
}

double SulvaScene::ComputeAdaptiveStep(double seed) {
  double top = seed;
  for (const auto& [id, object] : mLists[kListSolvers])
    top = std::max(top, object->GetMaxSpeedSq());
  const double speed = std::sqrt(top);
  const double dt = std::min(mTime.frameDuration, mCfl * mDomain.cellSize / speed);
  mStepRatio = dt * speed / mCellHalf;
  return dt;
}

void SulvaScene::NextAdaptiveStep(double dtMin, double dtMax, bool& last) {
  const double frame = mTime.frameDuration, left = frame - mTime.timeInFrame;
  double dt = std::clamp(ComputeAdaptiveStep(1e-16), dtMin, dtMax);
  // Thirds of a frame don't add up to it to the last bit; the rest of a bit is no step.
  last = dt >= left * (1 - 1e-9);
  if (last) {
    dt = left;
  } else if (left <= dt * 1.5) {
    dt = left * 0.5;  // the frame must not end on a sliver
  }
  mTime.stepDuration = dt;
  mTime.stepFraction = dt / frame;
  mTime.remainingFraction = last ? 0 : mTime.remainingFraction - mTime.stepFraction;
  if (mTime.timeInFrame == 0 && last) {
    mTime.substep = 1;
    mTime.maxSubsteps = 1;
  } else {
    const i32 count = mTime.maxSubsteps + (mTime.timeInFrame == 0 ? 2 : 1);
    mTime.maxSubsteps = static_cast<u8>(std::min(count, 255));
    mTime.substep = static_cast<u8>(std::min(mTime.substep + 1, 255));
  }
}

void SulvaScene::TakeWholeFrame(double duration) {
  mTime.stepDuration = duration;
  mTime.stepFraction = 1;
  mTime.remainingFraction = 0;
  mTime.substep = mTime.maxSubsteps = 1;
}

bool SulvaScene::RunSubsteps() {
  mTime.timeInFrame = 0;
  mTime.remainingFraction = 1;
  const bool isAdaptive = mTimeMode == 0;
  const i32 minimum = std::max<i32>(1, mTime.minSubsteps), maximum = mTime.maxSubsteps;
  const double dtMax = mTime.frameDuration / minimum;
  const double dtMin = mTime.frameDuration / std::max(maximum, minimum);
  const double whole = isAdaptive ? mTime.frameDuration : mTime.stepDuration * maximum;
  const double start = mTime.elapsed;
  if (isAdaptive) mTime.maxSubsteps = 0;
  mTime.isLastSubstep = 0;
  bool last = false;
  for (i32 i = 0; !last; ++i) {
    if (!mTime.IsUnderWay()) {
      TakeWholeFrame(whole);
      last = true;
    } else if (isAdaptive) {
      NextAdaptiveStep(dtMin, dtMax, last);
    } else {
      mTime.substep = static_cast<u8>(i + 1);
      mTime.remainingFraction = 1 - (i + 1) * mTime.stepFraction;
      last = i == maximum - 1;
    }
    mTime.timeInFrame = last ? whole : mTime.timeInFrame + mTime.stepDuration;
    ShowStatus("Substep: " + std::to_string(mTime.substep));
    mTime.isLastSubstep = last;
    mReport.steps.push_back(mTime.stepDuration);
    if (!Simulate(false)) return false;
    SetStage(kFinishSubstep);
    if ((mFlags & kTimeChanged) && mTime.IsUnderWay()) mTime.elapsed = start + mTime.timeInFrame;
  }
  return !IsCancelled();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
