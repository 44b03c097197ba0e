#include "fluids/surfaces/stray_places.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kGap = 1000;  // cells

struct Interval {
  double first, last;
};

/// The run of sorted numbers without a gap that has most of them.
Interval FullestRun(const std::vector<double>& sorted, double gap) {
  std::size_t start = 0, bestStart = 0, bestCount = 0;
  for (std::size_t i = 1; i <= sorted.size(); ++i) {
    if (i < sorted.size() && sorted[i] - sorted[i - 1] <= gap) continue;
    if (i - start > bestCount) bestStart = start, bestCount = i - start;
    start = i;
  }
  return {sorted[bestStart], sorted[bestStart + bestCount - 1]};
}

}  // namespace

i64 LeaveOutStrays(std::vector<Vec3d>& places, double cellSize) {
  i64 strays = 0;
  for (int a = 0; a < 3; ++a) {
    std::vector<double> sorted;
    for (const Vec3d& p : places)
      if (std::isfinite(p.x + p.y + p.z)) sorted.push_back(p[a]);
    if (sorted.empty()) return strays;
    std::sort(sorted.begin(), sorted.end());
    const Interval kept = FullestRun(sorted, kGap * cellSize);
    for (Vec3d& p : places) {
      if (!std::isfinite(p.x + p.y + p.z) || (p[a] >= kept.first && p[a] <= kept.last)) continue;
      p.x = std::numeric_limits<double>::quiet_NaN();
      ++strays;
    }
  }
  return strays;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
