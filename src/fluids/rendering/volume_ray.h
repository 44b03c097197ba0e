// A piece of a ray, and the walk along it that crosses empty space in long steps.
#pragma once
#include <cmath>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// A segment in host units, with a running place `t` from its start.
struct VolumeRay {
  Vec3d start{}, end{}, direction{};
  double tMax = 0;
  double t = 0;
  bool atEnd = false;

  VolumeRay(const Vec3d& from, const Vec3d& to) : start(from), end(to) {
    const Vec3d way = to - from;
    tMax = Length(way);
    if (tMax > 0) direction = way / tMax;
  }
  Vec3d Here() const { return start + direction * t; }
  /// Moves on, at most to the end; returns the distance.
  double Advance(double step) {
    const double before = t;
    t += step;
    if (!(t < tMax)) {
      t = tMax;
      atEnd = true;
    }
    return t - before;
  }
};

/// A box in host units.
struct WorldBox {
  Vec3d min{}, max{};
  /// The part [near, far] of the ray origin + t * direction inside, for t from 0 to `length`; false
  /// when there is none.
  bool Clip(const Vec3d& origin, const Vec3d& direction, double length, double& near,
            double& far) const {
    near = 0;
    far = length;
    for (int a = 0; a < 3; ++a) {
      if (direction[a] == 0) {
        if (!(origin[a] >= min[a] && origin[a] <= max[a])) return false;
        continue;
      }
      const double inverse = 1 / direction[a];
      const double t0 = (min[a] - origin[a]) * inverse, t1 = (max[a] - origin[a]) * inverse;
      near = std::max(near, std::min(t0, t1));
      far = std::min(far, std::max(t0, t1));
    }
    return near < far;
  }
};

/// Which bricks of a box can't hold anything.
class Occupancy {
 public:
  bool IsSet() const { return !mFull.empty(); }
  void Set(const WorldBox& box, const VecInt3D& bricks) {
    mOrigin = box.min;
    mDims = bricks;
    mScale = ToReal(bricks) / (box.max - box.min);
    mFull.assign(static_cast<size_t>(bricks.x) * bricks.y * bricks.z, 0);
  }
  void Clear() { mFull.clear(); }
  void Fill(i32 x, i32 y, i32 z) { mFull[Index(x, y, z)] = 1; }
  bool IsEmptyAt(const Vec3d& p) const {
    const Vec3d c = (p - mOrigin) * mScale;
    return !mFull[Index(Clamped(c.x, mDims.x), Clamped(c.y, mDims.y), Clamped(c.z, mDims.z))];
  }
  /// How far the ray stays in the brick of `p`.
  double DistanceInBrick(const Vec3d& p, const Vec3d& direction) const {
    double distance = 1e300;
    for (int a = 0; a < 3; ++a) {
      if (direction[a] == 0) continue;
      const i32 brick = Clamped((p[a] - mOrigin[a]) * mScale[a], mDims[a]);
      const double wall = mOrigin[a] + (brick + (direction[a] > 0 ? 1 : 0)) / mScale[a];
      distance = std::min(distance, (wall - p[a]) / direction[a]);
    }
    return distance;
  }

 private:
  static i32 Clamped(double c, i32 n) {
    const i32 i = static_cast<i32>(c);
    return i < 0 ? 0 : i < n ? i : n - 1;
  }
  size_t Index(i32 x, i32 y, i32 z) const {
    return (static_cast<size_t>(z) * mDims.y + y) * mDims.x + x;
  }

  Vec3d mOrigin{}, mScale{};
  VecInt3D mDims{};
  std::vector<u8> mFull;
};

/// Steps in host units.
struct WalkSteps {
  double fine = 1;      ///< inside the medium
  double coarse = 2.5;  ///< in empty space
  double jitter = 1;    ///< the random start's share of a fine step
};

/// Walks a ray to its end. At each place `sample(p)` says whether there is anything; if so,
/// `inside(p, ds)` takes the stretch of length `ds` that ends there and says whether to stop, else
/// `outside(ds)` does. A long step that lands in the medium is taken back and walked again in fine
/// steps. The first stretch is that of the random start: jitter * (1 - u) fine steps.
/// Returns the number of places looked at.
template <class SampleAt, class Inside, class Outside>
i32 Walk(VolumeRay& ray, const WalkSteps& steps, double u, const Occupancy& occupancy,
         SampleAt&& sample, Inside&& inside, Outside&& outside) {
  double ds = 0;
  if (steps.jitter > 0) ds = ray.Advance(steps.fine * steps.jitter * (1 - u));
  bool inEmptySpace = false;
  double refineUntil = -1;
  i32 places = 0;
  for (;;) {
    const Vec3d p = ray.Here();
    ++places;
    if (inEmptySpace && occupancy.IsSet() && occupancy.IsEmptyAt(p)) {
      // The long steps that stay in an empty brick are one.
      if (ray.atEnd) return places;
      const double way = occupancy.DistanceInBrick(p, ray.direction);
      ds = ray.Advance(steps.coarse * std::max(1.0, std::ceil(way / steps.coarse)));
      continue;
    }
    const bool hasAny = sample(p);
    if (hasAny && inEmptySpace) {
      inEmptySpace = false;
      refineUntil = ray.t;
      ray.t -= std::min(ds, steps.coarse);
      ray.atEnd = false;
    } else if (hasAny) {
      if (inside(p, ds)) return places;
    } else if (!inEmptySpace) {
      outside(ds);
      inEmptySpace = ray.t >= refineUntil;
    }
    if (ray.atEnd) return places;
    ds = ray.Advance(inEmptySpace ? steps.coarse : steps.fine);
  }
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
