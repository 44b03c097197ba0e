// The implicit viscosity of a flow.
#pragma once
#include <memory>
#include <utility>
#include <vector>

#include "fluids/flow/flow_cells.h"
#include "fluids/flow/grid_cellstates.h"
#include "fluids/pressure/viscous_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How thick a fluid is, and how heavy.
struct ViscousFluid {
  double viscosity = 0;                        ///< dynamic, Pa s
  const EGrid<double>* viscosities = nullptr;  ///< by cell, in the place of the one above
  double density = 1;                          ///< kg/m^3
  const EGrid<double>* densities = nullptr;    ///< by cell, in the place of the one above
};

/// What a viscous solve left behind, for the statistics.
struct ViscosityReport {
  i32 iterations = 0;
  double residual = 0;  ///< largest that is left over the largest right-hand side
  double wallSeconds = 0;
};

/// Lets a step of viscosity act on the velocity of a flow, by backward Euler: of all velocities u
/// of the open faces it is the one with the least
///
///   1/2 integral of rho |u - u0|^2 + dt integral of 2 mu e(u):e(u),    e = (grad u + grad u^T) /
///   2,
///
/// over the fluid (Batty and Bridson 2008), so that viscosity may vary, a free surface bears no
/// stress and what turns rigidly turns on. Volumes of a liquid are counted about each face, edge
/// and cell; it goes on into solids as it is beside them. Solids are met where their distance is 0
/// between a face in the fluid and one in the solid, and hold what touches them (Gibou, Fedkiw,
/// Cheng and Kang 2002). Beyond an open side nothing holds or drives the fluid.
class Grid_Viscosity {
 public:
  /// False, and the velocity as it was, where fields are missing or there is nothing to do.
  /// std::bad_alloc without memory.
  bool Apply(Flow& flow, const ViscousFluid& fluid);
  void Release();
  /// Reports since the last call, one per solve.
  std::vector<ViscosityReport> TakeReports() { return std::exchange(mReports, {}); }

  SolverAccuracy mAccuracy{100, 2e-4};

 private:
  struct Edge;
  struct Pair;
  bool MeasureSurface(const Flow& flow);
  void FindRoles(i32 z);
  FaceRole RoleOf(i32 axis, const VecInt3D& at) const;
  void FillCells(i32 z);
  void FillEdges(i32 z);
  void FillFaces(i32 z);
  void AddCutEdge(i32 axis, i32 across, const VecInt3D& face, bool isAbove);
  double SpeedBeside(i32 axis, const VecInt3D& face) const;
  void AddCellMotion(i32 axis, const VecInt3D& face);
  Pair PairAt(i32 axis, i32 across, const VecInt3D& upper) const;
  bool IsCut(i32 axis, i32 across, i32 upper) const;
  double EdgeTerm(i32 axis, const VecInt3D& edge) const;
  double CellViscosity(const VecInt3D& cell) const;
  double FaceDensity(i32 axis, const VecInt3D& face) const;
  double SolidDistance(i32 axis, const VecInt3D& face) const;
  double SolidVelocity(i32 axis, const Vec3d& place, const VecInt3D& face) const;
  bool IsOutermost(const VecInt3D& face) const;
  void WriteBack(Flow& flow, i32 z) const;

  ViscousSolver mSolver;
  Grid_Cellstates mStates;
  Grid_VolumeFractions mVolumes;
  std::unique_ptr<EGrid<double>> mSurface;  ///< a liquid's, continued into solids
  std::vector<ViscosityReport> mReports;

  // Of the running solve.
  const Flow* mFlow = nullptr;
  ViscousFluid mFluid;
  VecInt3D mCells{};
  double mFactor = 0;   ///< dt / h^2
  bool mMoves = false;  ///< a solid does
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
