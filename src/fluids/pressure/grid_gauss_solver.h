// Gauss-Seidel relaxation.
#pragma once
#include <span>
#include <utility>
#include <vector>

#include "fluids/pressure/lattice_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Relaxes pressures in place, in the order z, y, x inside blocks of 8 z layers whatever the thread
/// count; layers outside a block are read from a snapshot taken before the sweep.
///
/// A cell's coefficients towards its six neighbours are shared with them, so the system is held as
/// a `LatticeMatrix`. A row without entries is no unknown; its pressure is 0.
class Grid_GaussSolver : public LatticeSolver {
 public:
  static constexpr i32 kBlockLayers = 8;

  Grid_GaussSolver() : LatticeSolver(kFirstOwn) {}
  void Reset() override;
  void Refill() override;
  /// Drops the system; the pressures stay unless `full`.
  void Release(bool full) override;
  void Prepare() override;
  /// Asked after every sweep: true for another one, as long as a pressure changed by the tolerance
  /// or more and the limit isn't reached, which is two sweeps above the parameter's number; a
  /// system that is filled anew has it once more.
  bool WantsSweep() const;

  /// One sweep over all cells 1 to n-2; returns the largest change of a pressure, 0 when the user
  /// broke off.
  double Sweep();
  /// Largest residual over the largest right-hand side.
  double MeasureResidual();

  double mChange = 0;  ///< largest change of the last sweep

 private:
  /// From its first sweep on the matrix's diagonal holds inverses.
  void BeginSolve();
  i32 BlockCount() const { return std::max(0, (mDims.z - 1 + kBlockLayers - 1) / kBlockLayers); }
  /// Layers of unknowns of a block, [first, second).
  std::pair<i32, i32> LayersOf(i32 block) const;
  double SweepBlock(i32 block, WaveScratch& scratch);
  void TakeSnapshot(i32 parity, i32 block);
  double* Snapshot(i32 parity, i32 block, bool last);

  bool mSolving = false;
  i64 mLastSweep = 0;  ///< of the solve, by `mIterations`, which a system that is filled anew keeps
  i32 mParity = 0;
  std::vector<double> mSnapshots;  ///< first and last layer of every block, before and after
  std::vector<double> mChanges;    ///< per block
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
