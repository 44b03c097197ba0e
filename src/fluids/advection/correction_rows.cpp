#include "fluids/advection/correction_rows.h"

#include <algorithm>

#include "fluids/advection/run_lanes.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

inline __attribute__((always_inline)) double Lane(double value, int) { return value; }
inline __attribute__((always_inline)) double Lane(const RunLanes& value, int lane) {
  return value[lane];
}
inline __attribute__((always_inline)) void SetLane(double& value, int, double to) { value = to; }
inline __attribute__((always_inline)) void SetLane(RunLanes& value, int lane, double to) {
  value[lane] = to;
}

template <class T>
inline constexpr int kLanesOf = sizeof(T) / sizeof(double);

/// Whether any of the lanes has a mark.
template <class T>
inline __attribute__((always_inline)) bool IsMarked(const u8* marks) {
  u8 all = 0;
  for (int lane = 0; lane < kLanesOf<T>; ++lane) all |= marks[lane];
  return all != 0;
}

/// What a correction is, and what it makes.
template <class T>
struct Corrected {
  T before, predicted, whole, value;
};

/// The extremes of the samples round a start that lies at one of them along some axis. Which of its
/// neighbours a path starts from is for rounding to say there, so both sides count.
void FindExtremesAt(const double* middle, const CorrectedRow& row, u8 marks, double& least,
                    double& most) {
  std::ptrdiff_t first[3];
  for (i32 a = 0; a < 3; ++a) first[a] = marks & (CorrectedRow::kAtX << a) ? -1 : 0;
  least = most = *middle;
  for (std::ptrdiff_t z = first[2]; z < 2; ++z)
    for (std::ptrdiff_t y = first[1]; y < 2; ++y)
      for (std::ptrdiff_t x = first[0]; x < 2; ++x) {
        const double value = middle[x + y * row.ny + z * row.nz];
        least = std::min(least, value);
        most = std::max(most, value);
      }
}

/// The samples that limit a value.
template <class T, class From>
inline __attribute__((always_inline)) void FindLimits(const CorrectedRow& row, const From& from,
                                                      i32 i, T& least, T& most) {
  FindCornerExtremes(from, row.ny, row.nz, least, most);
  if (IsMarked<T>(row.marks + i))
    for (int lane = 0; lane < kLanesOf<T>; ++lane)
      if (row.marks[i + lane] & CorrectedRow::kAtAny) {
        double low, high;
        FindExtremesAt(row.limits + row.corners[i + lane], row, row.marks[i + lane], low, high);
        SetLane(least, lane, low);
        SetLane(most, lane, high);
      }
}

template <class T, class From>
inline __attribute__((always_inline)) void CorrectLanes(const CorrectedRow& row, const From& from,
                                                        i32 i, Corrected<T>& c) {
  T returned, least, most;
  Load(row.before + i, c.before);
  Load(row.predicted + i, c.predicted);
  Load(row.returned + i, returned);
  c.whole = row.share * (c.before - returned);
  c.value = c.predicted + c.whole;
  FindLimits(row, from, i, least, most);
  c.value = most < c.value ? most : c.value;
  c.value = least > c.value ? least : c.value;
}

/// Sums in lanes of their own.
template <class T>
struct CorrectionLanes {
  T whole, up, down, lost;
};

template <class T>
inline __attribute__((always_inline)) void AddLanes(const CorrectedRow& row, i32 i, Corrected<T>& c,
                                                    CorrectionLanes<T>& sums) {
  T left = c.value - c.predicted, thin = c.predicted;
  if (row.thinning) {
    T factor;
    Load(row.thinning + i, factor);
    c.whole *= factor;
    left *= factor;
    thin *= factor;
  }
  T lost = c.before - thin;
  if (IsMarked<T>(row.marks + i))
    for (int lane = 0; lane < kLanesOf<T>; ++lane)
      if (row.marks[i + lane] & CorrectedRow::kSolid)
        for (T* term : {&c.whole, &left, &lost}) SetLane(*term, lane, 0);
  const T none{};
  sums.lost += lost;
  sums.whole += c.whole;
  sums.up += left > 0 ? left : none;
  sums.down += left > 0 ? none : left;
}

