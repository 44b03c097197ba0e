// Conjugate gradients with a modified incomplete Cholesky preconditioner.
#pragma once
#include <atomic>
#include <memory>
#include <span>
#include <vector>

#include "fluids/pressure/conjugate_gradients.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Solves A x = b for a symmetric positive (semi-)definite A over the cells of a grid.
///
/// The preconditioner is a modified incomplete Cholesky factor of level 0 (Gustafsson 1978): fill
/// that level 0 drops goes to the diagonal, weighed by `mModification`. Since no dropped entry has
/// a place in the pattern, the factor's off-diagonal entries are those of the matrix times a
/// diagonal scaling, and only that diagonal is stored.
class Grid_CGSolver : public ConjugateGradients {
 public:
  Grid_CGSolver() : ConjugateGradients(kArrays) {}
  void Release(bool full) override;
  void Prepare() override;

  void AddToElement(i32 row, i32 column, double value) { mMatrix.AddToElement(row, column, value); }
  /// The inverse squares of the factor's diagonal, made by `Solve`; 0 in rows without entries.
  std::span<double> GetFactor() const { return mHasSystem ? View(kFactor) : std::span<double>(); }

  double mModification = 0.97;
  double mMinDiagonalRatio = 0.25;

 private:
  SolveEnd Iterate(i32 limit) override;
  enum OwnArray { kFactor = kFirstOfMethod, kArrays };
  void FormPreconditioner();
  /// r -= alpha z, then the lower half of z = M^-1 r; returns the largest |r|.
  double Forward(double alpha);
  /// The upper half of z = M^-1 r; returns z . r.
  double Backward();
  /// x += alpha s, then s = z + beta s.
  void Advance(double alpha, double beta);
  template <class F>
  void RunWavefront(bool reversed, F&& f);
  i32 SlabCount() const { return std::max(0, (mDims.z - 2 + kWaveLines - 1) / kWaveLines); }

  /// Waves done in a slab, on a line of its own.
  struct alignas(64) Progress {
    std::atomic<i32> waves{0};
  };
  std::unique_ptr<Progress[]> mProgress;
  i32 mProgressCount = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
