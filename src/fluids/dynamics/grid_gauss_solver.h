// Gauss-Seidel relaxation.
#pragma once
#include <span>
#include <utility>
#include <vector>

#include "fluids/dynamics/grid_cg_solver.h"
#include "fluids/dynamics/lattice_matrix.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Relaxes pressures in place, in the order z, y, x inside blocks of 8 z layers whatever the thread
/// count; layers outside a block are read from a snapshot taken before the sweep.
///
/// A cell's coefficients towards its six neighbours are shared with them, so the system is held as
/// a `LatticeMatrix`. A row without entries is no unknown; its pressure is 0.
class Grid_GaussSolver : public iObject {
 public:
  static constexpr i32 kBlockLayers = 8;

  Grid_GaussSolver() { mPassCount = 1; }
  Grid_GaussSolver(const Grid_GaussSolver&) : Grid_GaussSolver() {}
  bool ReadParameters(void* context = nullptr) override;
  /// Zeroes right-hand side and matrix, with `mClearResult` the pressures too.
  void Reset() override;
  /// Drops the system; the pressures stay, and memory is kept for the next one unless `full`.
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  /// Asked after every sweep: true for another one, as long as a pressure changed by the tolerance
  /// or more and the limit isn't reached, which is two sweeps above the parameter's number.
  bool NextPass() override;
  void Finish() override { Release(false); }

  /// One sweep over all cells 1 to n-2; returns the largest change of a pressure, 0 when the user
  /// broke off.
  double Sweep();
  /// Largest residual over the largest right-hand side.
  double MeasureResidual();

  LatticeMatrix& GetMatrix() { return mMatrix; }
  /// By cell; empty without a system.
  std::span<double> GetRhs() const { return View(kRhs, mHasSystem); }
  /// By cell; empty before the first system.
  std::span<double> GetPressure() const { return View(kPressure, true); }

  iObject* mOwner = nullptr;  ///< without it `Prepare` leaves the solver inactive
  VecInt3D mDims{};           ///< cells; set by the owner before `Prepare`
  i32 mThreads = 1;           ///< workers; set by the owner before `Prepare`
  SolverAccuracy mAccuracy;
  bool mClearResult = true;
  i32 mIterations = 0;  ///< sweeps of the last solve
  double mChange = 0;   ///< largest change of the last sweep

 private:
  enum Array { kPressure, kRhs, kArrays };
  std::span<double> View(Array a, bool there) const {
    return mArrays[a] && there
               ? std::span<double>(mArrays[a], static_cast<std::size_t>(mArrays.Length()))
               : std::span<double>();
  }
  void BeginSolve();
  i32 BlockCount() const { return std::max(0, (mDims.z - 1 + kBlockLayers - 1) / kBlockLayers); }
  /// Layers of unknowns of a block, [first, second).
  std::pair<i32, i32> LayersOf(i32 block) const;
  double SweepBlock(i32 block, WaveScratch& scratch);
  void TakeSnapshot(i32 parity, i32 block);
  double* Snapshot(i32 parity, i32 block, bool last);

  LatticeMatrix mMatrix;  ///< from the first sweep on its diagonal holds inverses
  StaggeredArrays mArrays{kArrays, 4};
  bool mHasSystem = false;
  bool mSolving = false;
  i32 mParity = 0;
  std::vector<double> mSnapshots;  ///< first and last layer of every block, before and after
  std::vector<double> mChanges;    ///< per block
  std::vector<WaveScratch> mScratch;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
