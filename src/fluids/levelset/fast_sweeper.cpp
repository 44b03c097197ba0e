#include "fluids/levelset/fast_sweeper.h"

#include <vector>

#include "fluids/levelset/diagonal_rows.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// What a neighbour of value `b` makes of a sample `a` above or at 0. The circle through two
/// neighbours, which a steeper pair would ask for, never lies below `a` itself.
template <class T>
T Lowered(T a, T b, T h) {
  return std::min(a, b + h);
}
/// The mirror image for a sample below 0.
template <class T>
T Raised(T a, T b, T h) {
  return std::max(a, b - h);
}

template <class T>
T Updated(T a, T b, T h, i32 mode) {
  using Sweeper = FastSweeper<T>;
  if (mode == Sweeper::kPositive) return a < 0 ? a : Lowered(a, b, h);
  if (mode == Sweeper::kNegative) return a >= 0 ? a : Raised(a, b, h);
  return a >= 0 ? Lowered(a, b, h) : Raised(a, b, h);
}

/// The four rows that a row depends on: its own, and those a step back in y, in z and in both.
template <class T>
struct Rows {
  T* own;
  const T* y;
  const T* z;
  const T* yz;
};

template <class T>
void SweepRowInOrder(const Rows<T>& r, i32 first, i32 last, i32 di, T h, i32 mode) {
  for (i32 x = first; x != last; x += di) {
    const i32 back = x - di;
    T a = r.own[x];
    for (const T b : {r.own[back], r.y[x], r.y[back], r.z[x], r.z[back], r.yz[x], r.yz[back]})
      a = Updated(a, b, h, mode);
    r.own[x] = a;
  }
}

/// The positive side where no neighbour reaches below 0: the order of the neighbours is then
/// without effect, and those of finished rows are gathered first, in vector code.
template <class T>
void SweepRowDown(const Rows<T>& r, i32 nx, i32 first, i32 last, i32 di, T h, T* __restrict best) {
  const i32 low = std::max(0, di), high = nx + std::min(0, di);
  T lowest = 0;
  for (i32 x = low; x < high; ++x) {
    const T near = std::min({r.y[x], r.z[x], r.yz[x]});
    const T far = std::min({r.y[x - di], r.z[x - di], r.yz[x - di]});
    best[x] = std::min(near, far) + h;
    lowest = std::min(lowest, best[x]);
  }
  if (lowest < 0) return SweepRowInOrder(r, first, last, di, h, i32{FastSweeper<T>::kPositive});
  for (i32 x = first; x != last; x += di) {
    const T a = r.own[x];
    if (a < 0) continue;
    const T ahead = r.own[x - di] + h;
    if (ahead < 0) {
      r.own[x] = ahead;
      continue;
    }
    r.own[x] = std::min(a, std::min(best[x], ahead));
  }
}

}  // namespace

template <class T>
void FastSweeper<T>::SweepOn(i32 threads, i32 di, i32 dj, i32 dk, i32 mode) const {
  EGrid<T>& grid = *mGrid;
  const i32 nx = grid.mNx, ny = grid.mNy, nz = grid.mNz;
  if (!grid.mData || nx < 2 || ny < 2 || nz < 2) return;
  const T h = grid.mLayout.cellSize;
  const i32 firstX = di > 0 ? 1 : nx - 2, lastX = di > 0 ? nx : -1;
  const i32 rowsY = ny - 1, rowsZ = nz - 1;
  std::vector<T> best(static_cast<size_t>(nx) * std::min(rowsY, rowsZ));

  const auto row = [&](i32 m, i32 n, T* gathered) {
    const i32 y = dj > 0 ? 1 + m : ny - 2 - m, z = dk > 0 ? 1 + n : nz - 2 - n;
    const Rows<T> rows{&grid(0, y, z), &grid(0, y - dj, z), &grid(0, y, z - dk),
                       &grid(0, y - dj, z - dk)};
    if (mode == kPositive)
      SweepRowDown(rows, nx, firstX, lastX, di, h, gathered);
    else
      SweepRowInOrder(rows, firstX, lastX, di, h, mode);
  };
  ForEachDiagonalRow(rowsY, rowsZ, nx, threads, mThread, [&](i32 m, i32 n, i32 slot) {
    row(m, n, best.data() + static_cast<size_t>(slot) * nx);
  });
}

template <class T>
void FastSweeper<T>::Run(bool threaded, i32 rounds, i32 mode) const {
  const i32 threads = threaded ? std::min(host::ThreadCount(), 8) : 1;
  for (i32 round = 0; round < rounds; ++round)
    for (const auto& [i, j, k] : kSweepDirections) SweepOn(threads, i, j, k, mode);
}

template class FastSweeper<double>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
