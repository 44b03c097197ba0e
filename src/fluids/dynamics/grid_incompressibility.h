// The projection: velocity without divergence, up to a wanted source.
#pragma once
#include <vector>

#include "fluids/channels/channel.h"
#include "fluids/dynamics/grid_cg_solver.h"
#include "fluids/dynamics/grid_gauss_solver.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class FluidSolver;
class VolumeBase;

/// What a projection left behind, for the statistics.
struct ProjectionReport {
  i32 iterations = 0;
  double residual = 0;  ///< largest residual of the linear system over its largest right-hand side
};

/// Makes the owner's velocity divergence-free on the cut cells that the face fractions tell, and
/// couples moving bodies. Driven by its owner through its six passes.
class Grid_Incompressibility : public iObject {
 public:
  Grid_Incompressibility() { mPassCount = 6; }
  Grid_Incompressibility(const Grid_Incompressibility& other);
  bool ReadParameters(void* context = nullptr) override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void Reset() override;
  void Release(bool full) override;
  bool NextPass() override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  virtual void BuildSystem(const EvaluationThreadData& block);
  virtual void ComputeMeanShift();
  virtual void ApplyMeanShift(const EvaluationThreadData& block);
  virtual void SubtractGradient(const EvaluationThreadData& block);
  virtual void AddBodyCoupling(const EvaluationThreadData& block);

  /// Reports since the last call, one per projection.
  std::vector<ProjectionReport> TakeReports();
  /// Largest absolute residual, in 1/s, of the balance that the last projection solved, over the
  /// cells 1 to n-2 with an open face: source, moving solids and mean shift included.
  double DivergenceMax() const { return mDivergenceMax; }

  FluidSolver* mSolver = nullptr;
  bool mCompatibility = false;  ///< subtract the mean of the right-hand side
  Grid_CGSolver mCG;
  Grid_GaussSolver mGauss;

 protected:
  ScalarField* mDensityChannel = nullptr;
  std::vector<VolumeBase*> mBodies;
  Duration* mDuration = nullptr;
  i32 mLinearSolver = 1;  ///< 0 conjugate gradients, 1 Gauss-Seidel
  double mMinTheta = 0.01;
  double mDensity = 1.23;
  double mDivergenceMax = 0;
  std::vector<ProjectionReport> mReports;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
