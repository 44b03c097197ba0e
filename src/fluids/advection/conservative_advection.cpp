#include "fluids/advection/conservative_advection.h"

#include "fluids/advection/even_rows.h"
#include "fluids/fields/channel.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kPushOutMargin = 0.001;
constexpr i32 kEvenRounds = 7;

/// Calls f(index of a corner's cell, weight) for the corners of a block that can hold smoke.
template <class F>
inline void ForEachCorner(const ContributionCoefficients& block, i32 row, i32 slice, F&& f) {
  const double gx = 1 - block.fx, gy = 1 - block.fy, gz = 1 - block.fz;
  const double w[8] = {gx * gy * gz,
                       gx * gy * block.fz,
                       gx * block.fy * gz,
                       gx * block.fy * block.fz,
                       block.fx * gy * gz,
                       block.fx * gy * block.fz,
                       block.fx * block.fy * gz,
                       block.fx * block.fy * block.fz};
  const i32 at[8] = {0, slice, row, row + slice, 1, 1 + slice, 1 + row, 1 + row + slice};
  if (!block.closed) {
    for (int k = 0; k < 8; ++k) f(block.base + at[k], w[k]);
    return;
  }
  double sum = 0;
  for (int k = 0; k < 8; ++k)
    if (!(block.closed >> k & 1)) sum += w[k];
  if (sum <= 0) return;
  for (int k = 0; k < 8; ++k)
    if (!(block.closed >> k & 1)) f(block.base + at[k], w[k] / sum);
}

/// Whether no corner has a weight.
inline bool IsEmpty(const ContributionCoefficients& block) {
  bool any = false;
  ForEachCorner(block, 0, 0, [&](i32, double) { any = true; });
  return !any;
}

}  // namespace

template <class F>
void ConservativeAdvection::ForEachLayer(const Flow& flow, F&& f) const {
  ForEachBlock(mDims.z, flow.threads, f);
}

bool ConservativeAdvection::Fit(const EGrid<double>& source, bool corrected) {
  if (mDims != source.Dims()) {
    Release();
    mDims = source.Dims();
  }
  mSlice = source.mSlice;
  mCellSize = source.mLayout.cellSize;
  const auto make = [&]<class T>(std::unique_ptr<Grid<T>>& grid) {
    if (!grid) grid = std::make_unique<Grid<T>>(mDims, kCentre);
    return grid->mData != nullptr;
  };
  bool made = make(mHolds) && make(mBlocks) && make(mBeta) && make(mBetaUpper) && make(mScale) &&
              make(mGamma) && make(mWork);
  if (corrected)
    made = made && make(mLeast) && make(mMost) && make(mForwardValue) && make(mBackwardValue) &&
           make(mForwardGamma);
  mForward.resize(mDims.z);
  if (!made) Release();
  return made;
}

void ConservativeAdvection::Release() {
  mDims = {};
  mHolds.reset();
  mBlocks.reset();
  mForward.clear();
  for (Field* field : {&mBeta, &mBetaUpper, &mScale, &mGamma, &mWork, &mLeast, &mMost,
                       &mForwardValue, &mBackwardValue, &mForwardGamma})
    field->reset();
}

void ConservativeAdvection::MarkHolders(const Flow& flow, const EGrid<double>& source) {
  const u8* flags = flow.solidCells && flow.solidCells->Dims() == mDims && flow.solidCells->mData
                        ? flow.solidCells->mData
                        : nullptr;
  mFlags = flags;
  ForEachLayer(flow, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y)
      for (i32 x = 0; x < mDims.x; ++x) {
        const i32 c = mHolds->Index(x, y, z);
        mHolds->mData[c] = (flags && (flags[c] & SolidCells::kOpenCentre)) ||
                           !flow.boundary->IsSolid({x + 0.5, y + 0.5, z + 0.5}, source, false);
      }
  });
}

