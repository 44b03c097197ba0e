// The eight faces of a component of a staggered velocity about a point.
#pragma once
#include <algorithm>
#include <array>
#include <cmath>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Where points lie among the faces of one axis, or the samples of another kind, for linear
/// interpolation. Beyond the outermost ones these count.
class FaceStencil {
 public:
  FaceStencil() = default;
  /// Of a grid of `kind` (of an axis for faces) over the cells of `layout`, two on each axis at
  /// least.
  FaceStencil(const GridLayout& layout, i32 kind) : mOffset(OffsetOf(kind)) {
    const VecInt3D n = layout.dims + ExtraOf(kind);
    mLast = n - VecInt3D{2, 2, 2};
    mStrideY = n.x;
    mStrideZ = n.x * n.y;
  }

  /// The corners of a point and their weights.
  struct Place {
    i32 first, ny, nz;
    double x[2], y[2], z[2];

    double Sample(const double* u) const {
      const double* c = u + first;
      return z[0] *
                 (y[0] * (x[0] * c[0] + x[1] * c[1]) + y[1] * (x[0] * c[ny] + x[1] * c[ny + 1])) +
             z[1] * (y[0] * (x[0] * c[nz] + x[1] * c[nz + 1]) +
                     y[1] * (x[0] * c[nz + ny] + x[1] * c[nz + ny + 1]));
    }
    /// How a sample changes along the axes, per cell.
    Vec3d Slope(const double* u) const {
      const double *c = u + first, *d = c + nz;
      const double low[4] = {c[0], c[ny], d[0], d[ny]};
      const double high[4] = {c[1], c[ny + 1], d[1], d[ny + 1]};
      double mid[4];
      for (i32 i = 0; i < 4; ++i) mid[i] = x[0] * low[i] + x[1] * high[i];
      const double along = z[0] * (y[0] * (high[0] - low[0]) + y[1] * (high[1] - low[1])) +
                           z[1] * (y[0] * (high[2] - low[2]) + y[1] * (high[3] - low[3]));
      return {along, z[0] * (mid[1] - mid[0]) + z[1] * (mid[3] - mid[2]),
              y[0] * (mid[2] - mid[0]) + y[1] * (mid[3] - mid[1])};
    }
    /// Adds the weights to those of the corners.
    void AddWeights(double* weights) const {
      for (i32 k = 0; k < 2; ++k)
        for (i32 j = 0; j < 2; ++j) {
          const i32 c = first + k * nz + j * ny;
          weights[c] += z[k] * y[j] * x[0];
          weights[c + 1] += z[k] * y[j] * x[1];
        }
    }
    /// `Add` of a value that changes by `slope` per cell from the point on.
    void AddSloped(double value, const Vec3d& slope, double* sums, double* weights) const {
      for (i32 k = 0; k < 2; ++k)
        for (i32 j = 0; j < 2; ++j) {
          const i32 c = first + k * nz + j * ny;
          const double w = z[k] * y[j], w0 = w * x[0], w1 = w * x[1];
          const double at = value + slope.y * (j - y[1]) + slope.z * (k - z[1]);
          sums[c] += w0 * (at - slope.x * x[1]);
          sums[c + 1] += w1 * (at + slope.x * x[0]);
          weights[c] += w0;
          weights[c + 1] += w1;
        }
    }
    /// Adds the weights to those of the corners, and the value times them to `sums`.
    void Add(double value, double* sums, double* weights) const {
      for (i32 k = 0; k < 2; ++k)
        for (i32 j = 0; j < 2; ++j) {
          const i32 c = first + k * nz + j * ny;
          const double w = z[k] * y[j], w0 = w * x[0], w1 = w * x[1];
          sums[c] += w0 * value;
          sums[c + 1] += w1 * value;
          weights[c] += w0;
          weights[c + 1] += w1;
        }
    }
  };

  /// `p` is in cells of the layout.
  Place At(const Vec3d& p) const {
    Place place{.first = 0, .ny = mStrideY, .nz = mStrideZ, .x = {}, .y = {}, .z = {}};
    place.first = Along(p.x - mOffset.x, mLast.x, place.x) +
                  Along(p.y - mOffset.y, mLast.y, place.y) * mStrideY +
                  Along(p.z - mOffset.z, mLast.z, place.z) * mStrideZ;
    return place;
  }

 private:
  static i32 Along(double s, i32 last, double (&weights)[2]) {
    const double limited = std::clamp(s, 0.0, last + 1.0);
    const i32 low = std::min(static_cast<i32>(limited), last);
    weights[1] = limited - low;
    weights[0] = 1 - weights[1];
    return low;
  }

  Vec3d mOffset{};
  VecInt3D mLast{};
  i32 mStrideY = 0, mStrideZ = 0;
};

/// Those of the three axes.
class FaceStencils {
 public:
  explicit FaceStencils(const GridLayout& layout)
      : mAxes{FaceStencil(layout, 0), FaceStencil(layout, 1), FaceStencil(layout, 2)} {}
  const FaceStencil& operator[](i32 axis) const { return mAxes[axis]; }

 private:
  std::array<FaceStencil, 3> mAxes;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
