// The memory of all grids together, with a limit that a run may set.
#pragma once
#include <cstddef>

#include "host/vector.h"

namespace MELDO_GLOBAL {

/// Limits the bytes that all grids hold at once; 0 lifts the limit. Forgets an earlier refusal.
void SetGridMemoryLimit(u64 bytes);
/// Bytes that all grids hold now.
u64 GridMemory();

/// An allocation that was refused: it would have exceeded the limit, or has more samples than an
/// index can number.
struct GridRefusal {
  VecInt3D dims{};   ///< of the grid
  double bytes = 0;  ///< that all grids together would have held; 0 without a refusal
};
/// The first refusal since `SetGridMemoryLimit`.
GridRefusal RefusedGrid();

/// Aligned memory for a grid; null where it is refused or the system has none. Any thread.
void* AllocateGridMemory(const VecInt3D& dims, std::size_t sampleSize);
void FreeGridMemory(void* data, std::size_t bytes);

}  // namespace MELDO_GLOBAL
