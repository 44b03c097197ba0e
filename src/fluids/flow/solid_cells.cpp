#include "fluids/flow/solid_cells.h"

#include "grids/fixed_blocks.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Flags of a row of `n` cells between four rows of nodes.
SULVA_WIDE_KERNEL void FlagRow(const double* a, const double* b, const double* c, const double* d,
                               i32 n, double margin, u8* __restrict flags) {
  const auto low = [](double p, double q) { return p < q ? p : q; };
  const auto high = [](double p, double q) { return p > q ? p : q; };
  for (i32 x = 0; x < n; ++x) {
    const double least = low(low(low(a[x], b[x]), low(c[x], d[x])),
                             low(low(a[x + 1], b[x + 1]), low(c[x + 1], d[x + 1])));
    const double most = high(high(high(a[x], b[x]), high(c[x], d[x])),
                             high(high(a[x + 1], b[x + 1]), high(c[x + 1], d[x + 1])));
    const i32 clear = least > margin, outside = least >= 0, centre = most > 8 * margin;
    flags[x] =
        static_cast<u8>(clear * SolidCells::kNoSolidSample + outside * SolidCells::kNoPushOut +
                        (outside & centre) * SolidCells::kOpenCentre);
  }
}

}  // namespace

void SolidCells::Build(const EGrid<double>& levelSet, i32 threads) {
  const VecInt3D n = levelSet.Dims() - VecInt3D{1, 1, 1};
  if (!mFlags || mFlags->Dims() != n) mFlags = std::make_unique<Grid<u8>>(n, kCentre);
  if (!mFlags->mData) return mFlags.reset();
  const double margin = kSolidHair * levelSet.mLayout.cellSize;
  ForEachBlock(n.z, threads, [&](i32 z) {
    for (i32 y = 0; y < n.y; ++y) {
      u8* flags = mFlags->mData + mFlags->Index(0, y, z);
      if (z == 0 || z == n.z - 1 || y == 0 || y == n.y - 1) {
        std::fill_n(flags, n.x, u8{0});
        continue;
      }
      const double* row = levelSet.mData + levelSet.Index(0, y, z);
      const double* next = row + levelSet.mSlice;
      FlagRow(row, row + levelSet.mNx, next, next + levelSet.mNx, n.x, margin, flags);
      flags[0] = flags[n.x - 1] = 0;
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
