// Which cells of a field touch.
#pragma once
#include <memory>
#include <vector>

#include "fluids/flow/scalar_walls.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What parts the cells of a flow.
struct FlowBounds {
  GridLayout layout;
  const ScalarWalls& cells;  ///< built
  const ThinFaces& thin;
};

/// The pairs of neighbouring samples of a field between which something can pass. The outermost
/// layer takes no part. Where flows are, both cells of a pair lie inside of the same flow, neither
/// is closed, and no thin wall parts them.
class OpenLinks {
 public:
  /// What the links along an axis between two rows of samples along x have in common.
  enum Common : u8 { kNone, kSome, kAll };

  /// `flows` bound fields at the centres of the same cells, no others. False without memory.
  bool Build(const EGrid<double>& field, const std::vector<FlowBounds>& flows, i32 threads);
  void Release() { mBits.reset(); }

  /// A byte a sample: bit `axis` is the link with the next sample along that axis.
  const u8* Bits() const { return mBits->mData; }
  bool IsOpen(i32 axis, i32 index) const { return mBits->mData[index] >> axis & 1; }
  /// Of the inner samples of row (y, z) with those of the next row along y or z.
  Common RowsAlong(i32 axis, i32 y, i32 z) const {
    return mRows[axis - 1][std::size_t{1} * z * mBits->mNy + y];
  }

 private:
  void OpenAll(i32 z);
  void OpenIn(const FlowBounds& flow, const VecInt3D& offset, i32 z);
  void SumUp(i32 z);

  std::unique_ptr<Grid<u8>> mBits;
  std::vector<Common> mRows[2];
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
