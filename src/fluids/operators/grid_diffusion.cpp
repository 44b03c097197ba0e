#include "fluids/operators/grid_diffusion.h"

#include <cmath>

#include "fluids/emission/emission_settings.h"
#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/fixed_blocks.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// Below this width, in cells, samples of a Gaussian no longer have its variance.
constexpr double kNarrow = 1.0;

/// The weight at a distance of k cells in a blur of width s: exp(-k^2 / s^2), or the same in a
/// world of cells, exp(-t) I_k(t), whose variance t = s^2 / 2 is exact however narrow it is
/// (Lindeberg, "Scale-space for discrete signals", 1990).
double TapOf(i32 k, double s) {
  if (s >= kNarrow) return std::exp(-(double(k) * k) / (s * s));
  return std::exp(-s * s / 2) * std::cyl_bessel_i(double(k), s * s / 2);
}

/// sum[x] += w * v[x].
SULVA_WIDE_KERNEL void AddTap(double* __restrict sum, const double* __restrict v, double w, i32 n) {
  for (i32 x = 0; x < n; ++x) sum[x] += w * v[x];
}

/// Weighted means from sums; a sum of exactly 0 leaves the value of the source.
SULVA_WIDE_KERNEL void TakeMeans(const double* __restrict sum, const double* __restrict divisors,
                                 const double* __restrict source, double* __restrict target, i32 n,
                                 double most) {
  for (i32 x = 0; x < n; ++x) {
    const double mean = sum[x] * divisors[x];
    const double capped = mean > most ? most : mean;
    target[x] = sum[x] == 0 ? source[x] : capped;
  }
}
SULVA_WIDE_KERNEL void TakeMeansAlike(const double* __restrict sum, double divisor,
                                      const double* __restrict source, double* __restrict target,
                                      i32 n, double most) {
  for (i32 x = 0; x < n; ++x) {
    const double mean = sum[x] * divisor;
    const double capped = mean > most ? most : mean;
    target[x] = sum[x] == 0 ? source[x] : capped;
  }
}

SULVA_WIDE_KERNEL void Relax(const double* __restrict c, const double* __restrict y0,
                             const double* __restrict y1, const double* __restrict z0,
                             const double* __restrict z1, double* __restrict target, i32 n,
                             double s, double divisor, bool onlyUp) {
  for (i32 x = 0; x < n; ++x) {
    const double sides = (c[x - 1] + c[x + 1]) + (y0[x] + y1[x]) + (z0[x] + z1[x]);
    const double v = (c[x] + s * sides) * divisor;
    target[x] = onlyUp & (target[x] > v) ? target[x] : v;
  }
}

/// The outermost layer, which no pass writes, as it is in the channel: taps there see it.
void CopyBorder(const EGrid<double>& from, EGrid<double>& to, i32 threads) {
  ForEachBlock(from.mNz, threads, [&](i32 z) {
    const double* a = from.mData + std::ptrdiff_t{1} * from.mSlice * z;
    double* b = to.mData + std::ptrdiff_t{1} * to.mSlice * z;
    if (z == 0 || z == from.mNz - 1) return void(std::copy_n(a, from.mSlice, b));
    for (i32 y = 0; y < from.mNy; ++y, a += from.mNx, b += from.mNx) {
      if (y == 0 || y == from.mNy - 1) {
        std::copy_n(a, from.mNx, b);
      } else {
        b[0] = a[0];
        b[from.mNx - 1] = a[from.mNx - 1];
      }
    }
  });
}

void CopyAll(const EGrid<double>& from, EGrid<double>& to, i32 threads) {
  ForEachBlock(from.mNz, threads, [&](i32 z) {
    const std::ptrdiff_t first = std::ptrdiff_t{1} * from.mSlice * z;
    std::copy_n(from.mData + first, from.mSlice, to.mData + first);
  });
}

}  // namespace

const NodeKind& GridDiffusion::Kind() {
  static const NodeKind kind = {
      .id = 1300001,
      .type = "grid_diffusion",
      .label = "GOP::Diffusor",
      .className = "GridDiffusion",
      .typeId = kTypeId,
      .list = kListOperators,
      .categories = kCategoryGrid,
      .flags = "IE",
      .stages = {kChannelsOperators},
      .priority = 30,
      .menu = {"Grids/Operators"},
      .purpose = "blurs a field: soft edges, no single bright cells",
      .example =
          {{},
           {example::kSmoke,
            R"({ "type": "grid_diffusion", "name": "soften", "parameters": { "channel": "smoke", "mode": "smooth", "strength": 8 } })"}},
      .rows = Parameters,
      .make = MakeNode<GridDiffusion>,
  };
  return kind;
}

