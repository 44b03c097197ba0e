// Sand and other grains in the flow of a liquid.
#pragma once
#include <array>
#include <memory>
#include <vector>

#include "fluids/flow/flow_cells.h"
#include "fluids/solvers/fluid_solver.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What the cells of grains do in a step.
enum GrainKind : u32 {
  kGrainYields = 0,
  kGrainUntouched = 2,
  kGrainRigid = 3,
  kFirstCluster = 4,  ///< and up: the number of the rigid body that a cell is part of
};

/// Makes the liquid of a solver grains (Zhu and Bridson 2005), in stage 11, behind the projection
/// and before particles take what has become of the velocity.
///
/// A cell's strain rate D would be stopped by the stress s = rho h^2 / dt D. Where friction bears
/// that, sqrt(3) |s| below slope p + cohesion with the pressure p of the projection, the cell is
/// rigid, and cells that hang together by their sides go on as one rigid body, with the momentum
/// and the angular momentum that they have. Elsewhere it yields, against a friction of sqrt(3) f p
/// that opposes D. Solids hold what slides along them by Coulomb's law. Nothing depends on the
/// number of workers.
class Grid_Sand : public iObject {
 public:
  static constexpr i32 kTypeId = 0;
  Grid_Sand(host::BaseNode* node, Scene* scene) : iObject(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSolverRow = 1000, kDensityRow = 1001, kFrictionRow = 1002,
                       kCohesionRow = 1003, kYieldRow = 1004, kWallFrictionRow = 1005;
  ConstraintList* Constraints() override { return &mConstraints; }
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Release(bool full) override;

  /// `GrainKind` by cell, of the last step; null before the first.
  const Grid<u32>* Kinds() const { return mKinds.get(); }
  i32 Clusters() const { return static_cast<i32>(mClusters.size()); }

 private:
  enum Stress { kXX, kYY, kZZ, kXY, kXZ, kYZ, kStresses };
  using Strain = std::array<double, kStresses>;

  Strain StrainAt(i32 x, i32 y, i32 z) const;
  double DensityOf(i32 cell) const;
  void Classify(i32 y, i32 z, i32 worker);
  void FindClusters();
  void MoveCluster(const std::vector<i32>& cells);
  void Rub();
  double Rubbed(i32 axis, const VecInt3D& face) const;
  void HoldAtSolids();
  double Held(i32 axis, const VecInt3D& face) const;
  /// Replaces velocities by what change(axis, face) makes of the old ones.
  template <class F>
  void ChangeFaces(F&& change);
  VecInt3D CellOf(i32 index) const;
  EGrid<double>& Velocity(i32 axis) const { return *mFlow->mVelocity.GetGridForWrite(axis); }

  double mFriction = 0.9;
  double mCohesion = 0.1;
  double mYield = 50;
  double mWallFriction = 0.9;
  FluidSolver* mSolver = nullptr;
  ScalarField* mDensityChannel = nullptr;
  ConstraintList mConstraints;

  std::array<std::unique_ptr<EGrid<double>>, kStresses> mStress;
  std::unique_ptr<Grid<u32>> mKinds;
  std::vector<std::vector<i32>> mClusters;  ///< cells by index, each in the order of its finding

  // Of the running step.
  Flow* mFlow = nullptr;
  CellSamples mDensities;
  std::span<const double> mPressure;
  VecInt3D mCells{};
  double mCellSize = 0, mStep = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
