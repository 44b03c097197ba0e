// Values of a field as shares of its range.
#pragma once
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

/// (v - low) / (high - low); v itself where the range has no length or no end.
struct FieldShare {
  double low = 0, span = 1, inverseSpan = 1;

  FieldShare() = default;
  FieldShare(double from, double to) {
    const double length = to - from;
    if (!(length > 0) || !std::isfinite(length) || !std::isfinite(1 / length)) return;
    low = from;
    span = length;
    inverseSpan = 1 / length;
  }
  double ShareOf(double v) const { return (v - low) * inverseSpan; }
  double ValueOf(double share) const { return low + share * span; }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
