#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "fluids/pressure/coupled_levels.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMostLevels = 20;         // more than any matrix that still coarsens takes
constexpr double kStrong = 0.08;        // theta
constexpr double kDamping = 2.0 / 3.0;  // omega, of the Jacobi step over couplings of row sum 0
constexpr double kRounding = 1e-12;     // below this share of its parts a diagonal is nothing
constexpr double kRuled = 0.2;          // couplings over the diagonal, below which they don't count

/// A matrix A and what its coarsening asks for again and again.
struct Fine {
  const SparseRows& matrix;
  std::vector<double> diagonal;

  /// f(j, a_ij) for the strong couplings of row i: a_ij^2 > theta^2 a_ii a_jj.
  template <class F>
  void ForEachStrong(i32 i, F&& f) const {
    const double least = kStrong * kStrong * diagonal[i];
    matrix.ForEachEntry(i, [&](i32 c, double v) {
      if (c != i && v * v > least * diagonal[c]) f(c, v);
    });
  }
  /// Its own diagonal rules a row: smoothing solves it, no coarse level need.
  bool IsRuledByItself(i32 i) const {
    double beside = 0;
    matrix.ForEachEntry(i, [&](i32 c, double v) { beside += c == i ? 0.0 : std::fabs(v); });
    return !(beside > kRuled * diagonal[i]);
  }
};

std::vector<double> DiagonalOf(const SparseRows& m, i32 threads) {
  std::vector<double> diagonal(m.Rows(), 0.0);
  ForEachRow(m.Rows(), threads, [&](i32 i) {
    m.ForEachEntry(i, [&](i32 c, double v) {
      if (c == i) diagonal[i] = v;
    });
  });
  return diagonal;
}

constexpr i32 kNone = -1, kLeftOut = -2;

/// Makes a row and those of its strong neighbours that are free the aggregate `count`.
void Gather(const Fine& fine, i32 row, i32 count, std::vector<i32>& of) {
  of[row] = count;
  fine.ForEachStrong(row, [&](i32 c, double) {
    if (of[c] == kNone) of[c] = count;
  });
}

/// Neighbourhoods of strong couplings that are free as a whole become aggregates; returns their
/// number.
i32 GatherWhole(const Fine& fine, std::vector<i32>& of) {
  i32 count = 0;
  for (i32 i = 0; i < fine.matrix.Rows(); ++i) {
    if (of[i] != kNone) continue;
    bool isFree = true, isAlone = true;
    fine.ForEachStrong(i, [&](i32 c, double) {
      isFree &= of[c] < 0;
      isAlone = false;
    });
    if (isFree && !isAlone) Gather(fine, i, count++, of);
  }
  return count;
}

/// The aggregate of each row, or `kLeftOut`; returns their number.
i32 Aggregate(const Fine& fine, i32 threads, std::vector<i32>& of) {
  const i32 n = fine.matrix.Rows();
  of.resize(n);
  ForEachRow(n, threads, [&](i32 i) { of[i] = fine.IsRuledByItself(i) ? kLeftOut : kNone; });
  i32 count = GatherWhole(fine, of);
  // What lies between joins the one that it hangs on most, as they stand now.
  const std::vector<i32> whole = of;
  ForEachRow(n, threads, [&](i32 i) {
    if (whole[i] != kNone) return;
    double most = 0;
    fine.ForEachStrong(i, [&](i32 c, double v) {
      if (whole[c] < 0 || std::fabs(v) <= most) return;
      most = std::fabs(v);
      of[i] = whole[c];
    });
  });
  for (i32 i = 0; i < n; ++i)
    if (of[i] == kNone) Gather(fine, i, count++, of);
  return count;
}

/// P = (I - omega D^-1 A_F) T: constants T over the aggregates, smoothed over the strong couplings;
/// in A_F the weak ones count to the diagonal D.
SparseRows FormDown(const Fine& fine, const std::vector<i32>& of, i32 threads) {
  return FormRows(fine.matrix.Rows(), threads, [&](i32 i, RowSum& sum) {
    double own = 0, couplings = 0;
    fine.matrix.ForEachEntry(i, [&](i32, double v) { own += v; });
    fine.ForEachStrong(i, [&](i32, double v) {
      own -= v;
      couplings += std::fabs(v);
    });
    const bool isSmoothed = couplings > 0 && own > kRounding * fine.diagonal[i];
    if (of[i] >= 0) sum.Add(of[i], isSmoothed ? 1.0 - kDamping : 1.0);
    if (!isSmoothed) return;
    fine.ForEachStrong(i, [&](i32 c, double v) {
      if (of[c] >= 0) sum.Add(of[c], -kDamping * v / own);
    });
  });
}