/// The blocks round the ends of paths, given in cells: points in solids are pushed out first.
void ConservativeAdvection::PlaceBlocks(const Flow& flow, RowVectors& ends, i32 n,
                                        ContributionCoefficients* blocks) const {
  i32 cells[kRowChunk];
  if (mFlags) FindCells(ends, mDims, n, cells);
  const i32 row = mDims.x;
  const i32 at[8] = {0, mSlice, row, row + mSlice, 1, 1 + mSlice, 1 + row, 1 + row + mSlice};
  for (i32 i = 0; i < n; ++i) {
    Vec3d p = ends.At(i);
    if (!mFlags || !(mFlags[cells[i]] & SolidCells::kNoPushOut)) {
      Vec3d relative = p * static_cast<double>(mCellSize);
      if (flow.boundary->PushOut(relative, true, kPushOutMargin))
        p = relative / static_cast<double>(mCellSize);
    }
    i32 base[3];
    double fraction[3];
    for (int a = 0; a < 3; ++a) {
      const double c = std::min(std::max(1.0, p[a]), mDims[a] - 1.0) - 0.5;
      base[a] = static_cast<i32>(c);
      fraction[a] = c - base[a];
    }
    blocks[i] = {.base = mHolds->Index(base[0], base[1], base[2]),
                 .fx = fraction[0],
                 .fy = fraction[1],
                 .fz = fraction[2]};
    const u8* holds = mHolds->mData + blocks[i].base;
    u32 closed = 0;
    for (int k = 0; k < 8; ++k) closed |= (holds[at[k]] ^ 1u) << k;
    blocks[i].closed = static_cast<u8>(closed);
  }
}

/// The blocks that the inner cells of a row ask, by paths of `step` seconds from their centres.
void ConservativeAdvection::TraceInnerRow(const Flow& flow, double step, i32 y, i32 z) {
  RowVectors start, k1, ends;
  for (i32 x = 1; x < mDims.x - 1; x += kRowChunk) {
    const i32 n = std::min(kRowChunk, mDims.x - 1 - x), first = mHolds->Index(x, y, z);
    for (i32 i = 0; i < n; ++i) start.Set(i, {x + i + 0.5, y + 0.5, z + 0.5});
    VelocityAtSamples(flow.velocity, kCentre, x, y, z, n, k1);
    TraceRow(flow.velocity, start, k1, step / mCellSize, flow.order, n, ends);
    PlaceBlocks(flow, ends, n, mBlocks->mData + first);
  }
}

void ConservativeAdvection::RecordBackward(const Flow& flow, double step, const double* source,
                                           double* least, double* most) {
  ForEachLayer(flow, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      const bool isBorder = z == 0 || z == mDims.z - 1 || y == 0 || y == mDims.y - 1;
      if (!isBorder) TraceInnerRow(flow, -step, y, z);
      const i32 first = mHolds->Index(0, y, z), last = first + mDims.x - 1;
      for (i32 c = first; c <= last; ++c) {
        // Cells in solids and in the outermost layer keep what they hold: all bits but the lowest
        // corner's are closed.
        ContributionCoefficients& block = mBlocks->mData[c];
        if (isBorder || c == first || c == last || !mHolds->mData[c])
          block = ContributionCoefficients{.base = c, .closed = 0xfe};
        if (least) FindLimits(block, source, c, least, most);
      }
    }
  });
}

/// The extremes of `source` over the corners that a block asks; without one, what `c` holds.
void ConservativeAdvection::FindLimits(const ContributionCoefficients& block, const double* source,
                                       i32 c, double* least, double* most) const {
  double low = kUnbounded, high = -kUnbounded;
  const auto take = [&](i32 corner) {
    const double v = source[corner];
    low = v < low ? v : low;
    high = v > high ? v : high;
  };
  if (block.closed) {
    ForEachCorner(block, mDims.x, mSlice, [&](i32 corner, double) { take(corner); });
    if (low > high) take(c);
  } else {
    for (const i32 dz : {0, mSlice})
      for (const i32 dy : {0, mDims.x})
        for (const i32 dx : {0, 1}) take(block.base + dx + dy + dz);
  }
  least[c] = low;
  most[c] = high;
}

/// How much of every cell is asked for: primary weights times `scale` of the asking cell (null: 1;
/// the outermost layer asks for itself alone, unscaled). Two fixed halves scatter apart, each in
/// cell order.
void ConservativeAdvection::ComputeBeta(const Flow& flow, const double* scale) {
  double* halves[2] = {mBeta->mData, mBetaUpper->mData};
  ForEachBlock(2, flow.threads, [&](i32 half) {
    double* beta = halves[half];
    std::fill_n(beta, mBeta->mCount, 0.0);
    const i32 first = half == 0 ? 0 : mDims.z / 2, last = half == 0 ? mDims.z / 2 : mDims.z;
    for (i32 z = first; z < last; ++z)
      for (i32 y = 0; y < mDims.y; ++y) {
        const bool border = z == 0 || z == mDims.z - 1 || y == 0 || y == mDims.y - 1;
        for (i32 x = 0; x < mDims.x; ++x) {
          const i32 c = z * mSlice + y * mDims.x + x;
          const bool scaled = scale && !border && x > 0 && x < mDims.x - 1;
          const double s = scaled ? scale[c] : 1.0;
          ForEachCorner((*mBlocks)[c], mDims.x, mSlice,
                        [&](i32 corner, double w) { beta[corner] += w * s; });
        }
      }
  });
  ForEachLayer(flow, [&](i32 z) {
    double* beta = mBeta->mData + z * mSlice;
    const double* upper = mBetaUpper->mData + z * mSlice;
    for (i32 i = 0; i < mSlice; ++i) beta[i] += upper[i];
  });
}

