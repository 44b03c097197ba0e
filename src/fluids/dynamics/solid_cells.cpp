#include "fluids/dynamics/solid_cells.h"

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void SolidCells::Build(const EGrid<double>& levelSet, i32 threads) {
  const VecInt3D n = levelSet.Dims() - VecInt3D{1, 1, 1};
  if (!mClear || mClear->Dims() != n) mClear = std::make_unique<Grid<u8>>(n, kCentre);
  if (!mClear->mData) return mClear.reset();
  // A margin keeps samples that round to 0 in single precision on the careful side.
  const double margin = 1e-6 * levelSet.mLayout.cellSize;
  ForEachBlock(n.z, threads, [&](i32 z) {
    for (i32 y = 0; y < n.y; ++y) {
      u8* clear = mClear->mData + mClear->Index(0, y, z);
      if (z == 0 || z == n.z - 1 || y == 0 || y == n.y - 1) {
        std::fill_n(clear, n.x, u8{0});
        continue;
      }
      const double* a = levelSet.mData + levelSet.Index(0, y, z);
      const double* b = a + levelSet.mNx;
      const double* c = a + levelSet.mSlice;
      const double* d = c + levelSet.mNx;
      const auto column = [&](i32 x) {
        return std::min(std::min(a[x], b[x]), std::min(c[x], d[x]));
      };
      for (i32 x = 0; x < n.x; ++x) clear[x] = std::min(column(x), column(x + 1)) > margin;
      clear[0] = clear[n.x - 1] = 0;
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
