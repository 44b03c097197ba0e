#include "fluids/advection/clear_cells.h"

#include <cstring>

#include "fluids/advection/even_rows.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMostRows = 64;  // that are worth a look together

}  // namespace

namespace {

/// Folds `n` bytes by join(a, b), many at a time, from `all` on.
template <class Join>
u8 FoldBytes(const u8* flags, i32 n, u8 all, Join&& join) {
  typedef u8 Bytes __attribute__((vector_size(16)));
  constexpr i32 kBytes = sizeof(Bytes);
  Bytes many = Bytes{} + all, v;
  i32 i = 0;
  for (; i + kBytes <= n; i += kBytes) {
    std::memcpy(&v, flags + i, kBytes);
    many = join(many, v);
  }
  for (; i < n; ++i) all = join(all, flags[i]);
  u64 halves[2];
  std::memcpy(halves, &many, kBytes);
  u64 rest = join(halves[0], halves[1]);
  for (i32 shift = 32; shift >= 8; shift /= 2) rest = join(rest, rest >> shift);
  return static_cast<u8>(join(all, static_cast<u8>(rest)));
}

}  // namespace

u8 CommonBits(const u8* flags, i32 n) {
  return FoldBytes(flags, n, 0xff,
                   []<class T>(const T& a, const T& b) { return static_cast<T>(a & b); });
}

u8 UnitedBits(const u8* flags, i32 n) {
  return FoldBytes(flags, n, 0,
                   []<class T>(const T& a, const T& b) { return static_cast<T>(a | b); });
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