/// Adds what the cells send forward to what is asked of them.
void ConservativeAdvection::AddForwardShares(const Flow& flow) {
  ForEachLayer(flow, [&](i32 z) {
    for (const ForwardContribution& forward : mForward[z])
      mBeta->mData[forward.cell] += forward.share;
  });
}

/// Cells that aren't asked for all they hold send the rest where the flow goes. `scale` is the
/// factor on what every cell receives.
void ConservativeAdvection::RecordForward(const Flow& flow, double step, const double* scale) {
  const double* beta = mBeta->mData;
  ForEachLayer(flow, [&](i32 z) {
    std::vector<ForwardContribution>& list = mForward[z];
    list.clear();
    if (z == 0 || z == mDims.z - 1) return;
    RowVectors start;
    i32 cells[kRowChunk], n = 0;
    for (i32 y = 1; y < mDims.y - 1; ++y)
      for (i32 x = 1; x < mDims.x - 1; ++x) {
        const i32 c = mHolds->Index(x, y, z);
        if (!(beta[c] < 1.0) || !mHolds->mData[c]) continue;
        start.Set(n, {x + 0.5, y + 0.5, z + 0.5});
        cells[n++] = c;
        if (n < kRowChunk) continue;
        SendForward(flow, step, scale, start, cells, n, list);
        n = 0;
      }
    SendForward(flow, step, scale, start, cells, n, list);
  });
}

void ConservativeAdvection::SendForward(const Flow& flow, double step, const double* scale,
                                        const RowVectors& start, const i32* cells, i32 n,
                                        std::vector<ForwardContribution>& list) const {
  RowVectors k1, ends;
  ContributionCoefficients blocks[kRowChunk];
  SampleVelocity(flow.velocity, start, n, k1);
  TraceRow(flow.velocity, start, k1, step / mCellSize, flow.order, n, ends);
  PlaceBlocks(flow, ends, n, blocks);
  for (i32 i = 0; i < n; ++i) {
    ForwardContribution forward{
        .cell = cells[i], .amount = 1.0 - mBeta->mData[cells[i]], .block = blocks[i]};
    // Enclosed by solids on all sides: it keeps the rest.
    if (IsEmpty(forward.block)) forward.block = {.base = cells[i], .closed = 0xfe};
    ForEachCorner(forward.block, mDims.x, mSlice, [&](i32 corner, double w) {
      forward.share += forward.amount * w * scale[corner];
    });
    list.push_back(forward);
  }
}

/// What every cell receives of a field of ones: the density error of the step.
void ConservativeAdvection::ComputeGamma(const Flow& flow, const double* scale, double* gamma) {
  // `gamma` serves as the field of ones until the last moment: a gather reads it through a copy.
  ForEachLayer(flow, [&](i32 z) { std::fill_n(gamma + z * mSlice, mSlice, 1.0); });
  Gather(flow, scale, gamma, gamma);
  for (const auto& layer : mForward)
    for (const ForwardContribution& forward : layer) {
      const double given = forward.amount / mBeta->mData[forward.cell];
      ForEachCorner(forward.block, mDims.x, mSlice,
                    [&](i32 corner, double w) { gamma[corner] += given * w * scale[corner]; });
    }
}

