#include "host/keyed_points.h"

#include <algorithm>

namespace MELDO_GLOBAL::host {

std::vector<Vec3d> PointTrack::Evaluate(double frame) const {
  if (keys.empty()) return {};
  const auto behind = std::upper_bound(keys.begin(), keys.end(), frame,
                                       [](double f, const Key& key) { return f < key.frame; });
  if (behind == keys.begin()) return keys.front().points;
  const Key& before = behind[-1];
  if (behind == keys.end() || interpolation == Interpolation::Step) return before.points;
  double t = (frame - before.frame) / (behind->frame - before.frame);
  if (interpolation == Interpolation::Smooth) t = t * t * (3 - 2 * t);
  std::vector<Vec3d> points(before.points.size());
  for (std::size_t i = 0; i < points.size(); ++i)
    points[i] = before.points[i] * (1 - t) + behind->points[i] * t;
  return points;
}

}  // namespace MELDO_GLOBAL::host
