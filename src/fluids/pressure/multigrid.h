// A geometric multigrid cycle on the cells of a grid.
#pragma once
#include <array>
#include <deque>
#include <vector>

#include "fluids/pressure/coupled_levels.h"
#include "fluids/pressure/lattice_matrix.h"
#include "fluids/pressure/multigrid_kernels.h"
#include "grids/staggered_arrays.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One V-cycle for a symmetric matrix of the cells of a grid whose off-diagonal entries are at most
/// 0: a symmetric positive (semi-)definite preconditioner for conjugate gradients (Tatebe 1993;
/// McAdams, Sifakis and Teran 2010).
///
/// Each level halves the cells on every axis that has more than one. A coarse face's coupling is
/// the sum over its fine faces over the ratio of the distances of the cells, which keeps walls
/// where they are; what a row's diagonal has in excess, a neighbour of fixed value 0, is scaled by
/// that neighbour's distance; on coarser levels of a liquid, where such a neighbour may lie inside
/// of a coarse cell, it is kept for each cell and halved from level to level. Corrections go down
/// linearly between the centres of coarse cells, not through closed faces, and left-overs go up by
/// the transpose. A level is smoothed by a sweep of red-black Gauss-Seidel, in the opposite order
/// on the way back, and the last level is solved.
///
/// The cycle works in single precision: it steers the iteration, whose own numbers are double. Its
/// result doesn't depend on the number of workers.
class Multigrid {
 public:
  /// Forms the levels; false when the memory can't be had. The matrix isn't used afterwards. Levels
  /// of the same entries as last time stand already.
  bool Build(const LatticeMatrix& matrix, i32 threads);
  /// Lets the levels below the finest follow the couplings of the matrix of the last `Build`, until
  /// the next one; false when the memory can't be had, or the finest level is solved at once.
  bool FollowCouplings(const LatticeMatrix& matrix);
  /// Levels on the grid lead again.
  void Restart() { mFollows = false; }
  void Free();
  i32 Levels() const { return static_cast<i32>(mLevels.size()); }

  /// By cell; 0 in cells without a row.
  const float* FinestValue() const { return mLevels.front().arrays[kValue]; }
  float* FinestRhs() const { return mLevels.front().arrays[kRhs]; }

  /// value = M^-1 rhs on the finest level; returns the sum of value times `b`, by cell.
  double Cycle(const double* b);

 private:
  enum Array { kValue, kRhs, kInverse, kWeight, kShare = kWeight + 3, kExcess, kArrays };

  /// A cell that walls cut off from most of its coarse cell: it belongs to a coarse neighbour.
  struct Stray {
    i32 cell;
    i32 parent;  ///< coarse cell, or -1
    float value = 0;
  };

  /// What the cells of an axis have in common.
  struct Axis {
    /// Of the cells' centres, in finest cells; the outermost layers keep theirs.
    std::vector<float> places;
    std::vector<i32> coarse;   ///< index on the next level
    std::vector<float> ratio;  ///< distance to the next cell, over that of their coarse cells
  };

  struct Level {
    /// The finest level takes part in no coarser one's corrections and needs no shares.
    explicit Level(bool finest) : arrays(finest ? i32{kShare} : i32{kArrays}) {}

    VecInt3D dims{};
    VecInt3D factor{1, 1, 1};  ///< fine cells in a cell of the next level
    std::array<Axis, 3> axes;
    i32 threads = 1;
    StaggeredArraysOf<float> arrays;
    std::vector<u8> hasRows;       ///< by line (y, z): most of a liquid's box may be air
    std::vector<Stray> strays;     ///< in cell order
    std::vector<i32> firstStrays;  ///< by layer

    i32 Offset(i32 axis) const { return axis == 0 ? 1 : axis == 1 ? dims.x : dims.x * dims.y; }
    i32 Cell(i32 x, i32 y, i32 z) const { return (dims.y * z + y) * dims.x + x; }
    VecInt3D Place(i32 cell) const {
      return {cell % dims.x, cell / dims.x % dims.y, cell / (dims.x * dims.y)};
    }
    LevelLine LineAt(i32 y, i32 z) const;
    bool HasRows(i32 y, i32 z) const { return hasRows[dims.y * z + y] != 0; }
    void FindLines();
    bool Resize(const VecInt3D& size);
  };

  static void SetPlaces(Level* fine, i32 axis, Level& level);
  bool SetSizes(const VecInt3D& dims, i32 threads);
  /// Takes the entries in single precision; false when all are what they were.
  bool TakeMatrix(const LatticeMatrix& matrix);
  bool TakeLine(const LatticeMatrix& matrix, double scale, i32 y, i32 z,
                std::vector<float>& scratch) const;
  void FormCoarse(Level& fine, Level& coarse);
  void FormLine(const Level& fine, const Level& coarse, i32 y, i32 z, CoarseLine& line) const;
  void FindStrays(Level& fine, const Level& coarse);
  void FindStraysOf(const Level& fine, const VecInt3D& cell, std::vector<Stray>& strays) const;
  i32 ParentOfStray(const Level& fine, const Level& coarse, i32 cell) const;
  /// All fine cells of a coarse one, from `low` on, have rows and open faces between them.
  bool IsWhole(const Level& fine, const VecInt3D& low) const;
  /// The face above a cell isn't all but closed.
  static bool IsOpen(const Level& fine, i32 cell, i32 axis);
  /// The coarse cell that holds a cell.
  static i32 Home(const Level& fine, const Level& coarse, const VecInt3D& cell) {
    return coarse.Cell(fine.axes[0].coarse[cell.x], fine.axes[1].coarse[cell.y],
                       fine.axes[2].coarse[cell.z]);
  }
  /// The coarse cell of a cell with a row, or -1.
  i32 ParentOf(const Level& fine, const Level& coarse, const VecInt3D& cell) const;
  void AddExcess(const Level& fine, const Level& coarse, i32 cell, i32 parent) const;
  void AddRow(const Level& fine, const Level& coarse, const VecInt3D& cell, i32 parent) const;
  void FactorLast();
  void SolveLast();

  void Descend(std::size_t level);
  template <class F>
  void ForEachLine(const Level& level, F&& f);
  template <class F>
  void SweepLines(const Level& level, i32 count, F&& f);
  template <class F>
  void Ascend(const Level& level, F&& last);
  void Restrict(Level& fine, const Level& coarse);
  void RestrictLayers(Level& fine, const Level& coarse, i32 first, i32 last,
                      std::vector<float>& scratch);
  void Prolong(Level& fine, const Level& coarse);
  void CorrectByCouplings();

  CoupledLevels mCoupled;
  bool mHasCoupled = false;  ///< `mCoupled` is of the entries of the finest level
  bool mFollows = false;     ///< it takes the place of the levels below
  std::vector<float> mLeft;  ///< left over on the finest level, by cell
  double mScale = 1;         ///< of the matrix in the finest level
  bool mHasAir = false;      ///< as the matrix
  bool mFormed = false;      ///< the levels are those of the entries of the finest one
  std::deque<Level> mLevels;
  std::vector<std::vector<Stray>> mStraysOfLayers;
  std::vector<std::vector<float>> mScratch;  ///< one per worker
  std::vector<double> mPartials;
  std::vector<i32> mLastCells;      ///< cells with rows of the last level
  std::vector<double> mLastFactor;  ///< L D L^T of the last level, D^-1 on the diagonal
  std::vector<double> mLastValues;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
