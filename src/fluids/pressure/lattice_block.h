// The samples round a place of a lattice that can be reached from one of its cells.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "fluids/pressure/outer_lattice.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Values at the cells of a lattice: those with a row, which has an entry on the diagonal, and
/// those beyond an open end of the lattice, which a face leads to.
struct LatticeField {
  const OuterLattice& lattice;
  std::span<const double> values;
  const double* diagonal;
  std::array<const EGrid<float>*, 3> open;
};

/// The up to 4 x 4 x 4 cells that a cubic sample takes part of, with values that know of one cell's
/// side of the walls among them only: those of the cells that open faces connect with it inside of
/// the block, continued into the others in straight lines.
class LatticeBlock {
 public:
  /// Covers the cells of taps.
  void Place(const std::array<const AxisTaps*, 3>& taps);
  /// Some cell is marked.
  bool AnyOf(std::span<const u8> marks, const VecInt3D& dims) const;
  /// Takes the values that are connected with the cell `from`, of the index in the lattice; all are
  /// 0 where that is negative or no cell of the block.
  void Fill(const LatticeField& field, i32 from);
  double Sample(const std::array<const AxisTaps*, 3>& taps) const;

 private:
  static constexpr i32 kMost = 64;

  i32 IndexOf(const VecInt3D& at) const { return (mSize.y * at.z + at.y) * mSize.x + at.x; }
  void Connect(const LatticeField& field, const VecInt3D& from);
  bool ContinueAll(const LatticeField& field);
  bool ContinueTo(const LatticeField& field, const VecInt3D& at, double& value) const;

  VecInt3D mLow{}, mSize{};
  std::array<double, kMost> mValue{};
  std::array<bool, kMost> mIsKnown{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
