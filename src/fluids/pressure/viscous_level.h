// One resolution of the equations of a viscous flow, and what is done on it.
#pragma once
#include <array>
#include <vector>

#include "fluids/pressure/viscous_kernels.h"
#include "grids/fixed_blocks.h"
#include "grids/grid.h"
#include "grids/staggered_arrays.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A coupling that has no place in the pattern of a level: an entry of the matrix between two
/// faces.
struct ViscousEntry {
  i32 axis, row;          ///< the face whose equation it is in
  i32 otherAxis, column;  ///< the face that it couples to
  float value;
};

/// What a face is for the solve.
enum class FaceRole : u8 {
  Outside = 0,  ///< takes no part
  Unknown = 1,
  Fixed = 2,  ///< moves with a solid
};

/// The matrix of an implicit step of viscosity on staggered faces, by what its energy consists of:
///
///   E(u) = 1/2 sum over faces of mass u^2
///        + 1/2 sum over cells of cell ((u' - u)^2 + (v' - v)^2 + (w' - w)^2)
///        + 1/2 sum over edges of edge ((u' - u) + (v' - v))^2, and so on for the other two pairs,
///
/// with the differences between the faces about a cell or an edge (Batty and Bridson 2008). A row
/// has 15 entries, which are sums of these numbers, so that the matrix is symmetric and positive
/// whatever they are.
///
/// All arrays share one box of `dims`, a sample wider than the faces on each side, and one index: a
/// face, edge or cell has that of its low corner. Values of faces that aren't unknown are 0.
class ViscousLevel {
 public:
  enum Coefficient { kCell, kEdge = 3, kMass = 6, kInverse = 9, kCoefficients = 12 };
  enum Vector { kFirst, kSecond = 3, kRhs = 6, kChange = 9, kShare = 12, kVectors = 15 };

  /// Makes room for `cells` cells, with nothing in it; false without memory.
  bool Fit(const VecInt3D& cells, i32 threads);
  void Free();

  i32 Index(i32 x, i32 y, i32 z) const { return ((z + 1) * mDims.y + y + 1) * mDims.x + x + 1; }
  i32 Step(i32 axis) const { return axis == 0 ? 1 : axis == 1 ? mDims.x : mDims.x * mDims.y; }
  i64 Count() const { return i64{mDims.x} * mDims.y * mDims.z; }
  float* Coefficients(i32 which) const { return mCoefficients[which]; }
  float* Values(i32 which) const { return mVectors[which]; }
  FaceRole& Role(i32 axis, i32 index) { return mRoles[axis][index]; }
  FaceRole Role(i32 axis, i32 index) const { return mRoles[axis][index]; }

  /// To be called when all coefficients and roles are in: inverts the diagonal, and finds the part
  /// of each row that holds unknowns. Faces without any coefficient are no unknowns any more.
  void Close(i32 threads);
  /// The coefficients and roles of the next level, of cells twice as wide; its `Close` too.
  void Coarsen(ViscousLevel& coarse, i32 threads);

  /// f(y, z as in `Index`, first index, count) for the rows of a layer that hold unknowns.
  template <class F>
  void ForEachRow(i32 layer, F&& f) const {
    for (i32 y = 1; y < mDims.y - 1; ++y) {
      const IndexRange& range = mRows[layer * mDims.y + y];
      if (!range.IsEmpty())
        f(y - 1, layer - 1, (layer * mDims.y + y) * mDims.x + range.first,
          range.last - range.first);
    }
  }
  /// product = A s of the rows of a layer; returns its part of s . A s.
  double Multiply(i32 layer, const std::array<const double*, 3>& s,
                  const std::array<double*, 3>& product) const;
  /// Two rounds on `kRhs` from a solution of 0, or from the one at hand, by Chebyshev polynomials
  /// of the fourth kind (Lottes 2022).
  void Smooth(bool isFresh, i32 threads);
  /// Takes what is left of `kRhs` down to the right-hand side of the next level.
  void Restrict(ViscousLevel& coarse, i32 threads);
  /// Adds what the next level has found to the solution.
  void Prolong(const ViscousLevel& coarse, i32 threads);

  /// The solution of the last round.
  float* Solution(i32 axis) const { return mVectors[mCurrent + axis]; }

  VecInt3D mCells{}, mDims{};
  /// All three pairs of faces of a cell share its coefficient, `kCell`. Of a coarser level one at a
  /// surface may be missing, and each pair has its own, `kCell` + axis.
  bool mIsFinest = true;
  std::vector<std::vector<ViscousEntry>> mEntries;  ///< by layer; the finest level's alone

 private:
  ViscousRow RowAt(i32 first) const;
  i32 Spare() const { return mCurrent == kFirst ? kSecond : kFirst; }
  void FindRoles(ViscousLevel& coarse, i32 z) const;
  FaceRole RoleOfCoarse(i32 axis, const VecInt3D& at) const;
  void SumLayer(ViscousLevel& coarse, i32 z) const;
  float* Cell(i32 axis) const { return mCoefficients[mIsFinest ? kCell : kCell + axis]; }
  template <class F>
  float SumOf(const VecInt3D& at, const VecInt3D& isAcross, F&& f) const;
  void SmoothLayer(i32 layer, float momentum, float step) const;
  void LeaveLayer(i32 layer) const;
  /// Values of a row of faces of an axis, from the first index of the row on, out of those of the
  /// next level.
  void InterpolateRow(const ViscousLevel& coarse, i32 axis, const float* values, i32 y, i32 z,
                      std::vector<float>& row) const;
  /// 1 over the weights of the faces that there are, by which a face takes corrections.
  void FindShares(ViscousLevel& coarse, i32 threads);

  StaggeredArraysOf<float> mCoefficients{kCoefficients}, mVectors{kVectors, kCoefficients};
  std::array<std::vector<FaceRole>, 3> mRoles;
  std::vector<IndexRange> mRows;  ///< by layer and line
  i32 mCurrent = kFirst;          ///< which of the two vectors holds the solution
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
