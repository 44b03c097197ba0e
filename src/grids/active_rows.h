// Rows of a grid as `EGrid::UpdateActive` looks at them.
#pragma once
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "host/types.h"

namespace MELDO_GLOBAL {

/// Which values count as data: on faces those that differ from 0 by at least 1e-6, elsewhere those
/// of at least `reference` + 1e-6, which are limited to `maximum`. All others become `reference`,
/// but for NaN, which is data as it is: a statistic will tell of it.
template <class T>
struct ActiveRule {
  bool face;
  T reference;
  T threshold;  ///< the smallest T that counts
  T maximum;

  ActiveRule(bool isFace, double min, double max)
      : face(isFace), reference(isFace ? T(0) : static_cast<T>(min)) {
    const double bound = static_cast<double>(reference) + 1e-6;
    threshold = static_cast<T>(bound);
    if (threshold < bound) threshold = std::nextafter(threshold, std::numeric_limits<T>::max());
    maximum = static_cast<T>(max);
  }
  bool IsData(T v) const { return face ? !(v < threshold && v > -threshold) : !(v < threshold); }
};

/// What a row needs.
struct ActiveRow {
  bool hasData;
  bool isUnclean;  ///< a value must change
};

/// Looks at a row without writing: in a field at rest the pass is a read. The compiler doesn't
/// vectorise a loop that folds comparisons, so the lanes are spelled out, as wide as every target
/// of this build compares at once.
template <bool kFace, class T>
inline ActiveRow LookAtLanes(const T* row, i32 n, const ActiveRule<T>& rule) {
  constexpr i32 kBytes = 16, lanes = kBytes / sizeof(T);
  using Values [[gnu::vector_size(kBytes)]] = T;
  using Word = std::conditional_t<sizeof(T) == 8, i64, i32>;
  using Mask [[gnu::vector_size(kBytes)]] = Word;
  const Values threshold = Values{} + rule.threshold, reference = Values{} + rule.reference,
               maximum = Values{} + rule.maximum;
  Mask data{}, unclean{};
  const auto bits = [](const Values& v) { return std::bit_cast<Mask>(v); };
  const auto look = [&](const T* at) {
    Values v;
    std::memcpy(&v, at, sizeof v);
    // What the value would become, compared by its bits.
    Mask isData, cleaned;
    if constexpr (kFace) {
      const Mask magnitude = bits(v) & std::numeric_limits<Word>::max();
      isData = ~(std::bit_cast<Values>(magnitude) < threshold);
      cleaned = bits(v);
    } else {
      isData = ~(v < threshold);
      cleaned = bits(v > maximum ? maximum : v);
    }
    cleaned = (isData & cleaned) | (~isData & bits(reference));
    data |= isData;
    unclean |= cleaned ^ bits(v);
  };
  i32 x = 0;
  for (; x + lanes <= n; x += lanes) look(row + x);
  if (x < n) {
    // Lanes beyond the end repeat the last value.
    T rest[lanes];
    for (i32 i = 0; i < lanes; ++i) rest[i] = row[x + i < n ? x + i : n - 1];
    look(rest);
  }
  bool hasData = false, isUnclean = false;
  for (i32 i = 0; i < lanes; ++i) {
    hasData = hasData || data[i];
    isUnclean = isUnclean || unclean[i];
  }
  return {hasData, isUnclean};
}

template <class T>
inline ActiveRow LookAtRow(const T* row, i32 n, const ActiveRule<T>& rule) {
  return rule.face ? LookAtLanes<true>(row, n, rule) : LookAtLanes<false>(row, n, rule);
}

template <class T>
inline void CleanRow(T* __restrict row, i32 n, const ActiveRule<T>& rule) {
  const T threshold = rule.threshold, reference = rule.reference, maximum = rule.maximum;
  if (rule.face) {
    for (i32 x = 0; x < n; ++x) row[x] = std::abs(row[x]) < threshold ? T(0) : row[x];
    return;
  }
  for (i32 x = 0; x < n; ++x) {
    const T v = row[x];
    const T limited = v > maximum ? maximum : v;
    row[x] = v < threshold ? reference : limited;
  }
}

}  // namespace MELDO_GLOBAL