/// What every cell asks for of `source`, in the share that each giver can spare. The outermost
/// layer keeps what it holds, whatever is asked of it. `destination` may be the source.
void ConservativeAdvection::Gather(const Flow& flow, const double* scale, const double* source,
                                   double* destination) {
  const double* beta = mBeta->mData;
  double* given = mWork->mData;
  ForEachLayer(flow, [&](i32 z) {
    for (i32 c = z * mSlice; c < (z + 1) * mSlice; ++c)
      given[c] = beta[c] > 0 ? source[c] / beta[c] : source[c];
  });
  ForEachLayer(flow, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      const i32 row = z * mSlice + y * mDims.x, last = row + mDims.x - 1;
      if (z == 0 || z == mDims.z - 1 || y == 0 || y == mDims.y - 1) {
        if (destination != source) std::copy_n(source + row, mDims.x, destination + row);
        continue;
      }
      destination[row] = source[row];
      for (i32 c = row + 1; c < last; ++c) {
        double sum = 0;
        ForEachCorner((*mBlocks)[c], mDims.x, mSlice,
                      [&](i32 corner, double w) { sum += w * given[corner]; });
        destination[c] = sum * scale[c];
      }
      destination[last] = source[last];
    }
  });
}

/// What the cells send on top of it, in cell order.
void ConservativeAdvection::Scatter(const double* scale, const double* source,
                                    double* destination) const {
  for (const auto& layer : mForward)
    for (const ForwardContribution& forward : layer) {
      if (source[forward.cell] == 0) continue;
      const double given = source[forward.cell] * forward.amount / mBeta->mData[forward.cell];
      ForEachCorner(forward.block, mDims.x, mSlice, [&](i32 corner, double w) {
        destination[corner] += given * w * scale[corner];
      });
    }
}

void ConservativeAdvection::EvenSweep(const Flow& flow, i32 axis, const double* in, double* out,
                                      double* destination) {
  const i32 row = mDims.x, last = mDims.x - 1;
  const auto rowAt = [&](i32 c) {
    return EvenRow{in + c, out + c, destination + c, mHolds->mData + c};
  };
  const auto copyRow = [&](i32 y, i32 z) {
    const i32 c = z * mSlice + y * row;
    std::copy_n(in + c, row, out + c);
  };
  // Cut along another axis than the sweep's own: one worker owns both cells of every pair.
  if (axis == 0) {
    ForEachLayer(flow, [&](i32 z) {
      for (i32 y = 0; y < mDims.y; ++y) {
        const i32 c = z * mSlice + y * row;
        if (z == 0 || z == mDims.z - 1 || y == 0 || y == mDims.y - 1) {
          copyRow(y, z);
        } else {
          out[c] = in[c];
          EvenAlong(rowAt(c + 1), last - 1);
        }
      }
    });
    return;
  }
  const i32 lines = axis == 1 ? mDims.y : mDims.z, across = axis == 1 ? mDims.z : mDims.y;
  ForEachBlock(across, flow.threads, [&](i32 i) {
    const bool border = i == 0 || i == across - 1;
    const auto copy = [&](i32 j) { axis == 1 ? copyRow(j, i) : copyRow(i, j); };
    for (i32 j = 0; j < (border ? lines : 2); ++j) copy(j);
    if (border) return;
    for (i32 j = 1; j < lines - 1; ++j) {
      const i32 c = axis == 1 ? i * mSlice + j * row : j * mSlice + i * row;
      const i32 next = c + (axis == 1 ? row : mSlice);
      out[next] = in[next];
      out[next + last] = in[next + last];
      EvenRows(rowAt(c + 1), rowAt(next + 1), last - 1);
    }
  });
}

void ConservativeAdvection::Even(const Flow& flow, double* gamma, double* destination) {
  double* in = gamma;
  double* out = mWork->mData;
  for (i32 round = 0; round < kEvenRounds; ++round)
    for (i32 axis = 0; axis < 3; ++axis) {
      EvenSweep(flow, axis, in, out, destination);
      std::swap(in, out);
    }
  if (in == gamma) return;
  ForEachLayer(flow, [&](i32 z) { std::copy_n(in + z * mSlice, mSlice, gamma + z * mSlice); });
}

void ConservativeAdvection::Step(const Flow& flow, double step, const double* source,
                                 double* destination, const double* weights, double* gamma,
                                 double* least, double* most) {
  RecordBackward(flow, step, source, least, most);
  double* scale = mScale->mData;
  // Without weights a cell's shares add up to 1 already.
  ForEachLayer(flow, [&](i32 z) {
    if (!weights) std::fill_n(scale + z * mSlice, mSlice, 1.0);
    for (i32 c = z * mSlice; weights && c < (z + 1) * mSlice; ++c) {
      double sum = 0;
      ForEachCorner((*mBlocks)[c], mDims.x, mSlice,
                    [&](i32 corner, double w) { sum += w * weights[corner]; });
      scale[c] = sum > 0 ? 1 / sum : 1.0;
    }
    mForward[z].clear();
  });
  ComputeBeta(flow, nullptr);
  RecordForward(flow, step, scale);
  if (weights) ComputeBeta(flow, scale);
  AddForwardShares(flow);
  ComputeGamma(flow, scale, gamma);
  Gather(flow, scale, source, destination);
  Scatter(scale, source, destination);
  Even(flow, gamma, destination);
}

