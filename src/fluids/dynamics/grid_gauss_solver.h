// Gauss-Seidel relaxation without a matrix.
#pragma once
#include <array>
#include <memory>
#include <vector>

#include "fluids/dynamics/grid_cg_solver.h"
#include "framework/iobject.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Coefficients of a cell's six neighbours: -x, +x, -y, +y, -z, +z. All zero: no unknown.
using GaussVoxel = std::array<double, 6>;

/// Relaxes pressures in place, in blocks of 8 z layers whatever the thread count; layers outside a
/// block are read from a snapshot taken before the sweep.
class Grid_GaussSolver : public iObject {
 public:
  static constexpr i32 kBlockLayers = 8;

  Grid_GaussSolver() { mPassCount = 1; }
  Grid_GaussSolver(const Grid_GaussSolver&) : iObject() {}
  bool ReadParameters(void* context = nullptr) override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  bool NextPass() override;
  void Finish() override { Release(false); }

  /// One sweep over all cells 1 to n-2; returns the largest change of a pressure.
  double Sweep(i32 threads);

  iObject* mOwner = nullptr;
  VecInt3D mDims{};              ///< cell counts, set by the owner before `Prepare`
  SolverAccuracy mAccuracy;
  bool mClearResult = true;
  i32 mIterations = 0;           ///< sweeps of the last solve
  std::unique_ptr<Grid<double>> mPressure;
  std::unique_ptr<Grid<double>> mRhs;
  std::unique_ptr<Grid<GaussVoxel>> mCoefficients;
  double mChange = 0;            ///< largest change of the last sweep
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
