// Values of a field as shares of its range.
#pragma once
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

/// (v - low) / (high - low); v itself where the range has no length or no end.
struct FieldShare {
  double low = 0, inverseSpan = 1;

  FieldShare() = default;
  FieldShare(double from, double to) {
    const double span = to - from;
    if (!(span > 0) || !std::isfinite(span) || !std::isfinite(1 / span)) return;
    low = from;
    inverseSpan = 1 / span;
  }
  double ShareOf(double v) const { return (v - low) * inverseSpan; }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
