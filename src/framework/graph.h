// Curves y = f(x) over 0..1.
#pragma once
#include "host/value.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// An abstract curve y = f(x), x in [0, 1].
class iGraph {
 public:
  virtual f32 Evaluate(f32 x) const = 0;
  virtual i32 GetKnotCount() const = 0;
  virtual i32 InsertKnot(f32 x, f32 y) = 0;
  virtual bool RemoveKnot(i32 index) = 0;
  virtual void ClearKnots() = 0;
  virtual ~iGraph() = default;
};

/// A curve over the spline data of a node's parameter; null means no curve: 0 everywhere.
class iGraphHost : public iGraph {
 public:
  iGraphHost() = default;
  explicit iGraphHost(host::SplineData* spline) : mSpline(spline) {}

  f32 Evaluate(f32 x) const override {
    return mSpline ? static_cast<f32>(mSpline->Evaluate(x)) : 0.0f;
  }
  i32 GetKnotCount() const override {
    return mSpline ? static_cast<i32>(mSpline->knots.size()) : 0;
  }
  i32 InsertKnot(f32 x, f32 y) override { return mSpline ? mSpline->Insert(x, y) : -1; }
  bool RemoveKnot(i32 index) override {
    if (index < 0 || index >= GetKnotCount()) return false;
    mSpline->knots.erase(mSpline->knots.begin() + index);
    return true;
  }
  void ClearKnots() override {
    if (mSpline) mSpline->knots.clear();
  }

 private:
  host::SplineData* mSpline = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
