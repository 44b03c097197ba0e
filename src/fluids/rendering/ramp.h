// Curves and gradients in a form that a sample loop reads without a call.
#pragma once
#include <algorithm>
#include <vector>

#include "host/value.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Piecewise linear from knots sorted by place, constant outside them; with the slopes worked out.
template <class V>
class Ramp {
 public:
  Ramp() = default;
  bool IsEmpty() const { return mKnots.empty(); }

  void Add(double at, const V& value) {
    if (!mKnots.empty()) {
      Knot& last = mKnots.back();
      const double width = at - last.at;
      last.slope = width > 0 ? (value - last.value) * (1 / width) : V{};
    }
    mIsConstant = mKnots.empty() || (mIsConstant && value == mKnots.front().value);
    mKnots.push_back({at, value, V{}});
  }
  /// Its one value, or null.
  const V* Constant() const {
    return mIsConstant && !mKnots.empty() ? &mKnots.front().value : nullptr;
  }

  /// Zero without knots.
  V operator()(double x) const {
    if (mKnots.empty()) return V{};
    const Knot* knot = mKnots.data();
    const Knot* last = knot + mKnots.size() - 1;
    if (!(x > knot->at)) return knot->value;
    while (knot != last && x >= knot[1].at) ++knot;
    return knot->value + knot->slope * (x - knot->at);
  }

 private:
  struct Knot {
    double at;
    V value;
    V slope;
  };
  std::vector<Knot> mKnots;
  bool mIsConstant = false;
};

inline Ramp<double> MakeRamp(const host::SplineData& curve) {
  Ramp<double> ramp;
  for (const auto& knot : curve.knots) ramp.Add(knot.x, knot.y);
  return ramp;
}
inline Ramp<Vec3d> MakeRamp(const host::Gradient& gradient) {
  Ramp<Vec3d> ramp;
  for (const auto& knot : gradient.knots) ramp.Add(knot.position, knot.colour);
  return ramp;
}

/// Whether a curve is y = x over 0..1.
inline bool IsIdentity(const host::SplineData& curve) {
  return curve.knots.size() >= 2 && curve.knots.front().x == 0 && curve.knots.back().x == 1 &&
         std::all_of(curve.knots.begin(), curve.knots.end(),
                     [](const auto& knot) { return knot.x == knot.y; });
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
