#include "fluids/pressure/coupled_levels.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kFreePivot = 1e-10;  // below this share of its diagonal a pivot is rounding

void RelaxRow(const SparseRows& m, const std::vector<double>& inverse,
              const std::vector<double>& rhs, i32 i, std::vector<double>& x) {
  double left = rhs[i];
  m.ForEachEntry(i, [&](i32 c, double v) { left -= v * x[c]; });
  x[i] += inverse[i] * left;
}

}  // namespace

void CoupledLevels::FactorLast() {
  const Level& level = mLevels.back();
  const std::size_t n = level.matrix.Rows();
  mLastFactor.clear();
  if (n > kLastRows) return;
  mLastFactor.assign(n * n, 0.0);
  const auto at = [&](std::size_t i, std::size_t j) -> double& { return mLastFactor[i * n + j]; };
  for (std::size_t i = 0; i < n; ++i)
    level.matrix.ForEachEntry(static_cast<i32>(i), [&](i32 c, double v) { at(i, c) = v; });
  for (std::size_t i = 0; i < n; ++i) {
    const double own = at(i, i);
    for (std::size_t j = 0; j < i; ++j)
      for (std::size_t k = 0; k < j; ++k) at(i, j) -= at(i, k) * at(j, k);
    double pivot = own;
    for (std::size_t j = 0; j < i; ++j) {
      const double entry = at(i, j) * at(j, j);
      pivot -= entry * at(i, j);
      at(i, j) = entry;
    }
    // The constant of a closed region is free, and 0 will do.
    at(i, i) = level.inverse[i] != 0 && pivot > kFreePivot * own ? 1 / pivot : 0.0;
  }
}

void CoupledLevels::SolveLast() {
  Level& level = mLevels.back();
  const std::size_t n = level.matrix.Rows();
  if (mLastFactor.empty()) return;
  const auto at = [&](std::size_t i, std::size_t j) { return mLastFactor[i * n + j]; };
  for (std::size_t i = 0; i < n; ++i) {
    double sum = level.rhs[i];
    for (std::size_t j = 0; j < i; ++j) sum -= at(i, j) * level.value[j];
    level.value[i] = sum;
  }
  for (std::size_t i = n; i-- > 0;) {
    level.value[i] *= at(i, i);
    for (std::size_t j = i + 1; j < n; ++j) level.value[i] -= at(j, i) * level.value[j];
  }
}

void CoupledLevels::Relax(Level& level, bool isBackward) {
  const i32 n = level.matrix.Rows();
  for (i32 k = 0; k < n; ++k)
    RelaxRow(level.matrix, level.inverse, level.rhs, isBackward ? n - 1 - k : k, level.value);
}

void CoupledLevels::Descend(std::size_t l, i32 threads) {
  Level& level = mLevels[l];
  const bool isLast = l + 1 == mLevels.size();
  if (isLast && !mLastFactor.empty()) return SolveLast();
  std::fill(level.value.begin(), level.value.end(), 0.0);
  Relax(level, false);
  if (!isLast) {
    Level& next = mLevels[l + 1];
    ForEachRow(level.matrix.Rows(), threads, [&](i32 i) {
      double left = level.rhs[i];
      level.matrix.ForEachEntry(i, [&](i32 c, double v) { left -= v * level.value[c]; });
      level.left[i] = left;
    });
    ForEachRow(next.matrix.Rows(), threads, [&](i32 i) {
      double sum = 0;
      level.up.ForEachEntry(i, [&](i32 c, double v) { sum += v * level.left[c]; });
      next.rhs[i] = sum;
    });
    Descend(l + 1, threads);
    ForEachRow(level.matrix.Rows(), threads, [&](i32 i) {
      level.down.ForEachEntry(i, [&](i32 c, double v) { level.value[i] += v * next.value[c]; });
    });
  }
  Relax(level, true);
}

void CoupledLevels::Correct(const float* left, float* value, i32 threads) {
  const SparseRows &up = mLevels.front().up, &down = mLevels.front().down;
  Level& next = mLevels[1];
  ForEachRow(up.Rows(), threads, [&](i32 i) {
    double sum = 0;
    up.ForEachEntry(i, [&](i32 c, double v) { sum += v * left[mCells[c]]; });
    next.rhs[i] = sum;
  });
  Descend(1, threads);
  ForEachRow(down.Rows(), threads, [&](i32 i) {
    double sum = 0;
    down.ForEachEntry(i, [&](i32 c, double v) { sum += v * next.value[c]; });
    value[mCells[i]] += static_cast<float>(sum);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
