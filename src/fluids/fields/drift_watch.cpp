#include "fluids/fields/drift_watch.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kWindow = 1.0 - 1e-9;  // seconds; steps that make up one may end a rounding before
constexpr double kMostPerSecond = 0.01;

}  // namespace

std::optional<double> DriftWatch::Add(const Step& step) {
  mWindow.seconds += step.seconds;
  mWindow.drift += step.drift;
  mWindow.given += step.given;
  mWindow.there = std::max(mWindow.there, step.there);
  if (mWindow.seconds < kWindow) return {};
  const Step window = std::exchange(mWindow, {});
  const double share = std::max(window.there, window.given) * window.seconds;
  if (!(std::abs(window.drift) > kMostPerSecond * share)) return {};
  return window.drift / share;
}

void DriftWatch::Persist(StateArchive& archive) {
  archive(mWindow.seconds, mWindow.drift, mWindow.given, mWindow.there);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
