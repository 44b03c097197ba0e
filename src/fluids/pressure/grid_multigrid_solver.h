// Conjugate gradients preconditioned by a multigrid cycle.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "fluids/pressure/conjugate_gradients.h"
#include "fluids/pressure/multigrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Solves A x = b for a symmetric positive (semi-)definite A over the cells of a grid whose
/// off-diagonal entries are at most 0. The number of iterations hardly grows with the grid. Levels
/// on the grid lead; a solve that they hardly bring forward goes on with levels that follow the
/// couplings.
class Grid_MultigridSolver : public ConjugateGradients {
 public:
  Grid_MultigridSolver() : ConjugateGradients(kArrays) {}
  void Release(bool full) override;
  void Prepare() override;

 private:
  enum { kArrays = kFirstOfMethod };
  SolveEnd Iterate(i32 limit) override;
  /// x += alpha s, r -= alpha z, and r as the cycle's right-hand side; returns the largest |r|.
  double Descend(double alpha, double scale);
  /// s = value of the cycle + beta s, z = A s; returns s . z.
  double RedirectAndMultiply(double beta);
  /// At the pace of the last iterations many more are to come.
  bool IsSlow() const;

  bool mHasLevels = false;        ///< of the system at hand
  std::array<double, 5> mPast{};  ///< residuals of the last iterations, by their number modulo 5
  Multigrid mMultigrid;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
