#include "fluids/surfaces/half_space.h"

#include <algorithm>
#include <numbers>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr int kLayers = 256;  ///< of the ball that is in reach, an even number

/// The weights of a layer of the unit ball, `height` off its middle, per area of particles.
double LayerSum(const std::function<double(double)>& weight, double height) {
  constexpr int kRings = 64;
  const double h2 = height * height, area = 1 - h2;
  double sum = 0;
  // Rings of equal area, by the middle of each.
  for (int ring = 0; ring < kRings; ++ring) sum += weight(h2 + area * (ring + 0.5) / kRings);
  return std::numbers::pi * area * sum / kRings;
}

}  // namespace

HalfSpace::HalfSpace(const std::function<double(double)>& weight) {
  // From the layer that is farthest below a place up to one at the height -t: what a place sees
  // that lies t off the surface.
  std::vector<double> mean(kLayers + 1), share(kLayers + 1);
  double sum = 0, moment = 0;
  mean[0] = 1;
  for (int i = 1; i <= kLayers; ++i) {
    const double depth = 1 - (i - 0.5) * 2 / kLayers;  // of the layer's middle below the place
    const double layer = std::max(LayerSum(weight, depth), 0.0) * 2 / kLayers;
    sum += layer;
    moment += layer * depth;
    mean[i] = sum > 0 ? std::max(moment / sum, 0.0) : 1;
    share[i] = sum;
  }
  mFullSum = sum;
  for (double& s : share) s = sum > 0 ? s / sum : 0;
  mMeanAtSurface = mean[kLayers / 2];
  const auto distance = [](double i) { return std::max(1 - i * 2 / kLayers, -kDeepest); };
  const auto invert = [&](const std::vector<double>& values, double wanted, bool falls) {
    int i = 0;
    while (i < kLayers && (falls ? values[i + 1] > wanted : values[i + 1] < wanted)) ++i;
    if (i == kLayers) return -kDeepest;
    const double step = values[i + 1] - values[i];
    return distance(i + (step != 0 ? std::clamp((wanted - values[i]) / step, 0.0, 1.0) : 0.0));
  };
  for (int e = 0; e <= kEntries; ++e) {
    mByMean.push_back(invert(mean, double(e) / kEntries, true));
    mByShare.push_back(invert(share, double(e) / kEntries, false));
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
