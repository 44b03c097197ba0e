// Registers that hold the numbers of several points side by side.
#pragma once
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

/// value += (the numbers from `p` on - value) * t.
template <class T>
inline __attribute__((always_inline)) void LerpTo(const double* p, const T& t, T& value) {
  T other;
  Load(p, other);
  value += (other - value) * t;
}

/// out = the trilinear means at the places `x`, `y`, `z` between the corners at `p` and its
/// neighbours, which lie `ny` and `nz` numbers off.
template <class T>
inline __attribute__((always_inline)) void LerpCorners(const double* p, i32 ny, i32 nz, const T& x,
                                                       const T& y, const T& z, double* out) {
  const double* q = p + nz;
  T low, lowY, high, highY;
  Load(p, low);
  Load(p + ny, lowY);
  Load(q, high);
  Load(q + ny, highY);
  LerpTo(p + 1, x, low);
  LerpTo(p + ny + 1, x, lowY);
  LerpTo(q + 1, x, high);
  LerpTo(q + ny + 1, x, highY);
  low += (lowY - low) * y;
  high += (highY - high) * y;
  low += (high - low) * z;
  Store(low, out);
}

/// The extremes of the eight corners.
template <class T>
inline __attribute__((always_inline)) void FindCornerExtremes(const double* p, i32 ny, i32 nz,
                                                              T& least, T& most) {
  T v;
  Load(p, least);
  most = least;
  for (const i32 corner : {1, ny, ny + 1, nz, nz + 1, nz + ny, nz + ny + 1}) {
    Load(p + corner, v);
    least = v < least ? v : least;
    most = v > most ? v : most;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
