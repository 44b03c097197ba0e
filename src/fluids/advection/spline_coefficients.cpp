#include "fluids/advection/spline_coefficients.h"

#include <vector>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kBeside = 0.125;  ///< weight of the neighbours at a sample; the rest is its own

/// The elimination of a line of n samples: a tridiagonal system with constant rows but for its
/// ends.
struct Elimination {
  std::vector<double> scale, upper;

  explicit Elimination(i32 n) : scale(n), upper(n) {
    for (i32 i = 0; i < n; ++i) {
      const i32 ends = (i == 0) + (i == n - 1);
      const double own = 1 - 2 * kBeside + ends * kBeside;
      scale[i] = 1 / (own - (i > 0 ? kBeside * upper[i - 1] : 0.0));
      upper[i] = kBeside * scale[i];
    }
  }

  /// Solves `width` lines that lie side by side; `step` leads along them.
  void Solve(double* first, i32 width, std::ptrdiff_t step) const {
    const i32 n = static_cast<i32>(scale.size());
    for (i32 i = 0; i < n; ++i) {
      double* row = first + i * step;
      const double* before = row - (i > 0 ? step : 0);
      const double s = scale[i], w = i > 0 ? kBeside : 0.0;
      for (i32 x = 0; x < width; ++x) row[x] = (row[x] - w * before[x]) * s;
    }
    for (i32 i = n - 2; i >= 0; --i) {
      double* row = first + i * step;
      for (i32 x = 0; x < width; ++x) row[x] -= upper[i] * row[x + step];
    }
  }
};

}  // namespace

void FindSplineCoefficients(const Grid<double>& samples, i32 threads, Grid<double>& coefficients) {
  const i32 nx = samples.mNx, ny = samples.mNy, nz = samples.mNz;
  const Elimination alongX(nx), alongY(ny), alongZ(nz);
  double* data = coefficients.mData;
  ForEachBlock(nz, threads, [&](i32 z) {
    const std::ptrdiff_t layer = std::ptrdiff_t{1} * z * samples.mSlice;
    std::copy_n(samples.mData + layer, samples.mSlice, data + layer);
    for (i32 y = 0; y < ny; ++y) alongX.Solve(data + layer + y * nx, 1, 1);
    alongY.Solve(data + layer, nx, nx);
  });
  ForEachBlock(ny, threads, [&](i32 y) { alongZ.Solve(data + y * nx, nx, samples.mSlice); });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
