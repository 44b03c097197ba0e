// The order in which several workers may sweep the rows of a grid.
#pragma once
#include <algorithm>

#include "grids/fixed_blocks.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Calls f(m, n, slot) for the rows m of `rowsY` and n of `rowsZ` of a sweep, so that a row comes
/// after those of m - 1 and n - 1 and before those of m + 1 and n + 1: the result is that of a
/// sweep row by row. The rows of a diagonal run at once; `slot`, below the smaller number of rows,
/// is another for each of them. `samples` is the length of a row. Ends early where `thread` is told
/// to stop.
template <class F>
void ForEachDiagonalRow(i32 rowsY, i32 rowsZ, i32 samples, i32 threads, host::HostThread* thread,
                        F&& f) {
  for (i32 d = 0; d < rowsY + rowsZ - 1; ++d) {
    if (thread && thread->TestBreak()) return;
    const i32 low = std::max(0, d - rowsZ + 1), high = std::min(d, rowsY - 1);
    // Below some thousand samples the wait for the workers costs more than they save.
    const bool alone = i64{samples} * (high - low + 1) < 4096;
    ForEachBlock(high - low + 1, alone ? 1 : threads,
                 [&](i32 block) { f(low + block, d - low - block, block); });
  }
}

/// The eight directions of sweeps, in their order.
inline constexpr i32 kSweepDirections[8][3] = {{1, 1, 1},  {-1, -1, -1}, {1, 1, -1},  {-1, -1, 1},
                                               {1, -1, 1}, {-1, 1, -1},  {1, -1, -1}, {-1, 1, 1}};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
