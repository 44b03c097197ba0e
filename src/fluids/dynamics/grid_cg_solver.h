// Conjugate gradients with a modified incomplete Cholesky preconditioner.
#pragma once
#include <atomic>
#include <memory>
#include <span>
#include <vector>

#include "fluids/dynamics/lattice_matrix.h"
#include "fluids/dynamics/line_kernels.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Iteration limit and tolerance of the linear solvers, from parameters 1021 and 1022.
struct SolverAccuracy {
  i32 maxIterations = 200;
  double tolerance = 1e-8;
};
/// The tolerance of the accuracy slider: 0 gives 0.01, below 0.1 gives 1e-3, ... 1 gives 1e-13.
double ToleranceOfSlider(double slider);

/// Solves A x = b for a symmetric positive (semi-)definite A over the cells of a grid.
///
/// The preconditioner is a modified incomplete Cholesky factor of level 0 (Gustafsson 1978): fill
/// that level 0 drops goes to the diagonal, weighed by `mModification`. Since no dropped entry has
/// a place in the pattern, the factor's off-diagonal entries are those of the matrix times a
/// diagonal scaling, and only that diagonal is stored.
class Grid_CGSolver : public iObject {
 public:
  Grid_CGSolver() = default;
  Grid_CGSolver(const Grid_CGSolver&) : iObject() {}
  bool ReadParameters(void* context = nullptr) override;
  /// Zeroes right-hand side and matrix, with `mClearResult` the result too.
  void Reset() override;
  /// Empties the system; its memory is kept for the next one unless `full`.
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  void Finish() override { Release(false); }

  /// Runs to the tolerance, relative to the largest right-hand side; false when the limit was
  /// reached or the user broke off. Rows without entries stay out of it. The result doesn't depend
  /// on the number of workers. Uses up the right-hand side.
  bool Solve();

  void AddToElement(i32 row, i32 column, double value) { mMatrix.AddToElement(row, column, value); }
  LatticeMatrix& GetMatrix() { return mMatrix; }
  /// By row; empty without a system.
  std::span<double> GetRhs() const { return View(kRhs); }
  std::span<double> GetResult() const { return View(kResult); }
  /// The inverse squares of the factor's diagonal, made by `Solve`; 0 in rows without entries.
  std::span<double> GetFactor() const { return View(kFactor); }

  iObject* mOwner = nullptr;  ///< without it `Prepare` leaves the solver inactive
  VecInt3D mDims{};           ///< cells; set by the owner before `Prepare`
  i32 mThreads = 1;           ///< workers; set by the owner before `Prepare`
  SolverAccuracy mAccuracy;
  bool mClearResult = true;
  double mModification = 0.97;
  double mMinDiagonalRatio = 0.25;
  i32 mIterations = 0;   ///< of the last solve
  double mResidual = 0;  ///< of the last solve, relative to the largest right-hand side

 private:
  enum Array { kRhs, kResult, kFactor, kZ, kS, kArrays };
  std::span<double> View(Array a) const {
    return mArrays[a] && mHasSystem
               ? std::span<double>(mArrays[a], static_cast<std::size_t>(mArrays.Length()))
               : std::span<double>();
  }
  double StartResidual();
  void FormPreconditioner();
  void DropEntriesToMissingRows();
  /// r -= alpha z, then the lower half of z = M^-1 r; returns the largest |r|.
  double Forward(double alpha);
  /// The upper half of z = M^-1 r; returns z . r.
  double Backward();
  /// x += alpha s, then s = z + beta s.
  void Advance(double alpha, double beta);
  /// z = A s; returns s . z.
  double Multiply();
  template <class F>
  void ForEachLine(F&& f);
  template <class F>
  void RunWavefront(bool reversed, F&& f);
  i32 SlabCount() const { return std::max(0, (mDims.z - 2 + kWaveLines - 1) / kWaveLines); }

  LatticeMatrix mMatrix;
  StaggeredArrays mArrays{kArrays, 4};
  bool mHasSystem = false;
  std::vector<double> mPartials;  ///< one per layer or slab
  std::vector<WaveScratch> mScratch;
  /// Waves done in a slab, on a line of its own.
  struct alignas(64) Progress {
    std::atomic<i32> waves{0};
  };
  std::unique_ptr<Progress[]> mProgress;
  i32 mProgressCount = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
