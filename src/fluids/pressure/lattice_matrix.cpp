#include "fluids/pressure/lattice_matrix.h"

#include <algorithm>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool LatticeMatrix::SetLattice(const VecInt3D& dims, i32 threads) {
  const i64 layer = i64{dims.x} * dims.y;
  if (!mBands.Resize(layer * dims.z)) return false;
  mDims = dims;
  mHasAir = false;
  ForEachBlock(dims.z, threads, [&](i32 z) {
    for (i32 band = 0; band < 4; ++band) std::fill_n(mBands[band] + z * layer, layer, 0.0);
  });
  return true;
}

void LatticeMatrix::Free() {
  mBands.Free();
  mDims = {};
  mLines = {};
}

void LatticeMatrix::AddToElement(i32 row, i32 column, double value) {
  const i32 difference = column - row;
  if (difference == 0) {
    Diagonal()[row] += value;
    return;
  }
  for (i32 axis = 0; axis < 3; ++axis)
    if (difference == Offset(axis)) {
      Upper(axis)[row] += value;
      return;
    }
}

void LatticeMatrix::FindLines(i32 threads) {
  mLines.resize(static_cast<std::size_t>(mDims.y) * mDims.z);
  const double* diagonal = Diagonal();
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      Line& line = mLines[mDims.y * z + y];
      line = {(mDims.y * z + y) * mDims.x, 1, std::max(1, mDims.x - 1)};
      if (z < 1 || z >= mDims.z - 1 || y < 1 || y >= mDims.y - 1) {
        line.last = line.first;
        continue;
      }
      while (line.first < line.last && diagonal[line.base + line.first] == 0) ++line.first;
      while (line.first < line.last && diagonal[line.base + line.last - 1] == 0) --line.last;
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
