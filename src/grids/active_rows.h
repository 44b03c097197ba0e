// Rows of a grid as `EGrid::UpdateActive` looks at them.
#pragma once
#include <cmath>
#include <type_traits>

#include "host/types.h"

namespace MELDO_GLOBAL {

/// Which values count as data: on faces those that differ from 0 by at least 1e-6, elsewhere those
/// of at least `reference` + 1e-6, which are limited to `maximum`. All others become `reference`.
template <class T>
struct ActiveRule {
  bool face;
  T reference;
  double threshold;
  T maximum;

  bool IsData(T v) const { return face ? !(std::abs(double(v)) < 1e-6) : double(v) >= threshold; }
};

/// What a row needs.
struct ActiveRow {
  bool hasData;
  bool isUnclean;  ///< a value must change
};

// Both loops are free of branches, so that they run on whole registers, and write nothing where
// nothing changes: in a field at rest the pass is a read.
template <class T>
inline ActiveRow LookAtRow(const T* __restrict row, i32 n, const ActiveRule<T>& rule) {
  using Bits = std::conditional_t<sizeof(T) == 8, i64, i32>;
  Bits data = 0, unclean = 0;
  if (rule.face) {
    for (i32 x = 0; x < n; ++x) {
      const T v = row[x];
      const Bits noise = std::abs(double(v)) < 1e-6 ? 1 : 0;
      data |= noise ^ 1;
      unclean |= noise & (v != T(0) ? 1 : 0);
    }
  } else {
    const double threshold = rule.threshold;
    const T reference = rule.reference, maximum = rule.maximum;
    for (i32 x = 0; x < n; ++x) {
      const T v = row[x];
      const Bits isData = double(v) >= threshold ? 1 : 0;
      data |= isData;
      unclean |= (isData & (v > maximum ? 1 : 0)) | ((isData ^ 1) & (v != reference ? 1 : 0));
    }
  }
  return {data != 0, unclean != 0};
}

template <class T>
inline void CleanRow(T* __restrict row, i32 n, const ActiveRule<T>& rule) {
  if (rule.face) {
    for (i32 x = 0; x < n; ++x) row[x] = std::abs(double(row[x])) < 1e-6 ? T(0) : row[x];
    return;
  }
  const double threshold = rule.threshold;
  const T reference = rule.reference, maximum = rule.maximum;
  for (i32 x = 0; x < n; ++x) {
    const T v = row[x];
    const T limited = v > maximum ? maximum : v;
    row[x] = double(v) >= threshold ? limited : reference;
  }
}

}  // namespace MELDO_GLOBAL
