// Paths along a staggered velocity.
#pragma once
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Three component grids on faces, sampled together at positions in cells of their layout: the six
/// stencils that the components share are computed once.
class StaggeredVelocity {
 public:
  StaggeredVelocity(const EGrid<double>& u, const EGrid<double>& v, const EGrid<double>& w)
      : mU(&u), mV(&v), mW(&w) {}

  const EGrid<double>& Component(i32 axis) const { return axis == 0 ? *mU : axis == 1 ? *mV : *mW; }

  /// Trilinear, component by component; outside the grids the nearest sample counts.
  Vec3d At(const Vec3d& c) const {
    const AxisStencil fx = LinearStencil(c.x, mU->mNx), hx = LinearStencil(c.x - 0.5, mV->mNx),
                      fy = LinearStencil(c.y, mV->mNy), hy = LinearStencil(c.y - 0.5, mU->mNy),
                      fz = LinearStencil(c.z, mW->mNz), hz = LinearStencil(c.z - 0.5, mU->mNz);
    return {SampleCorners(*mU, fx, hy, hz), SampleCorners(*mV, hx, fy, hz),
            SampleCorners(*mW, hx, hy, fz)};
  }

 private:
  const EGrid<double>*mU, *mV, *mW;
};

/// The end of a path of `step` from `p`, where the velocity is `k1`. Positions in cells; `step` is
/// the time over the cell size. `Order` 0 Euler, 1 Heun, 2 third-order Runge-Kutta (Ralston 1962),
/// 3 classical fourth-order Runge-Kutta.
template <int Order>
inline Vec3d TracePath(const StaggeredVelocity& velocity, const Vec3d& p, const Vec3d& k1,
                       double step) {
  if constexpr (Order == 0) {
    return p + k1 * step;
  } else if constexpr (Order == 1) {
    const Vec3d k2 = velocity.At(p + k1 * step);
    return p + (k1 + k2) * (0.5 * step);
  } else if constexpr (Order == 2) {
    const Vec3d k2 = velocity.At(p + k1 * (0.5 * step));
    const Vec3d k3 = velocity.At(p + k2 * (0.75 * step));
    return p + (k1 * (2.0 / 9.0) + k2 * (1.0 / 3.0) + k3 * (4.0 / 9.0)) * step;
  } else {
    const Vec3d k2 = velocity.At(p + k1 * (0.5 * step));
    const Vec3d k3 = velocity.At(p + k2 * (0.5 * step));
    const Vec3d k4 = velocity.At(p + k3 * step);
    return p + (k1 + (k2 + k3) * 2.0 + k4) * (step / 6.0);
  }
}

/// The same with the order told at run time; other orders count as 0.
inline Vec3d TracePath(const StaggeredVelocity& velocity, const Vec3d& p, double step, i32 order) {
  const Vec3d k1 = velocity.At(p);
  switch (order) {
    case 1: return TracePath<1>(velocity, p, k1, step);
    case 2: return TracePath<2>(velocity, p, k1, step);
    case 3: return TracePath<3>(velocity, p, k1, step);
    default: return TracePath<0>(velocity, p, k1, step);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
