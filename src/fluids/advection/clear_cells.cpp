#include "fluids/advection/clear_cells.h"

#include <cstring>

#include "fluids/advection/even_rows.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMostRows = 64;  // that are worth a look together

}  // namespace

u8 CommonBits(const u8* flags, i32 n) {
  typedef u8 Bytes __attribute__((vector_size(16)));
  constexpr i32 kBytes = sizeof(Bytes);
  Bytes all = ~Bytes{}, v;
  i32 i = 0;
  for (; i + kBytes <= n; i += kBytes) {
    std::memcpy(&v, flags + i, kBytes);
    all &= v;
  }
  u8 common = 0xff;
  for (; i < n; ++i) common &= flags[i];
  u64 halves[2];
  std::memcpy(halves, &all, kBytes);
  u64 rest = halves[0] & halves[1];
  for (i32 shift = 32; shift >= 8; shift /= 2) rest &= rest >> shift;
  return static_cast<u8>(common & rest);
}

bool AreClear(const Grid<u8>& flags, const RowVectors& points, i32 n, u8 wanted, i32 beyond) {
  const VecInt3D dims = flags.Dims();
  VecInt3D low, high;
  for (int a = 0; a < 3; ++a) {
    const ValueRange range = RangeOf(points.axis[a].v, n);
    if (!(range.least >= beyond && range.most < dims[a] - beyond)) return false;
    low[a] = static_cast<i32>(range.least) - beyond;
    high[a] = static_cast<i32>(range.most) + beyond;
  }
  if ((high.y - low.y) * (high.z - low.z) > kMostRows) return false;
  u8 all = wanted;
  for (i32 z = low.z; z <= high.z && all == wanted; ++z)
    for (i32 y = low.y; y <= high.y; ++y)
      all &= CommonBits(flags.mData + flags.Index(low.x, y, z), high.x - low.x + 1);
  return all == wanted;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
