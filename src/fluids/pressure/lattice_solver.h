// What the linear solvers over the cells of a grid share.
#pragma once
#include <span>
#include <vector>

#include "fluids/pressure/lattice_matrix.h"
#include "fluids/pressure/line_kernels.h"
#include "framework/iobject.h"
#include "grids/staggered_arrays.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Iteration limit and tolerance of the linear solvers.
struct SolverAccuracy {
  i32 maxIterations = 200;
  double tolerance = 1e-8;
};
/// The tolerance of the accuracy slider: 0 gives 0.01, below 0.1 gives 1e-3, ... 1 gives 1e-13.
double ToleranceOfSlider(double slider);

/// A system A x = b for a symmetric A over the cells of a grid, and its memory, which is kept from
/// solve to solve.
class LatticeSolver : public iObject {
 public:
  /// Zeroes right-hand side and matrix, with `mClearResult` the result too.
  void Reset() override;
  /// Zeroes right-hand side and matrix, to be filled again; the result stays.
  virtual void Refill();
  /// Drops the system; its memory is kept for the next one unless `full`.
  void Release(bool full) override;
  void Finish() override { Release(false); }

  LatticeMatrix& GetMatrix() { return mMatrix; }
  /// By cell; empty without a system.
  std::span<double> GetRhs() const { return mHasSystem ? View(kRhs) : std::span<double>(); }

  /// By cell; empty without memory. Kept from the last system when it was dropped.
  std::span<double> GetResult() const { return View(kResult); }

  iObject* mOwner = nullptr;  ///< without it `Prepare` leaves the solver inactive
  VecInt3D mDims{};           ///< cells; set by the owner before `Prepare`
  i32 mThreads = 1;           ///< workers; set by the owner before `Prepare`
  SolverAccuracy mAccuracy;
  bool mClearResult = true;
  i32 mIterations = 0;  ///< of the last solve

 protected:
  enum Array { kRhs, kResult, kFirstOwn };

  /// A solver with `arrays` arrays of a number per cell, the first two being those above.
  explicit LatticeSolver(i32 arrays) : mArrays(arrays, 4) {}

  /// An empty system of `mDims` cells; false, and inactive, without an owner. std::bad_alloc
  /// without memory.
  bool PrepareSystem();
  std::span<double> View(i32 array) const {
    return mArrays[array]
               ? std::span<double>(mArrays[array], static_cast<std::size_t>(mArrays.Length()))
               : std::span<double>();
  }

  /// Unknowns without a row become 0.
  void ZeroMissingResults();

  LatticeMatrix mMatrix;
  StaggeredArrays mArrays;
  bool mHasSystem = false;
  std::vector<WaveScratch> mScratch;  ///< one per worker

 private:
  void ZeroArrays();
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