const ParameterTable& GridDiffusion::Parameters() {
  static const ParameterTable table = {
      LinkRow(1003, "channel", "what gets soft edges")
          .AcceptsAny(kAllChannels)
          .To(&GridDiffusion::mScalar)
          .To(&GridDiffusion::mVector)
          .Writes()
          .Required(),
      LongRow(1005, "mode", 1, "",
              "how it blurs: gaussian wide and even, the others between neighbours")
          .Choices({{0, "gaussian"}, {1, "smooth"}, {2, "grow"}})
          .To(&GridDiffusion::mMode),
      RealRow(1001, "strength", 1.0, "host/s",
              "how soft it gets: with gaussian the width of the blur behind a second, in host "
              "units; else how much neighbours count, in cells a second")
          .AtLeast(0)
          .To(&GridDiffusion::mStrengthRow),
      LongRow(1002, "rounds", 1, "", "repeats the blur in each substep, for more of it")
          .Range(1, 10000)
          .To(&GridDiffusion::mRounds),
      CurveRow(1000, "round_curve", "a curve over the repeats, kept with the node").Kept(),
  };
  return table;
}

GridDiffusion::GridDiffusion(BaseNode* node, Scene* scene) : iObject(node, scene) {
  mPassCount = 3;
}

bool GridDiffusion::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  const bool isGaussian = mMode == static_cast<i32>(DiffusionMode::Gaussian);
  mStrengthPerSecond = isGaussian ? mStrengthRow / GetDomain().worldCell.x : mStrengthRow;
  return true;
}

bool GridDiffusion::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  return mScalar || mVector;
}

iBase* GridDiffusion::Channel() const {
  if (mScalar) return mScalar;
  return mVector;
}

EGrid<double>* GridDiffusion::Component(i32 i) const {
  EGrid<double>* grid = mScalar ? mScalar->GetGrid(i) : mVector ? mVector->GetGrid(i) : nullptr;
  return grid && grid->mData ? grid : nullptr;
}

void GridDiffusion::CheckDirty() {
  const bool changed = IsDirtyNow(Channel());
  iObject::CheckDirty();
  if (IsSimulating(*this)) {
    if (!IsDirty()) MarkDirty(false);
    MarkChanged(Channel());
  } else if (!changed) {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
}

void GridDiffusion::Reset() {
  mPass = -1;
  mComponent = mRound = 0;
}

void GridDiffusion::Release(bool full) {
  if (full) iObject::Release(true);
  for (auto& grid : mWork) grid.reset();
}

bool GridDiffusion::NextPass() {
  ++mPass;
  // The other filters have a single pass.
  if (mMode != static_cast<i32>(DiffusionMode::Gaussian) && mPass >= 1) mPass = mPassCount;
  if (mVector && mPass == mPassCount) {
    ++mComponent;
    mPass = 0;
  }
  if (mComponent < 3 && mPass < mPassCount) return true;
  ++mRound;
  mComponent = 0;
  mPass = -1;
  if (mRound >= mRounds) {
    mRound = 0;
    return false;
  }
  mPass = 0;
  return true;
}

std::vector<double> GridDiffusion::MakeKernel(double s, i32 reach) {
  const double wide = s < kNarrow ? kNarrow : s;
  const i32 half = s > 0 ? static_cast<i32>(std::min<double>(std::ceil(3 * wide), reach)) : 0;
  std::vector<double> kernel(1 + 2 * half, 1.0);
  double sum = 0;
  for (i32 k = -half; k <= half; ++k) {
    kernel[half + k] = TapOf(std::abs(k), s);
    sum += kernel[half + k];
  }
  for (double& tap : kernel) tap /= sum;
  return kernel;
}

bool GridDiffusion::MakeWorkGrids(i32 count, const EGrid<double>& like) {
  for (i32 i = 0; i < count; ++i) {
    if (!mWork[i] || mWork[i]->Dims() != like.Dims())
      mWork[i] = std::make_unique<EGrid<double>>(like.mLayout, like.mKind);
    if (!mWork[i]->mData) {
      Release(false);
      return Deactivate("its work grids do not fit into memory");
    }
  }
  return true;
}

void GridDiffusion::Prepare() {
  EGrid<double>* grid = Component(mComponent);
  if (!Channel()) return (void)Deactivate("it has no channel");
  if (mTime->stepDuration == 0) return (void)Deactivate(kNoStepReason);
  if (IsPlayed(Channel())) return (void)Deactivate(kPlayedReason);
  if (!grid) return (void)Deactivate("its channel has no grid");
  const bool isGaussian = mMode == static_cast<i32>(DiffusionMode::Gaussian);
  if (!MakeWorkGrids(isGaussian ? 2 : 1, *grid)) return;
  if (grid->mNz < 3) return (void)Deactivate("its channel has no inner cells");
  const i32 threads = mScene->mThreadCount;
  mRangeMax = grid->mRangeMax;
  // Variances add up over the steps, and the variance of a blur is the square of its width.
  if (mPass == 0)
    mStrength =
        mStrengthPerSecond * (isGaussian ? std::sqrt(mTime->stepDuration) : mTime->stepDuration);
  if (!isGaussian) {
    CopyAll(*grid, *mWork[0], threads);
    mSource = mWork[0].get();
    mTarget = grid;
    return SetFlag(FLAG_ACTIVE, true);
  }
  const VecInt3D dims = grid->Dims();
  if (mPass == 0) {
    mKernel = MakeKernel(mStrength, std::max({dims.x, dims.y, dims.z}));
    mKernelHalf = static_cast<i32>(mKernel.size() / 2);
    CopyBorder(*grid, *mWork[0], threads);
    CopyBorder(*grid, *mWork[1], threads);
  }
  mSource = mPass == 0 ? grid : mWork[mPass - 1].get();
  mTarget = mPass == 2 ? grid : mWork[mPass].get();
  const i32 n = dims[mPass];
  mDivisors.assign(n, 0.0);
  for (i32 i = 0; i < n; ++i) {
    double inside = 0;
    for (i32 k = std::max(-mKernelHalf, -i); k <= std::min(mKernelHalf, n - 1 - i); ++k)
      inside += mKernel[mKernelHalf + k];
    mDivisors[i] = inside > 0 ? 1 / inside : 0.0;
  }
  SetFlag(FLAG_ACTIVE, true);
}

void GridDiffusion::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  if (mMode != static_cast<i32>(DiffusionMode::Gaussian)) {
    const CellBox box = data.InnerLayersOf(mTarget->Dims());
    for (i32 z = box.min.z; z < box.max.z && !data.TestBreak(); ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) SmoothRow(y, z, box);
    return;
  }
  // The axis of the pass runs inside the other one, so that the rows of the taps stay at hand.
  const CellBox box{{1, 1, 1}, mTarget->Dims() - VecInt3D{1, 1, 1}};
  std::vector<double> sum(std::max(box.max.x - box.min.x, 0));
  if (mPass == 2) {
    const IndexRange own = data.ItemsOf(box.min.y, box.max.y);
    for (i32 y = own.first; y < own.last && !data.TestBreak(); ++y)
      for (i32 z = box.min.z; z < box.max.z; ++z) BlurRow(y, z, box, sum.data());
  } else {
    const IndexRange own = data.ItemsOf(box.min.z, box.max.z);
    for (i32 z = own.first; z < own.last && !data.TestBreak(); ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) BlurRow(y, z, box, sum.data());
  }
}

