// A velocity and its slopes at points.
#pragma once
#include <array>
#include <span>

#include "fluids/flow/ifluid_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The vector field that a link names, or the velocity of a solver, looked at between its samples.
class VelocityProbe {
 public:
  /// A vector channel or a solver.
  void Connect(std::span<const host::LinkTarget> targets);
  bool IsEmpty() const { return !mField && !mSolver; }
  /// Takes the grids as they are now; false where there are none.
  bool Open();

  /// `p` (simulation units) lies in the box of the field and, of a liquid, below its surface.
  bool Holds(const Vec3d& p) const;
  Vec3d At(const Vec3d& p) const;
  /// The slope of component `i` along axis `a`, 1/s, by central differences: over one cell along
  /// the component's own axis, where its faces lie, over two along the others.
  double Slope(const Vec3d& p, i32 i, i32 a) const;
  double CellSize() const { return mCellSize; }

 private:
  VectorField* mField = nullptr;
  iFluidSolver* mSolver = nullptr;
  std::array<const EGrid<double>*, 3> mGrids{};
  const EGrid<double>* mSurface = nullptr;
  double mCellSize = 1;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
