// Conjugate gradients preconditioned by a multigrid cycle.
#pragma once
#include <span>
#include <vector>

#include "fluids/dynamics/lattice_solver.h"
#include "fluids/dynamics/multigrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Solves A x = b for a symmetric positive (semi-)definite A over the cells of a grid whose
/// off-diagonal entries are at most 0. The number of iterations hardly grows with the grid.
class Grid_MultigridSolver : public LatticeSolver {
 public:
  Grid_MultigridSolver() : LatticeSolver(kArrays) {}
  Grid_MultigridSolver(const Grid_MultigridSolver&) : Grid_MultigridSolver() {}
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;

  /// Runs to the tolerance, relative to the largest right-hand side; false when the limit was
  /// reached or the user broke off. Rows without entries stay out of it. The result doesn't depend
  /// on the number of workers. Uses up the right-hand side.
  bool Solve();

  double mResidual = 0;  ///< of the last solve, relative to the largest right-hand side

 private:
  enum OwnArray { kZ = kFirstOwn, kS, kArrays };
  double StartResidual();
  /// x += alpha s, r -= alpha z, and r as the cycle's right-hand side; returns the largest |r|.
  double Descend(double alpha, double scale);
  /// s = value of the cycle + beta s.
  void Redirect(double beta);
  /// z = A s; returns s . z.
  double Multiply();
  template <class F>
  void ForEachLine(F&& f);

  Multigrid mMultigrid;
  std::vector<double> mPartials;  ///< one per layer
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
