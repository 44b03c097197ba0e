#include "grids/split.h"

namespace MELDO_GLOBAL {

bool SplitZ(SlabTable& slabs, const VecInt3D& dims, bool includeBorder, i32 threads) {
  slabs = {};
  const i32 border = includeBorder ? 0 : 1;
  const i32 last = dims.z - border;
  const i32 span = last - border;
  const i32 workers = std::min({span, threads, host::kMaxWorkers});
  if (workers <= 0) return false;
  const i32 slab = span / workers;
  for (i32 i = 0; i < workers; ++i) {
    slabs.min[i] = {border, border, border + i * slab};
    slabs.max[i] = {dims.x - border, dims.y - border,
                    i == workers - 1 ? last : border + (i + 1) * slab};
  }
  return true;
}

bool SplitCount(std::array<i32, host::kMaxWorkers>& first, std::array<i32, host::kMaxWorkers>& last,
                i32 total, i32 start, i32 threads) {
  first.fill(0);
  last.fill(0);
  const i32 workers = std::min({total, threads, host::kMaxWorkers});
  if (workers <= 0) return false;
  const i32 share = total / workers;
  for (i32 i = 0; i < workers; ++i) {
    first[i] = start + i * share;
    last[i] = i == workers - 1 ? start + total : start + (i + 1) * share;
  }
  return true;
}

}  // namespace MELDO_GLOBAL