SparseRows Transposed(const SparseRows& m, i32 columns) {
  SparseRows out;
  out.start.assign(columns + 1, 0);
  for (const i32 c : m.column) ++out.start[c + 1];
  for (i32 c = 0; c < columns; ++c) out.start[c + 1] += out.start[c];
  out.column.resize(m.column.size());
  out.entry.resize(m.entry.size());
  std::vector<i64> next(out.start.begin(), out.start.end() - 1);
  for (i32 i = 0; i < m.Rows(); ++i)
    m.ForEachEntry(i, [&](i32 c, double v) {
      out.column[next[c]] = i;
      out.entry[next[c]++] = v;
    });
  return out;
}

SparseRows Product(const SparseRows& a, const SparseRows& b, i32 threads) {
  return FormRows(a.Rows(), threads, [&](i32 i, RowSum& sum) {
    a.ForEachEntry(i, [&](i32 k, double v) {
      b.ForEachEntry(k, [&](i32 c, double w) { sum.Add(c, v * w); });
    });
  });
}

/// Inverse diagonals; 0 where only rounding is left of what the fine diagonals brought in: a closed
/// region that has become one coarse cell, and whose constant is free.
std::vector<double> InverseOf(const SparseRows& m, const SparseRows& up,
                              const std::vector<double>& fineDiagonal, i32 threads) {
  std::vector<double> inverse = DiagonalOf(m, threads);
  ForEachRow(m.Rows(), threads, [&](i32 i) {
    double parts = 0;
    up.ForEachEntry(i, [&](i32 c, double w) { parts += w * w * fineDiagonal[c]; });
    inverse[i] = inverse[i] > kRounding * parts ? 1 / inverse[i] : 0.0;
  });
  return inverse;
}

}  // namespace

SparseRows CoupledLevels::TakeMatrix(const LatticeMatrix& matrix, double scale, i32 threads) {
  const double* diagonal = matrix.Diagonal();
  std::vector<i32> rowOf(matrix.Rows(), -1);
  mCells.clear();
  for (i32 c = 0; c < matrix.Rows(); ++c)
    if (diagonal[c] > 0) {
      rowOf[c] = static_cast<i32>(mCells.size());
      mCells.push_back(c);
    }
  return FormRows(static_cast<i32>(mCells.size()), threads, [&](i32 i, RowSum& sum) {
    const i32 c = mCells[i];
    sum.Add(i, scale * diagonal[c]);
    for (i32 axis = 0; axis < 3; ++axis) {
      const i32 offset = matrix.Offset(axis);
      const double below = matrix.Upper(axis)[c - offset], above = matrix.Upper(axis)[c];
      if (below != 0 && rowOf[c - offset] >= 0) sum.Add(rowOf[c - offset], scale * below);
      if (above != 0 && rowOf[c + offset] >= 0) sum.Add(rowOf[c + offset], scale * above);
    }
  });
}

bool CoupledLevels::Coarsen(Level& fine, Level& coarse, i32 threads) {
  const i32 n = fine.matrix.Rows();
  const Fine view{fine.matrix, DiagonalOf(fine.matrix, threads)};
  std::vector<i32> of;
  const i32 count = Aggregate(view, threads, of);
  if (mLevels.size() > 1 && count > n * 9LL / 10) return false;
  fine.down = FormDown(view, of, threads);
  fine.up = Transposed(fine.down, count);
  coarse.matrix = Product(fine.up, Product(fine.matrix, fine.down, threads), threads);
  coarse.inverse = InverseOf(coarse.matrix, fine.up, view.diagonal, threads);
  for (std::vector<double>* array : {&coarse.value, &coarse.rhs, &coarse.left})
    array->assign(count, 0.0);
  return true;
}

bool CoupledLevels::Build(const LatticeMatrix& matrix, double scale, i32 threads) try {
  mLevels.assign(1, Level());
  mLevels.front().matrix = TakeMatrix(matrix, scale, threads);
  while (mLevels.size() < kMostLevels) {
    if (mLevels.size() > 1 && mLevels.back().matrix.Rows() <= kLastRows) break;
    Level coarse;
    if (!Coarsen(mLevels.back(), coarse, threads)) break;
    mLevels.push_back(std::move(coarse));
  }
  mLevels.front().matrix = {};
  FactorLast();
  return true;
} catch (const std::bad_alloc&) {
  Free();
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
