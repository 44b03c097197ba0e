#include "fluids/fields/drift_watch.h"

#include <algorithm>
#include <cmath>

#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kWindow = 1.0 - 1e-9;  // seconds; steps that make up one may end a rounding before
constexpr double kMostPerSecond = 0.01;

}  // namespace

std::optional<double> DriftWatch::Add(const Step& step) {
  mSteps.push_back(step);
  double seconds = 0;
  for (const Step& each : mSteps) seconds += each.seconds;
  auto first = mSteps.begin();
  while (seconds - first->seconds >= kWindow) seconds -= (first++)->seconds;
  mSteps.erase(mSteps.begin(), first);
  if (seconds < kWindow) return {};
  Step sum;
  for (const Step& each : mSteps) {
    sum.drift += each.drift;
    sum.given += each.given;
    sum.there += each.there * each.seconds;
  }
  const double share = std::max(sum.there, sum.given * seconds);
  if (!(std::abs(sum.drift) > kMostPerSecond * share)) return {};
  return sum.drift / share;
}

void DriftWatch::Step::Persist(StateArchive& archive) { archive(seconds, drift, given, there); }

void DriftWatch::Persist(StateArchive& archive) { archive(mSteps); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
