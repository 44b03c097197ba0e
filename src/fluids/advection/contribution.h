// Shares that cells give to one another.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Who gives what to a cell: the eight cells of a block, with trilinear weights over those that can
/// hold smoke, scaled to sum to 1 (or all 0 when none can).
struct Contribution {
  i32 base = 0;                   ///< index of the block's lowest cell
  u8 closed = 0;                  ///< bit k: corner k can't hold smoke
  double fx = 0, fy = 0, fz = 0;  ///< fractions of the position inside the block

  /// The cell itself and no other.
  static Contribution Only(i32 cell) { return {.base = cell, .closed = 0xfe}; }
  static Contribution None(i32 cell) { return {.base = cell, .closed = 0xff}; }
};

/// Blocks of cells side by side, a column for each number.
struct BlockColumns {
  i32* base;
  u8* closed;
  double* fraction[3];

  Contribution At(i32 i) const {
    return {base[i], closed[i], fraction[0][i], fraction[1][i], fraction[2][i]};
  }
  void Set(i32 i, const Contribution& block) const {
    base[i] = block.base;
    closed[i] = block.closed;
    fraction[0][i] = block.fx;
    fraction[1][i] = block.fy;
    fraction[2][i] = block.fz;
  }
  /// Those from cell `first` on.
  BlockColumns From(i32 first) const {
    return {base + first,
            closed + first,
            {fraction[0] + first, fraction[1] + first, fraction[2] + first}};
  }
};

/// What a cell sends to a block of cells on top of what they ask for.
struct ForwardContribution {
  i32 cell = 0;
  double amount = 0;  ///< share of its content that nobody asks for
  Contribution block;
};

/// Where the corners of a block lie from its lowest cell, rows of `row` cells and layers of
/// `slice`.
struct CornerOffsets {
  i32 at[8];
  CornerOffsets(i32 row, i32 slice)
      : at{0, slice, row, row + slice, 1, 1 + slice, 1 + row, 1 + row + slice} {}
};

/// Calls f(index of a corner's cell, weight) for the corners of a block that can hold smoke.
template <class F>
inline __attribute__((always_inline)) void ForEachCorner(const Contribution& block,
                                                         const CornerOffsets& corners, F&& f) {
  if (block.closed == 0xfe) return f(block.base, 1.0);
  const double gx = 1 - block.fx, gy = 1 - block.fy, gz = 1 - block.fz;
  const double low = gx * gy, high = gx * block.fy, low1 = block.fx * gy,
               high1 = block.fx * block.fy;
  const double w[8] = {low * gz,  low * block.fz,  high * gz,  high * block.fz,
                       low1 * gz, low1 * block.fz, high1 * gz, high1 * block.fz};
  if (!block.closed) {
    for (int k = 0; k < 8; ++k) f(block.base + corners.at[k], w[k]);
    return;
  }
  double sum = 0;
  for (int k = 0; k < 8; ++k)
    if (!(block.closed >> k & 1)) sum += w[k];
  if (sum <= 0) return;
  for (int k = 0; k < 8; ++k)
    if (!(block.closed >> k & 1)) f(block.base + corners.at[k], w[k] / sum);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
