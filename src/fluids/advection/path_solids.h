// Solids in the way of paths.
#pragma once
#include "fluids/advection/advection_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Solid tests of the targets of a pass; they skip the level set where the flags of the cells allow
/// it.
class PathSolids {
 public:
  explicit PathSolids(const AdvectionData& data);

  /// Marks which of the samples first .. first + n - 1 of a row are solid; false when none is, and
  /// then nothing is marked.
  bool FindSolid(i32 first, i32 y, i32 z, i32 n, bool* solid) const;
  /// Moves points (cells) out of solids and back through the sides, and marks those that it moved;
  /// false when it moved none.
  bool PushOut(RowVectors& points, i32 n, bool* moved) const;

 private:
  /// From a cell to the one before it along the axis of the targets, which are faces.
  i32 CellsBack() const;

  const EGrid<double>& mSource;
  const GridBoundary& mBoundary;
  VecInt3D mCells;
  double mCellSize;
  u8 mSides;
  const Grid<u8>* mFlags = nullptr;
  const float* mFaces = nullptr;
  u8 mOpen = SolidCells::kNoSolidSample;  ///< flags that make a sample of the target's kind open
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
