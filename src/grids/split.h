// Cutting boxes of cells and counts of items into shares.
#pragma once
#include <array>

#include "grids/for_each_cell.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL {

/// The boxes of all workers of an object that cuts its own work; unused entries are empty.
struct SlabTable {
  std::array<VecInt3D, host::kMaxWorkers> min{};
  std::array<VecInt3D, host::kMaxWorkers> max{};
  CellBox operator[](i32 worker) const { return {min[worker], max[worker]}; }
};

/// Cuts an array of `dims` samples into z slabs for `threads` workers, the whole array or without
/// its outermost layer; the last worker takes the remainder. False, and all boxes empty, when no
/// layer is left.
bool SplitZ(SlabTable& slabs, const VecInt3D& dims, bool includeBorder, i32 threads);

/// Cuts `total` items from `start` on into ranges [first, last); the last worker takes the
/// remainder, unused entries are empty. False when there is no item.
bool SplitCount(std::array<i32, host::kMaxWorkers>& first, std::array<i32, host::kMaxWorkers>& last,
                i32 total, i32 start, i32 threads);

}  // namespace MELDO_GLOBAL
