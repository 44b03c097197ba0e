#include "fluids/advection/flux_sharpening.h"

#include <algorithm>

#include "fluids/advection/share_rows.h"
#include "grids/fixed_blocks.h"
#include "grids/make_grids.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// A quarter of the variance that weights at a fraction spread, where the whole block counts.
void SpreadRow(const double* fraction, const u8* moves, const u8* closed, i32 n,
               f32* __restrict spread) {
  for (i32 i = 0; i < n; ++i) {
    const i32 whole = (moves[i] & 1) & (closed[i] == 0);
    spread[i] = static_cast<f32>(0.25 * whole * (fraction[i] * (1 - fraction[i])));
  }
}

SULVA_WIDE_KERNEL void WidenRow(const double* value, i32 n, double* __restrict least,
                                double* __restrict most) {
  for (i32 i = 0; i < n; ++i) {
    least[i] = value[i] < least[i] ? value[i] : least[i];
    most[i] = value[i] > most[i] ? value[i] : most[i];
  }
}

SULVA_WIDE_KERNEL void FluxRow(const f32* spread, const double* strength, const double* volume,
                               i32 step, i32 n, f32* __restrict flux) {
  for (i32 i = 0; i < n; ++i) {
    const f32 both = spread[i] + spread[i + step];
    const f32 weight = spread[i] * spread[i + step] > 0 ? both : 0.0f;
    const double v = volume[i] < volume[i + step] ? volume[i] : volume[i + step];
    flux[i] =
        static_cast<f32>((strength[i + step] - strength[i]) * v * static_cast<double>(weight));
  }
}

/// What the faces of a cell along an axis bring, and what they take away.
struct CellFluxes {
  double in = 0, out = 0;

  inline __attribute__((always_inline)) void Add(const f32* flux, i32 step) {
    const double below = flux[-step], above = -flux[0];
    in += (below > 0 ? below : 0.0) + (above > 0 ? above : 0.0);
    out += (below < 0 ? -below : 0.0) + (above < 0 ? -above : 0.0);
  }
};

/// Limits become the shares of the fluxes that they allow.
SULVA_WIDE_KERNEL void RoomRow(const double* strength, const double* volume,
                               const f32* const (&flux)[3], const i32 (&steps)[3], i32 n,
                               double* __restrict least, double* __restrict most) {
  const f32 *fx = flux[0], *fy = flux[1], *fz = flux[2];
  const i32 ny = steps[1], nz = steps[2];
  for (i32 i = 0; i < n; ++i) {
    CellFluxes all;
    all.Add(fx + i, 1);
    all.Add(fy + i, ny);
    all.Add(fz + i, nz);
    const double up = (most[i] - strength[i]) * volume[i];
    const double down = (strength[i] - least[i]) * volume[i];
    const double roomUp = up > 0 ? up : 0.0, roomDown = down > 0 ? down : 0.0;
    // Both are reckoned whichever counts, so that cells are done side by side.
    const double shareUp = roomUp / all.in, shareDown = roomDown / all.out;
    most[i] = all.in > roomUp ? shareUp : 1.0;
    least[i] = all.out > roomDown ? shareDown : 1.0;
  }
}

/// What passes the two faces of a cell along an axis, each limited by who gives and who takes.
inline __attribute__((always_inline)) double LimitedFluxes(const f32* flux, const double* gives,
                                                           const double* takes, i32 step) {
  const auto least = [](double a, double b) { return a < b ? a : b; };
  const double below = flux[-step], above = -flux[0];
  // All are read whichever way it goes, so that cells are done side by side.
  const double gLow = gives[-step], gOwn = gives[0], gHigh = gives[step];
  const double tLow = takes[-step], tOwn = takes[0], tHigh = takes[step];
  const double a = below > 0 ? least(gLow, tOwn) : least(gOwn, tLow);
  const double b = above > 0 ? least(gHigh, tOwn) : least(gOwn, tHigh);
  return below * a + above * b;
}

SULVA_WIDE_KERNEL void AddLimited(const f32* const (&flux)[3], const double* gives,
                                  const double* takes, const i32 (&steps)[3], i32 n,
                                  double* __restrict sum) {
  const f32 *fx = flux[0], *fy = flux[1], *fz = flux[2];
  const i32 ny = steps[1], nz = steps[2];
  for (i32 i = 0; i < n; ++i) {
    const double x = LimitedFluxes(fx + i, gives + i, takes + i, 1);
    const double y = LimitedFluxes(fy + i, gives + i, takes + i, ny);
    const double z = LimitedFluxes(fz + i, gives + i, takes + i, nz);
    sum[i] = ((sum[i] + x) + y) + z;
  }
}

}  // namespace

