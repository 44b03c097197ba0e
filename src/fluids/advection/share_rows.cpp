#include "fluids/advection/share_rows.h"

#include <algorithm>
#include <cstring>

#include "fluids/advection/run_lanes.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Whole blocks side by side, from block i on.
inline __attribute__((always_inline)) bool IsRunOfBlocks(const BlockColumns& blocks, i32 i, i32 n) {
  if (i + kRun > n || !IsRun(blocks.base + i)) return false;
  u32 closed;
  static_assert(sizeof closed == kRun);
  std::memcpy(&closed, blocks.closed + i, sizeof closed);
  return closed == 0;
}

inline __attribute__((always_inline)) void LoadFractions(const BlockColumns& blocks, i32 i,
                                                         RunLanes& x, RunLanes& y, RunLanes& z) {
  Load(blocks.fraction[0] + i, x);
  Load(blocks.fraction[1] + i, y);
  Load(blocks.fraction[2] + i, z);
}

}  // namespace

SULVA_WIDE_KERNEL void FindClosedCorners(const u8* takesPart, i32 row, i32 slice, i32 n,
                                         u8* __restrict closed) {
  const u8 *a = takesPart, *b = a + slice, *c = a + row, *d = c + slice;
  for (i32 i = 0; i < n; ++i) {
    const i32 low = (a[i] & 1) | (b[i] & 1) << 1 | (c[i] & 1) << 2 | (d[i] & 1) << 3;
    const i32 high =
        (a[i + 1] & 1) | (b[i + 1] & 1) << 1 | (c[i + 1] & 1) << 2 | (d[i + 1] & 1) << 3;
    closed[i] = static_cast<u8>(~(low | high << 4));
  }
}

void WidenRange(const i32* numbers, i32 n, i32& low, i32& high) {
  typedef i32 Lanes __attribute__((vector_size(16)));
  constexpr i32 kLanes = 4;
  i32 i = 0;
  if (n >= kLanes) {
    Lanes least, most, v;
    std::memcpy(&least, numbers, sizeof least);
    most = least;
    for (; i + kLanes <= n; i += kLanes) {
      std::memcpy(&v, numbers + i, sizeof v);
      least = v < least ? v : least;
      most = v > most ? v : most;
    }
    for (int lane = 0; lane < kLanes; ++lane) {
      low = std::min(low, least[lane]);
      high = std::max(high, most[lane]);
    }
  }
  for (; i < n; ++i) {
    low = std::min(low, numbers[i]);
    high = std::max(high, numbers[i]);
  }
}

SULVA_WIDE_KERNEL void AskRow(const BlockColumns& blocks, i32 n, const CornerOffsets& corners,
                              double* asked) {
  // What a run asks of the cells behind it waits for the next run, which may begin there.
  double carry[4] = {};
  i32 behind = -1;
  const auto put = [&] {
    for (int k = 0; k < 4 && behind >= 0; ++k) {
      asked[behind + corners.at[k]] += carry[k];
      carry[k] = 0;
    }
    behind = -1;
  };
  for (i32 i = 0; i < n;) {
    const i32 base = blocks.base[i];
    if (behind != base) put();
    if (!IsRunOfBlocks(blocks, i, n)) {
      put();
      ForEachCorner(blocks.At(i++), corners, [&](i32 c, double w) { asked[c] += w; });
      continue;
    }
    RunLanes x, y, z;
    LoadFractions(blocks, i, x, y, z);
    const RunLanes gx = 1 - x, gy = 1 - y, gz = 1 - z;
    const RunLanes low = gx * gy, lowY = gx * y, high = x * gy, highY = x * y;
    const RunLanes near[4] = {low * gz, low * z, lowY * gz, lowY * z};
    const RunLanes far[4] = {high * gz, high * z, highY * gz, highY * z};
    for (int k = 0; k < 4; ++k) {
      double* at = asked + base + corners.at[k];
      RunLanes sum;
      Load(at, sum);
      sum += near[k] + RunLanes{carry[k], far[k][0], far[k][1], far[k][2]};
      Store(sum, at);
      carry[k] = far[k][3];
    }
    behind = base + kRun;
    i += kRun;
  }
  put();
}

SULVA_WIDE_KERNEL void FindGiven(const double* content, const double* volume, const double* asked,
                                 double nothing, i32 n, double* __restrict contentOut,
                                 double* __restrict volumeOut) {
  for (i32 i = 0; i < n; ++i) {
    const double all = asked[i] > 0 ? asked[i] : 1.0, share = 1 / all;
    contentOut[i] = (content[i] - nothing) * share;
    volumeOut[i] = volume[i] * share;
  }
}

SULVA_WIDE_KERNEL void GatherRow(const BlockColumns& blocks, i32 n, const CornerOffsets& corners,
                                 const double* content, const double* volume,
                                 double* __restrict contentOut, double* __restrict volumeOut) {
  const i32 ny = corners.at[2], nz = corners.at[1];
  for (i32 i = 0; i < n;) {
    if (IsRunOfBlocks(blocks, i, n)) {
      RunLanes x, y, z;
      LoadFractions(blocks, i, x, y, z);
      LerpCorners(SideBySide{content + blocks.base[i]}, ny, nz, x, y, z, contentOut + i);
      LerpCorners(SideBySide{volume + blocks.base[i]}, ny, nz, x, y, z, volumeOut + i);
      i += kRun;
      continue;
    }
    double c = 0, v = 0;
    ForEachCorner(blocks.At(i), corners, [&](i32 corner, double w) {
      c += content[corner] * w;
      v += volume[corner] * w;
    });
    contentOut[i] = c;
    volumeOut[i++] = v;
  }
}

SULVA_WIDE_KERNEL void FindStrength(const double* content, const double* volume, double nothing,
                                    i32 n, double* __restrict strength) {
  for (i32 i = 0; i < n; ++i) {
    const double v = volume[i] > 0 ? volume[i] : 1.0, c = content[i] - nothing;
    strength[i] = volume[i] > 0 ? c / v : 0.0;
  }
}

SULVA_WIDE_KERNEL void FindExtremes(const BlockColumns& blocks, i32 first, i32 n,
                                    const CornerOffsets& corners, const double* field,
                                    double* __restrict least, double* __restrict most) {
  const i32 ny = corners.at[2], nz = corners.at[1];
  for (i32 i = 0; i < n;) {
    if (IsRunOfBlocks(blocks, i, n)) {
      RunLanes low, high;
      FindCornerExtremes(SideBySide{field + blocks.base[i]}, ny, nz, low, high);
      Store(low, least + i);
      Store(high, most + i);
      i += kRun;
      continue;
    }
    const Contribution block = blocks.At(i);
    double low = field[block.closed ? first + i : block.base], high = low;
    for (int k = 0; k < 8 && block.closed != 0xfe; ++k) {
      const double v = block.closed >> k & 1 ? low : field[block.base + corners.at[k]];
      low = v < low ? v : low;
      high = v > high ? v : high;
    }
    least[i] = low;
    most[i++] = high;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
