// Coarse levels that follow the couplings of a matrix, where no grid does.
#pragma once
#include <vector>

#include "fluids/pressure/lattice_matrix.h"
#include "fluids/pressure/sparse_rows.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The coarse half of a multigrid cycle by smoothed aggregation (Vanek, Mandel and Brezina 1996):
/// cells that strong couplings join become one coarse cell, corrections go down by piecewise
/// constants that a damped Jacobi step over the strong couplings has smoothed, and coarse matrices
/// are those of the fine ones between such corrections. It follows winding corridors and parts
/// rooms with narrow doors, at a price: it is slower to form and to run than levels on a grid.
///
/// Levels are smoothed by Gauss-Seidel, in the opposite order on the way back, on one thread; the
/// rest runs on many, with sums that don't depend on their number.
class CoupledLevels {
 public:
  /// Forms the levels below a matrix whose entries count `scale` times; false without memory.
  bool Build(const LatticeMatrix& matrix, double scale, i32 threads);
  void Free() { *this = {}; }

  /// Adds to `value` the correction for what is left over on the finest level, both by cell of the
  /// lattice. Symmetric and positive semi-definite.
  void Correct(const float* left, float* value, i32 threads);

 private:
  struct Level {
    SparseRows matrix;  ///< of the finest level, only while it is formed
    std::vector<double> inverse;
    SparseRows down;  ///< from the next level to this one
    SparseRows up;    ///< its transpose
    std::vector<double> value, rhs, left;
  };

  static constexpr i32 kLastRows = 160;  ///< solved at once

  SparseRows TakeMatrix(const LatticeMatrix& matrix, double scale, i32 threads);
  /// Forms the way between two levels and the coarse matrix; false when little would be gained.
  bool Coarsen(Level& fine, Level& coarse, i32 threads);
  void FactorLast();
  void SolveLast();
  static void Relax(Level& level, bool isBackward);
  void Descend(std::size_t level, i32 threads);

  std::vector<i32> mCells;  ///< of the lattice, by row of the finest level
  std::vector<Level> mLevels;
  std::vector<double> mLastFactor;  ///< L D L^T of the last level, D^-1 on the diagonal
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
