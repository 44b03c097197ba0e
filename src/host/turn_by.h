// Turns about an axis.
#pragma once
#include <cmath>

#include "host/vector.h"

namespace MELDO_GLOBAL {

/// Turns by a vector that is axis times angle.
class TurnBy {
 public:
  explicit TurnBy(const Vec3d& vector) {
    const double angle = Length(vector);
    if (!(angle > 0)) return;
    mAxis = vector / angle;
    mSin = std::sin(angle);
    mCos = std::cos(angle);
  }
  Vec3d operator()(const Vec3d& p) const {
    return p * mCos + Cross(mAxis, p) * mSin + mAxis * (Dot(mAxis, p) * (1 - mCos));
  }

 private:
  Vec3d mAxis{1, 0, 0};
  double mSin = 0, mCos = 1;
};

}  // namespace MELDO_GLOBAL
