// Registers that hold the numbers of several points side by side.
#pragma once
#include <cstddef>
#include <cstring>
#include <initializer_list>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Points whose corners lie side by side are taken together: a smooth flow leaves neighbours
/// together, and what they load lies in a row.
inline constexpr i32 kRun = 4;
typedef double RunLanes __attribute__((vector_size(kRun * sizeof(double))));

inline bool IsRun(const i32* index) {
  return index[1] - index[0] == 1 && index[2] - index[0] == 2 && index[3] - index[0] == 3;
}

/// value = the numbers from `p` on, one per lane. By reference, since lanes that the baseline has
/// no registers for can't be returned.
template <class T>
inline __attribute__((always_inline)) void Load(const double* p, T& value) {
  std::memcpy(&value, p, sizeof(T));
}
template <class T>
inline __attribute__((always_inline)) void Store(const T& value, double* p) {
  std::memcpy(p, &value, sizeof(T));
}

/// Numbers that lie side by side from a place on, one per lane.
struct SideBySide {
  const double* p;

  template <class T>
  inline __attribute__((always_inline)) void LoadPair(std::ptrdiff_t offset, T& value,
                                                      T& next) const {
    Load(p + offset, value);
    Load(p + offset + 1, next);
  }
};

/// Numbers at a place of its own for each lane.
struct Scattered {
  const double* data;
  const i32* index;

  inline __attribute__((always_inline)) void LoadPair(std::ptrdiff_t offset, RunLanes& value,
                                                      RunLanes& next) const {
    typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
    Pair pair[kRun];
    for (int lane = 0; lane < kRun; ++lane)
      std::memcpy(&pair[lane], data + offset + index[lane], sizeof(Pair));
    const RunLanes even = __builtin_shufflevector(pair[0], pair[2], 0, 1, 2, 3);
    const RunLanes odd = __builtin_shufflevector(pair[1], pair[3], 0, 1, 2, 3);
    value = __builtin_shufflevector(even, odd, 0, 4, 2, 6);
    next = __builtin_shufflevector(even, odd, 1, 5, 3, 7);
  }
};

/// out = the trilinear means at the places `x`, `y`, `z` between the corners at `from` and its
/// neighbours, which lie `ny` and `nz` numbers off.
template <class T, class From>
inline __attribute__((always_inline)) void LerpCorners(const From& from, std::ptrdiff_t ny,
                                                       std::ptrdiff_t nz, const T& x, const T& y,
                                                       const T& z, double* out) {
  T low, lowY, high, highY, next;
  from.LoadPair(0, low, next);
  low += (next - low) * x;
  from.LoadPair(ny, lowY, next);
  lowY += (next - lowY) * x;
  from.LoadPair(nz, high, next);
  high += (next - high) * x;
  from.LoadPair(nz + ny, highY, next);
  highY += (next - highY) * x;
  low += (lowY - low) * y;
  high += (highY - high) * y;
  low += (high - low) * z;
  Store(low, out);
}

/// The extremes of the eight corners.
template <class T, class From>
inline __attribute__((always_inline)) void FindCornerExtremes(const From& from, std::ptrdiff_t ny,
                                                              std::ptrdiff_t nz, T& least,
                                                              T& most) {
  const auto widen = [&](const T& v) __attribute__((always_inline)) {
    least = v < least ? v : least;
    most = v > most ? v : most;
  };
  T v, next;
  from.LoadPair(0, least, next);
  most = least;
  widen(next);
  for (const std::ptrdiff_t offset : {ny, nz, nz + ny}) {
    from.LoadPair(offset, v, next);
    widen(v);
    widen(next);
  }
}

/// Calls f(i, corners) for the points of a row, `kRun` at a time as far as that goes, with where
/// their corners are read: `one` gets the rest, one by one.
template <class Lanes, class One>
inline __attribute__((always_inline)) void ForEachRun(const double* data, const i32* index, i32 n,
                                                      Lanes&& lanes, One&& one) {
  i32 i = 0;
  for (; i + kRun <= n; i += kRun) {
    if (IsRun(index + i))
      lanes(i, SideBySide{data + index[i]});
    else
      lanes(i, Scattered{data, index + i});
  }
  for (; i < n; ++i) one(i, SideBySide{data + index[i]});
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
