// What the solvers by conjugate gradients share, whatever leads them.
#pragma once
#include <optional>
#include <vector>

#include "fluids/pressure/body_coupling.h"
#include "fluids/pressure/lattice_solver.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How a solve ended.
enum class SolveEnd { Converged, OutOfIterations, Stalled, Grew, Broken };

/// Conjugate gradients on a lattice without their preconditioner: `kRhs` holds the residual r,
/// `kS` the direction s and `kZ` what comes of it. Sums run layer by layer, so that they don't
/// depend on the number of workers.
class ConjugateGradients : public LatticeSolver {
 public:
  void Release(bool full) override;

  /// Runs to the tolerance, relative to the largest right-hand side; false when something else
  /// ended it. A solve whose residual grows, or comes no further for long, stops. Whatever ends it,
  /// the result is the best that it found. Rows without entries stay out of it. The result doesn't
  /// depend on the number of workers. Uses up the right-hand side.
  bool Solve();

  /// Goes on from the result of the last solve for a system that was filled anew, with what leads
  /// the iteration as it was: for one that differs from the last in few rows. Rows that have gone
  /// have a result of 0. What it reports counts from the last solve on, and the tolerance is
  /// relative to the larger right-hand side of both.
  bool Continue();

  const BodyCoupling* mBodies = nullptr;  ///< adds to the matrix; null for none
  double mFloor = 0;     ///< a residual below that is rounding: nothing is left to solve
  double mResidual = 0;  ///< of the last solve, relative to the largest right-hand side
  double mLargest = 0;   ///< the largest right-hand side of the last solve
  SolveEnd mEnd = SolveEnd::Converged;  ///< of the last solve

 protected:
  enum CommonArray { kZ = kFirstOwn, kS, kFirstOfMethod };

  explicit ConjugateGradients(i32 arrays) : LatticeSolver(arrays) {}

  /// Iterates from a result of 0 to the tolerance, over at most `limit` iterations, and counts
  /// them.
  virtual SolveEnd Iterate(i32 limit) = 0;
  /// Notes the largest residual that an iteration left; tells how the solve ends, if it does.
  std::optional<SolveEnd> Note(double left, i32 limit);
  /// Makes the entries 0 that lead to or from a row without entries.
  void DropEntriesToMissingRows();
  /// As `PrepareSystem`, with room for the sums of the layers.
  bool PrepareIteration();
  /// r in rows without entries, z, s and, unless it goes again, the arrays of the method become 0;
  /// returns the largest |r|.
  double StartResidual();
  /// z = A s; returns s . z.
  double Multiply();
  /// z = A s in a layer, s . z into its partial.
  void MultiplyLayer(i32 z);
  /// Adds what bodies couple of s to z; returns that times s.
  double MultiplyBodies() { return mBodies ? mBodies->AddProduct(mArrays[kS], mArrays[kZ]) : 0.0; }
  /// The sum of the partials of all layers.
  double SumOfPartials() const;
  /// f(first cell, cells, partial of the layer) for every line with rows; the partials start at 0.
  template <class F>
  void ForEachLine(F&& f) {
    ForEachBlock(std::max(0, mDims.z - 2), mThreads,
                 [&](i32 block) { ForEachLineOf(block + 1, f); });
  }
  /// The same for the lines of a layer.
  template <class F>
  void ForEachLineOf(i32 z, F&& f) {
    double& partial = mPartials[z];
    partial = 0;
    for (i32 y = 1; y < mDims.y - 1; ++y) {
      const LatticeMatrix::Line& line = mMatrix.LineAt(y, z);
      if (!line.IsEmpty()) f(line.base + line.first, line.last - line.first, partial);
    }
  }

  std::vector<double> mPartials;  ///< one per layer
  bool mGoesAgain = false;        ///< to the best of the running solve, led as the first time

 private:
  /// r = b - A x and x = 0 in rows without entries; returns the largest |r|.
  double TakeResult();
  /// z = A x.
  void MultiplyResult();
  /// Puts back the right-hand side from the residual and the result, which becomes 0; nothing is
  /// done yet.
  void StartAnew();

  double mBest = 0;  ///< least residual of the running solve, relative
  i32 mBestIteration = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
