// The equations of a viscous step, solved.
#pragma once
#include <array>
#include <memory>
#include <vector>

#include "fluids/pressure/lattice_solver.h"
#include "fluids/pressure/viscous_level.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Conjugate gradients in double precision, led by a multigrid cycle in single precision over
/// levels of cells that are twice as wide, down to one whose equations are factorised. The matrix
/// of each level comes of the same terms, with the volumes of what it holds of the finer one.
/// Nothing depends on the number of workers.
class ViscousSolver {
 public:
  /// An empty system for `cells` cells. std::bad_alloc without memory.
  void Begin(const VecInt3D& cells, i32 threads);
  void Free();
  /// The finest level, to be filled; its indices are those of all vectors.
  ViscousLevel& Finest() { return *mLevels.front(); }
  const ViscousLevel& Finest() const { return *mLevels.front(); }
  /// Right-hand sides and velocities of an axis. The solve begins from these velocities, or from
  /// rest where less is left to do from there; those of fixed faces and beyond are to be 0.
  double* Rhs(i32 axis) { return mArrays[kLeft + axis]; }
  double* Velocity(i32 axis) { return mArrays[kVelocity + axis]; }

  /// Runs until the largest residual is at most `tolerance` times the largest right-hand side, or
  /// for `maxIterations`; false when something else ended it.
  bool Solve(const SolverAccuracy& accuracy);

  i32 mIterations = 0;   ///< of the last solve
  double mResidual = 0;  ///< that it left, relative

 private:
  enum Array { kVelocity, kLeft = 3, kWay = 6, kProduct = 9, kArrays = 12 };

  template <class F>
  double SumLayers(F&& f);
  double LargestOf(i32 array) const;
  void BuildLevels();
  void Factorise();
  void SolveCoarsest();
  void Cycle(std::size_t level);
  /// The right-hand side of the cycle becomes what is left.
  void HandOver();
  double Multiply(i32 from);

  i32 mThreads = 1;
  std::vector<std::unique_ptr<ViscousLevel>> mLevels;
  std::size_t mCount = 0;  ///< levels in use
  StaggeredArrays mArrays{kArrays};

  struct Unknown {
    i32 axis, index;
  };
  std::vector<Unknown> mUnknowns;  ///< of the last level
  std::vector<double> mFactor, mRoom;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
