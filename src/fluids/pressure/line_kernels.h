// Loops over lines of cells along x, shared by the linear solvers.
#pragma once
#include <algorithm>
#include <bit>
#include <limits>
#include <vector>

#include "fluids/pressure/lattice_matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Doubles of a cache line. The waves walk too many arrays at once for the processor to foresee, so
/// the kernels ask for the lines of the next wave a cache line at a time.
inline constexpr i32 kCacheLine = 8;

/// |v| as a whole number in the same order; 0 for a NaN. Maxima of whole numbers vectorise, and
/// those of floating-point numbers don't.
inline i64 MagnitudeKey(double v) {
  const i64 key = std::bit_cast<i64>(v) & std::numeric_limits<i64>::max();
  const i64 kept = key <= std::bit_cast<i64>(std::numeric_limits<double>::infinity()) ? -1 : 0;
  return key & kept;
}

/// Sum of a[i] b[i], in four interleaved partial sums.
double DotLine(const double* a, const double* b, i32 n);
/// Largest |a[i]|.
double MaxLine(const double* a, i32 n);

/// The bands and the neighbour distances of a matrix, from one cell on.
struct Bands {
  const double* diagonal;
  const double* upper[3];
  i32 ny, nz;  ///< distance of neighbours along y and z

  Bands(const LatticeMatrix& m, i32 cell)
      : diagonal(m.Diagonal() + cell),
        upper{m.Upper(0) + cell, m.Upper(1) + cell, m.Upper(2) + cell},
        ny(m.Offset(1)),
        nz(m.Offset(2)) {}
};

/// z = A s on a line.
void MultiplyLine(const Bands& m, const double* __restrict s, double* __restrict z, i32 n);

/// A first-order recurrence along a line: v[i] = a[i] - b[i] v[i - 1].
struct LineRecurrence {
  const double* a = nullptr;
  const double* b = nullptr;
  double* v = nullptr;
};

/// Runs up to `kWaveLines` recurrences side by side over `n` cells, so that their latencies
/// overlap; `step` is 1, or -1 to run from the last cell down. Values beyond the ends count as 0.
void RunRecurrences(const LineRecurrence* lines, i32 count, i32 n, i32 step);

/// Room for the terms of the lines of one wave; one per worker.
class WaveScratch {
 public:
  void Resize(i32 lineLength) {
    mStride = lineLength + 8;
    mTerms.resize(static_cast<std::size_t>(2 * kWaveLines) * mStride);
  }
  double* A(i32 line) { return mTerms.data() + 2 * line * mStride; }
  double* B(i32 line) { return mTerms.data() + (2 * line + 1) * mStride; }

 private:
  i32 mStride = 0;
  std::vector<double> mTerms;
};

/// The lines with rows among (1 + t - k, z0 + k) for z0 <= z < z1, up to `kWaveLines` of them, and
/// the cells [first, last) that hold all their rows.
struct Wave {
  struct Place {
    i32 y, z, base;
  };
  Place lines[kWaveLines];
  i32 count = 0;
  i32 first = 0, last = 0;
};

/// Calls f(wave) for wave `t` of the slab of layers [z0, z1), in groups of at most `kWaveLines`
/// lines.
template <class F>
void ForEachWaveGroup(const LatticeMatrix& matrix, i32 t, i32 z0, i32 z1, F&& f) {
  Wave wave;
  const i32 ny = matrix.Dims().y;
  const auto flush = [&] {
    if (wave.count > 0) f(static_cast<const Wave&>(wave));
    wave = {};
  };
  for (i32 z = z0; z < z1; ++z) {
    const i32 y = 1 + t - (z - z0);
    if (y < 1 || y >= ny - 1) continue;
    const LatticeMatrix::Line& line = matrix.LineAt(y, z);
    if (line.IsEmpty()) continue;
    wave.first = wave.count ? std::min(wave.first, line.first) : line.first;
    wave.last = wave.count ? std::max(wave.last, line.last) : line.last;
    wave.lines[wave.count++] = {y, z, line.base};
    if (wave.count == kWaveLines) flush();
  }
  flush();
}

/// Waves of a slab of `layers` layers in a grid of `ny` cells along y.
inline i32 WaveCount(i32 ny, i32 layers) { return std::max(0, ny - 2) + layers - 1; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