void GridDiffusion::BlurRow(i32 y, i32 z, const CellBox& box, double* sum) const {
  const i32 n = box.max.x - box.min.x, first = mSource->Index(box.min.x, y, z);
  const double* source = mSource->mData + first;
  double* target = mTarget->mData + first;
  std::fill_n(sum, n, 0.0);
  if (mPass == 0) {
    for (i32 k = -mKernelHalf; k <= mKernelHalf; ++k) {
      // Cells of the row whose tap lies in the grid.
      const i32 from = std::max(box.min.x, -k), to = std::min(box.max.x, mSource->mNx - k);
      if (from >= to) continue;
      AddTap(sum + (from - box.min.x), source + (from - box.min.x) + k, mKernel[mKernelHalf + k],
             to - from);
    }
    return TakeMeans(sum, mDivisors.data() + box.min.x, source, target, n, mRangeMax);
  }
  const i32 at = mPass == 1 ? y : z, count = mPass == 1 ? mSource->mNy : mSource->mNz;
  const std::ptrdiff_t step = mPass == 1 ? mSource->mNx : mSource->mSlice;
  for (i32 k = std::max(-mKernelHalf, -at); k <= std::min(mKernelHalf, count - 1 - at); ++k)
    AddTap(sum, source + k * step, mKernel[mKernelHalf + k], n);
  TakeMeansAlike(sum, mDivisors[at], source, target, n, mRangeMax);
}

void GridDiffusion::SmoothRow(i32 y, i32 z, const CellBox& box) const {
  const i32 first = mSource->Index(box.min.x, y, z);
  const double* c = mSource->mData + first;
  const i32 ny = mSource->mNx, nz = mSource->mSlice;
  Relax(c, c - ny, c + ny, c - nz, c + nz, mTarget->mData + first, box.max.x - box.min.x, mStrength,
        1 / (1 + 6 * mStrength), mMode == static_cast<i32>(DiffusionMode::Grow));
}

void GridDiffusion::Finish() {
  iObject::Finish();
  mSource = nullptr;
  mTarget = nullptr;
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