bool ConservativeAdvection::Advect(const Flow& flow, const EGrid<double>& source,
                                   EGrid<double>& destination) {
  if (!Fit(source, false)) return false;
  MarkHolders(flow, source);
  Step(flow, flow.step, source.mData, destination.mData, nullptr, mGamma->mData, nullptr, nullptr);
  return true;
}

bool ConservativeAdvection::AdvectCorrected(const Flow& flow, const EGrid<double>& source,
                                            EGrid<double>& destination) {
  if (!Fit(source, true)) return false;
  MarkHolders(flow, source);
  double *least = mLeast->mData, *most = mMost->mData;
  double *forth = mForwardValue->mData, *back = mBackwardValue->mData;
  Step(flow, flow.step, source.mData, forth, nullptr, mForwardGamma->mData, least, most);
  Step(flow, -flow.step, forth, back, mForwardGamma->mData, mGamma->mData, nullptr, nullptr);
  double* excess = back;
  ForEachLayer(flow, [&](i32 z) {
    for (i32 c = z * mSlice; c < (z + 1) * mSlice; ++c) {
      const double value = (source.mData[c] - back[c]) * 0.5 + forth[c];
      const double limited = std::min(std::max(value, least[c]), most[c]);
      destination.mData[c] = limited;
      excess[c] = value - limited;
    }
  });
  GiveBack(least, most, destination.mData, excess);
  return true;
}

void ConservativeAdvection::GiveBack(const double* least, const double* most, double* value,
                                     double* excess) const {
  // To the neighbours first, as far as their own limits allow.
  const i32 beside[6] = {-1, 1, -mDims.x, mDims.x, -mSlice, mSlice};
  const u8* holds = mHolds->mData;
  const CellBox inner{{1, 1, 1}, mDims - VecInt3D{1, 1, 1}};
  const CellBox deep{{2, 2, 2}, mDims - VecInt3D{2, 2, 2}};
  double rest[2] = {0, 0};  // what is left over, of surplus and of want
  ForEachCell(inner, [&](i32 x, i32 y, i32 z) {
    const i32 c = mHolds->Index(x, y, z);
    double e = excess[c];
    if (e == 0) return;
    const VecInt3D cell{x, y, z};
    for (int k = 0; k < 6 && e != 0; ++k) {
      const int axis = k / 2;
      if (k % 2 ? cell[axis] >= deep.max[axis] : cell[axis] < deep.min[axis]) continue;
      const i32 n = c + beside[k];
      if (!holds[n]) continue;
      const double t = e > 0 ? std::min(e, std::max(most[n] - value[n], 0.0))
                             : std::max(e, std::min(least[n] - value[n], 0.0));
      // Rounding must not carry a value across its limit.
      value[n] = e > 0 ? value[n] + t : std::max(value[n] + t, least[n]);
      e -= t;
    }
    excess[c] = e;
    rest[e < 0] += e;
  });
  // Then to all cells with room, in proportion to it; what finds no room stays where it was.
  for (int want = 0; want < 2; ++want) {
    if (rest[want] == 0) continue;
    const auto room = [&](i32 c) {
      return !holds[c] ? 0.0
             : want    ? std::min(least[c] - value[c], 0.0)
                       : std::max(most[c] - value[c], 0.0);
    };
    double all = 0;
    ForEachCell(inner, [&](i32 x, i32 y, i32 z) { all += room(mHolds->Index(x, y, z)); });
    const double share = all == 0 ? 0.0 : std::min(rest[want] / all, 1.0);
    double given = 0;
    ForEachCell(inner, [&](i32 x, i32 y, i32 z) {
      const i32 c = mHolds->Index(x, y, z);
      const double t = room(c) * share;
      if (t == 0) return;
      value[c] = want ? std::max(value[c] + t, least[c]) : value[c] + t;
      given += t;
    });
    if (share < 1 && all != 0) continue;
    const double kept = 1 - given / rest[want];
    ForEachCell(inner, [&](i32 x, i32 y, i32 z) {
      const i32 c = mHolds->Index(x, y, z);
      if ((excess[c] < 0) == (want == 1)) value[c] += excess[c] * kept;
    });
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
