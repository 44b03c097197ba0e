#include "fluids/operators/grid_diffusion.h"

#include <cmath>

#include "fluids/emission/emission_settings.h"
#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/operators/axis_blur.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/wide_kernel.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// What a cell takes at most of each difference at once: no wave grows or turns over, whatever its
/// length. More strength takes more passes, up to a number that nobody waits for in vain.
constexpr double kMostTaken = 1.0 / 12;
constexpr i32 kMostPasses = 100;

/// Below this width, in cells, samples of a Gaussian no longer have its variance.
constexpr double kNarrow = 1.0;

/// The weight at a distance of k cells in a blur of width s: exp(-k^2 / s^2), or the same in a
/// world of cells, exp(-t) I_k(t), whose variance t = s^2 / 2 is exact however narrow it is
/// (Lindeberg, "Scale-space for discrete signals", 1990).
double TapOf(i32 k, double s) {
  if (s >= kNarrow) return std::exp(-(double(k) * k) / (s * s));
  return std::exp(-s * s / 2) * std::cyl_bessel_i(double(k), s * s / 2);
}

/// Each sample takes the share `a` of its difference to every neighbour that it touches: what one
/// gives is what the other gets. The bits of the links are those of the row and of the rows below
/// along y and z.
SULVA_WIDE_KERNEL void Relax(const double* __restrict c, const double* __restrict y0,
                             const double* __restrict y1, const double* __restrict z0,
                             const double* __restrict z1, const u8* __restrict links,
                             const u8* __restrict linksY, const u8* __restrict linksZ,
                             double* __restrict target, i32 n, double a, bool onlyUp) {
  for (i32 x = 0; x < n; ++x) {
    const double alongX =
        (links[x - 1] & 1) * (c[x - 1] - c[x]) + (links[x] & 1) * (c[x + 1] - c[x]);
    const double alongY =
        (linksY[x] >> 1 & 1) * (y0[x] - c[x]) + (links[x] >> 1 & 1) * (y1[x] - c[x]);
    const double alongZ =
        (linksZ[x] >> 2 & 1) * (z0[x] - c[x]) + (links[x] >> 2 & 1) * (z1[x] - c[x]);
    const double v = c[x] + a * ((alongX + alongY) + alongZ);
    target[x] = onlyUp & (target[x] > v) ? target[x] : v;
  }
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
      RealRow(kStrengthRow, "strength", 1.0, "host/s",
              "how soft it gets: with gaussian the width of the blur behind a second, in host "
              "units; else what each of six neighbours gives of its difference in a second")
          .AtLeast(0)
          .To(&GridDiffusion::mStrengthRow),
      LongRow(1002, "rounds", 1, "", "repeats the blur in each substep, for more of it")
          .Range(1, 10000)
          .To(&GridDiffusion::mRounds),
      CurveRow(1000, "round_curve", "a curve over the repeats, kept with the node").Kept(),
  };
  return table;
}

bool GridDiffusion::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  mStrengthPerSecond = IsGaussian() ? mStrengthRow / GetDomain().worldCell.x : mStrengthRow;
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

void GridDiffusion::Release(bool full) {
  if (full) iObject::Release(true);
  for (auto& grid : mWork) grid.reset();
  mLinks.Release();
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

bool GridDiffusion::FindLinks(const EGrid<double>& grid) {
  std::vector<FlowBounds> flows;
  for (const auto& [id, object] : mScene->List(kListSolvers)) {
    const auto* solver = dynamic_cast<const iFluidSolver*>(object.get());
    if (!solver || !solver->Has(FLAG_ENABLED)) continue;
    const Flow& flow = solver->GetFlow();
    if (flow.GetLayout() && flow.mWallCells.IsBuilt())
      flows.push_back({*flow.GetLayout(), flow.mWallCells, flow.mThinFaces});
  }
  if (mLinks.Build(grid, flows, mScene->mThreadCount)) return true;
  Release(false);
  return Deactivate("its work grids do not fit into memory");
}

void GridDiffusion::Prepare() {
  const EGrid<double>* grid = Component(0);
  if (!Channel()) return (void)Deactivate("it has no channel; name one under 'channel'");
  if (mTime->stepDuration == 0) return (void)Deactivate(kNoStepReason);
  if (IsPlayed(Channel())) return (void)Deactivate(kPlayedReason);
  if (!grid) return (void)Deactivate("its channel has no grid");
  if (!MakeWorkGrids(IsGaussian() ? 2 : 1, *grid)) return;
  if (grid->mNz < 3) return (void)Deactivate("its channel has no inner cells");
  if (!FindLinks(*grid)) return;
  if (mScalar) mScalar->SettleEmission();
  SetFlag(FLAG_ACTIVE, true);
}

void GridDiffusion::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE)) return;
  for (i32 round = 0; round < mRounds; ++round)
    for (i32 i = 0; i < 3; ++i) {
      EGrid<double>* grid = Component(i);
      if (!grid) continue;
      if (IsCancelled()) return;
      IsGaussian() ? Blur(*grid) : Smooth(*grid);
    }
}

void GridDiffusion::Blur(EGrid<double>& grid) {
  // Variances add up over the steps, and the variance of a blur is the square of its width.
  const double width = mStrengthPerSecond * std::sqrt(mTime->stepDuration);
  const VecInt3D dims = grid.Dims();
  const std::vector<double> kernel = MakeKernel(width, std::max({dims.x, dims.y, dims.z}));
  EGrid<double>* const stations[] = {&grid, mWork[0].get(), mWork[1].get(), &grid};
  for (i32 axis = 0; axis < 3; ++axis) {
    const AxisBlur blur(*stations[axis], *stations[axis + 1], axis, kernel, mLinks, grid.mRangeMax);
    ForEachShare(mScene->mThreadCount, mScene->mThread,
                 [&](const EvaluationThreadData& share) { blur.Run(share); });
  }
}

void GridDiffusion::Smooth(EGrid<double>& grid) {
  // Shares add up over passes and steps as long as they are small: so what a second does is the
  // same in however many steps.
  const double strength = mStrengthPerSecond * mTime->stepDuration;
  const i32 passes =
      static_cast<i32>(std::clamp(std::ceil(strength / kMostTaken), 1.0, double{kMostPasses}));
  const double taken = std::min(strength / passes, kMostTaken);
  for (i32 pass = 0; pass < passes && !IsCancelled(); ++pass) SmoothOnce(grid, taken);
}

void GridDiffusion::SmoothOnce(EGrid<double>& grid, double taken) {
  const EGrid<double>& source = *mWork[0];
  const bool onlyUp = mMode == static_cast<i32>(DiffusionMode::Grow);
  const i32 ny = source.mNx, nz = source.mSlice;
  CopyAll(grid, *mWork[0], mScene->mThreadCount);
  ForEachShare(mScene->mThreadCount, mScene->mThread, [&](const EvaluationThreadData& share) {
    const CellBox box = share.InnerLayersOf(grid.Dims());
    for (i32 z = box.min.z; z < box.max.z && !share.TestBreak(); ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) {
        const i32 first = source.Index(box.min.x, y, z);
        const double* c = source.mData + first;
        const u8* links = mLinks.Bits() + first;
        Relax(c, c - ny, c + ny, c - nz, c + nz, links, links - ny, links - nz, grid.mData + first,
              box.max.x - box.min.x, taken, onlyUp);
      }
  });
}

void GridDiffusion::Finish() {
  iObject::Finish();
  if (Has(FLAG_ACTIVE) && mScalar) mScalar->BookWork();
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