template <class T>
inline __attribute__((always_inline)) void StoreLanes(const CorrectedRow& row, i32 i,
                                                      Corrected<T>& c, double* out) {
  if (IsMarked<T>(row.marks + i))
    for (int lane = 0; lane < kLanesOf<T>; ++lane)
      if (row.marks[i + lane] & CorrectedRow::kSolid) SetLane(c.value, lane, Lane(c.before, lane));
  Store(c.value, out + i);
}

/// The prediction stands where a mark tells so.
template <class T>
inline __attribute__((always_inline)) void Withdraw(const u8* marks, Corrected<T>& c) {
  if (!IsMarked<T>(marks)) return;
  for (int lane = 0; lane < kLanesOf<T>; ++lane) {
    if (!(marks[lane] & CorrectedRow::kUncorrected)) continue;
    SetLane(c.value, lane, Lane(c.predicted, lane));
    SetLane(c.whole, lane, 0);
  }
}

/// Calls add(i, what was corrected) for all samples, whose values are written behind it.
template <class F>
inline __attribute__((always_inline)) void CorrectEach(const CorrectedRow& row, i32 n, double* out,
                                                       F&& add) {
  const auto correct = [&]<class T>(i32 i, const auto& from, Corrected<T> c)
      __attribute__((always_inline)) {
    CorrectLanes(row, from, i, c);
    Withdraw(row.marks + i, c);
    add(i, c);
    StoreLanes(row, i, c, out);
  };
  ForEachRun(
      row.limits, row.corners, n,
      [&](i32 i, const auto& from)
          __attribute__((always_inline)) { correct(i, from, Corrected<RunLanes>{}); },
      [&](i32 i, const auto& from)
          __attribute__((always_inline)) { correct(i, from, Corrected<double>{}); });
}

}  // namespace

SULVA_WIDE_KERNEL void LimitRow(const CorrectedRow& row, bool isHighest, i32 n,
                                double* __restrict out) {
  const CorrectedRow own = row;
  const auto find = [&]<class T>(i32 i, const auto& from, T least) __attribute__((always_inline)) {
    T most;
    FindLimits(own, from, i, least, most);
    Store(isHighest ? most : least, out + i);
  };
  ForEachRun(
      own.limits, own.corners,
      n, [&](i32 i, const auto& from) __attribute__((always_inline)) { find(i, from, RunLanes{}); },
      [&](i32 i, const auto& from) __attribute__((always_inline)) { find(i, from, double{}); });
}

SULVA_WIDE_KERNEL void CorrectRow(const CorrectedRow& row, i32 n, double* __restrict out) {
  const CorrectedRow own = row;
  CorrectEach(own, n, out, [](i32, auto&) __attribute__((always_inline)){});
}

SULVA_WIDE_KERNEL void CorrectAndSumRow(const CorrectedRow& row, i32 n, double* __restrict out,
                                        Correction& sums) {
  const CorrectedRow own = row;
  // Four running sums, whatever the registers; the samples that no run holds go to the first.
  CorrectionLanes<RunLanes> lanes{};
  CorrectEach(
      own, n, out, [&]<class T>(i32 i, Corrected<T> & c) __attribute__((always_inline)) {
        if constexpr (kLanesOf < T >> 1) {
          AddLanes(own, i, c, lanes);
        } else {
          CorrectionLanes<double> one{};
          AddLanes(own, i, c, one);
          lanes.whole[0] += one.whole;
          lanes.up[0] += one.up;
          lanes.down[0] += one.down;
          lanes.lost[0] += one.lost;
        }
      });
  const auto all = [](const RunLanes& s) __attribute__((always_inline)) {
    return (s[0] + s[1]) + (s[2] + s[3]);
  };
  sums.whole += all(lanes.whole);
  sums.up += all(lanes.up);
  sums.down += all(lanes.down);
  sums.lost += all(lanes.lost);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
