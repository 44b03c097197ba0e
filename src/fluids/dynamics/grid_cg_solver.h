// Conjugate gradients with a modified incomplete Cholesky preconditioner.
#pragma once
#include <vector>

#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Iteration limit and tolerance of the linear solvers, from parameters 1021 and 1022.
struct SolverAccuracy {
  i32 maxIterations = 200;
  double tolerance = 1e-8;
};
/// The tolerance of the accuracy slider: 0 gives 0.01, below 0.1 gives 1e-3, ... 1 gives 1e-13.
double ToleranceOfSlider(double slider);

/// A symmetric matrix on a lattice: every row couples to the rows at fixed offsets, so the entries
/// are one column of values per offset. The pattern is told before rows are filled.
class LatticeMatrix {
 public:
  /// `offsets` holds 0 and pairs of +-o. Zeroes all entries.
  void SetPattern(i32 rows, std::vector<i32> offsets);
  void Zero();
  i32 Rows() const { return mRows; }
  /// Adds to an entry; `column - row` must be in the pattern. Safe across rows.
  void AddToElement(i32 row, i32 column, double value);
  /// The column of entries (row, row + offset).
  double* Band(i32 offset);
  const double* Band(i32 offset) const;
  const std::vector<i32>& Offsets() const { return mOffsets; }

 private:
  i32 mRows = 0;
  std::vector<i32> mOffsets;
  std::vector<std::vector<double>> mBands;
};

/// Solves A x = b for a symmetric positive (semi-)definite A.
class Grid_CGSolver : public iObject {
 public:
  Grid_CGSolver() = default;
  Grid_CGSolver(const Grid_CGSolver&) : iObject() {}
  bool ReadParameters(void* context = nullptr) override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  void Finish() override { Release(false); }

  /// Runs to the tolerance, relative to the largest right-hand side; false when the limit was
  /// reached. Loops run on up to `threads` workers; the result doesn't depend on their number.
  bool Solve(i32 threads);

  void AddToElement(i32 row, i32 column, double value) { mMatrix.AddToElement(row, column, value); }
  LatticeMatrix& GetMatrix() { return mMatrix; }
  std::vector<double>& GetRhs() { return mRhs; }
  const std::vector<double>& GetResult() const { return mResult; }

  iObject* mOwner = nullptr;     ///< without it `Prepare` leaves the solver inactive
  i32 mRows = 0;                 ///< set by the owner before `Prepare`
  std::vector<i32> mOffsets;     ///< pattern, set by the owner before `Prepare`
  SolverAccuracy mAccuracy;
  bool mClearResult = true;
  double mModification = 0.97;
  double mMinDiagonalRatio = 0.25;
  i32 mIterations = 0;           ///< of the last solve
  double mResidual = 0;          ///< of the last solve, relative to the largest right-hand side

 private:
  LatticeMatrix mMatrix;
  std::vector<double> mRhs, mResult, mInvDiag, mZ, mS, mR;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