bool FluxSharpening::Fit(const VecInt3D& dims) {
  if (mDims != dims) Release();
  mDims = dims;
  const bool isNew = !mStrength;
  bool made = MakeGrids(dims, mStrength, mLeast, mMost);
  for (int a = 0; a < 3; ++a) made = made && MakeGrids(dims, mSpread[a], mFlux[a]);
  if (!made) {
    Release();
    return false;
  }
  if (isNew) Leave(0, mStrength->mCount);
  mSlice = mStrength->mSlice;
  return true;
}

void FluxSharpening::Release() {
  mDims = {};
  mStrength.reset();
  mLeast.reset();
  mMost.reset();
  for (int a = 0; a < 3; ++a) {
    mSpread[a].reset();
    mFlux[a].reset();
  }
}

void FluxSharpening::Leave(i32 c, i32 n) {
  if (!mStrength) return;
  std::fill_n(mStrength->mData + c, n, 0.0);
  for (int a = 0; a < 3; ++a) {
    std::fill_n(mSpread[a]->mData + c, n, 0.0f);
    std::fill_n(mFlux[a]->mData + c, n, 0.0f);
  }
}

/// Calls f(first cell, count) for the inner rows.
template <class F>
void FluxSharpening::ForEachRow(F&& f) const {
  ForEachBlock(std::max(0, mDims.z - 2), mThreads, [&](i32 layer) {
    for (i32 y = 1; y < mDims.y - 1; ++y) {
      const IndexRange run = mRows->Inner(y, layer + 1);
      if (!run.IsEmpty()) f(mStrength->Index(run.first, y, layer + 1), run.last - run.first);
    }
  });
}

void FluxSharpening::FindStrengths(const double* content, const double* volume, double nothing,
                                   i32 c, i32 n) {
  FindStrength(content, volume, nothing, n, mStrength->mData + c);
}

void FluxSharpening::FindLimits(const BlockColumns& blocks, const u8* moves, i32 c, i32 n) {
  FindExtremes(blocks, c, n, CornerOffsets(mDims.x, mSlice), mStrength->mData, mLeast->mData + c,
               mMost->mData + c);
  for (int a = 0; a < 3; ++a)
    SpreadRow(blocks.fraction[a], moves, blocks.closed, n, mSpread[a]->mData + c);
}

void FluxSharpening::Run(const RowRuns& rows, const Carried& field,
                         std::span<const ThinFaces::Face> closed, i32 threads) {
  mRows = &rows;
  mThreads = threads;
  WidenLimits(field);
  FindFluxes(field.volume);
  CloseFluxes(closed);
  FindRoom(field);
  Pass(field.content);
}

/// What a step has brought limits too.
void FluxSharpening::WidenLimits(const Carried& field) {
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      const IndexRange run = mRows->At(y, z);
      const i32 c = z * mSlice + y * mDims.x + run.first, n = run.last - run.first;
      FindStrength(field.content + c, field.volume + c, 0, n, mStrength->mData + c);
      WidenRow(mStrength->mData + c, n, mLeast->mData + c, mMost->mData + c);
    }
  });
}

/// Through the faces above the inner cells: outermost ones spread nothing.
void FluxSharpening::FindFluxes(const double* volume) {
  const i32 steps[3] = {1, mDims.x, mSlice};
  ForEachRow([&](i32 c, i32 n) {
    for (int a = 0; a < 3; ++a)
      FluxRow(mSpread[a]->mData + c, mStrength->mData + c, volume + c, steps[a], n,
              mFlux[a]->mData + c);
  });
}

/// The cells on both sides of a thin wall may ask whole blocks that lie away from it.
void FluxSharpening::CloseFluxes(std::span<const ThinFaces::Face> closed) {
  for (const ThinFaces::Face& face : closed) {
    VecInt3D below = face.at;
    if (--below[face.axis] >= 0) (*mFlux[face.axis])(below.x, below.y, below.z) = 0;
  }
}

void FluxSharpening::FindRoom(const Carried& field) {
  const i32 steps[3] = {1, mDims.x, mSlice};
  ForEachRow([&](i32 c, i32 n) {
    const f32* const flux[3] = {mFlux[0]->mData + c, mFlux[1]->mData + c, mFlux[2]->mData + c};
    RoomRow(mStrength->mData + c, field.volume + c, flux, steps, n, mLeast->mData + c,
            mMost->mData + c);
  });
}

void FluxSharpening::Pass(double* content) {
  const i32 steps[3] = {1, mDims.x, mSlice};
  ForEachRow([&](i32 c, i32 n) {
    const f32* const flux[3] = {mFlux[0]->mData + c, mFlux[1]->mData + c, mFlux[2]->mData + c};
    AddLimited(flux, mLeast->mData + c, mMost->mData + c, steps, n, content + c);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
