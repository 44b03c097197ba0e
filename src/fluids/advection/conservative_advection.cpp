#include "fluids/advection/conservative_advection.h"

#include "fluids/advection/clear_cells.h"
#include "fluids/advection/share_rows.h"
#include "fluids/fields/channel.h"
#include "framework/state_archive.h"
#include "grids/make_grids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kSlabLayers = 8;
// Farther than any grid is wide.
constexpr i32 kAnywhere = 1'000'000;
// A solid that moves covers cells of volume one; a field starts out with that everywhere.
constexpr ScalarWalls::Values kVolumeRange{.nothing = 0, .outside = 1, .initial = 1};

}  // namespace

bool ConservativeAdvection::Fit(const EGrid<double>& source, bool sharp) {
  if (mDims != source.Dims()) {
    std::unique_ptr<EGrid<double>> volume = std::move(mVolume);
    Release();
    mVolume = std::move(volume);
    mDims = source.Dims();
  }
  mSlice = source.mSlice;
  const bool isNew = !mGivenVolume;
  mCellSize = source.mLayout.cellSize;
  bool made =
      MakeGrids(mDims, mHolds, mMoves, mClosed, mBase, mAskedClosed, mGivenContent, mGivenVolume,
                mMovedContent, mMovedVolume, mFraction[0], mFraction[1], mFraction[2]) &&
      mEvening.Fit(mDims);
  if (sharp) made = made && mSharpening.Fit(mDims);
  made = made && FitVolume(source);
  mForward.resize(mDims.z);
  mReach.resize(mDims.z);
  mSlabs.resize((mDims.z + kSlabLayers - 1) / kSlabLayers);
  if (!made) {
    Release();
    return false;
  }
  if (isNew) {
    mGivenContent->Fill(0);
    mGivenVolume->Fill(1);
    mRowsBefore.Clear();
  }
  mBlocks = {mBase->mData,
             mAskedClosed->mData,
             {mFraction[0]->mData, mFraction[1]->mData, mFraction[2]->mData}};
  return true;
}

/// Cells that are new since the last step hold a volume of one.
bool ConservativeAdvection::FitVolume(const EGrid<double>& source) {
  const GridLayout& layout = source.mLayout;
  const auto isAt = [&](const GridLayout& l) {
    return l.dims == layout.dims && l.originCell == layout.originCell;
  };
  if (mVolume && mVolume->mData && mVolume->Dims() == mDims && isAt(mVolume->mLayout)) return true;
  auto fitted = std::make_unique<EGrid<double>>(layout, kCentre);
  if (!fitted->mData) return false;
  std::fill_n(fitted->mData, fitted->mCount, 1.0);
  if (mVolume && mVolume->mData && mVolume->mLayout.cellSize == layout.cellSize) {
    const VecInt3D shift = layout.originCell - mVolume->mLayout.originCell, n = mVolume->Dims();
    for (i32 z = std::max(0, -shift.z); z < std::min(mDims.z, n.z - shift.z); ++z)
      for (i32 y = std::max(0, -shift.y); y < std::min(mDims.y, n.y - shift.y); ++y) {
        const i32 first = std::max(0, -shift.x), last = std::min(mDims.x, n.x - shift.x);
        if (first < last)
          std::copy_n(&(*mVolume)(first + shift.x, y + shift.y, z + shift.z), last - first,
                      &(*fitted)(first, y, z));
      }
  }
  mVolume = std::move(fitted);
  mIsSettled = false;
  return true;
}

void ConservativeAdvection::Release() {
  mDims = {};
  for (auto* flags : {&mHolds, &mMoves, &mClosed, &mAskedClosed}) flags->reset();
  mBase.reset();
  mBlocks = {};
  mVolume.reset();
  mSlabs.clear();
  mForward.clear();
  mReach.clear();
  mRows.Clear();
  mRowsBefore.Clear();
  mIsSettled = false;
  for (Field* field : {&mGivenContent, &mGivenVolume, &mMovedContent, &mMovedVolume, &mFraction[0],
                       &mFraction[1], &mFraction[2]})
    field->reset();
  mEvening.Release();
  mSharpening.Release();
}

void ConservativeAdvection::Persist(StateArchive& archive) {
  archive(mVolume);
  mIsSettled = false;
}

/// Solids and thin walls may bring paths anywhere, where nothing is known of them.
void ConservativeAdvection::FindActive(const Flow& flow, const EGrid<double>& source) {
  std::swap(mRows, mRowsBefore);
  const bool isBounded = FindReach(flow.velocity, flow.step / mCellSize, flow.threads, mFarthest);
  if (!isBounded) mFarthest = {kAnywhere, kAnywhere, kAnywhere};
  mFlags = flow.solidCells && flow.solidCells->Dims() == mDims && flow.solidCells->mData
               ? flow.solidCells
               : nullptr;
  if (isBounded && mFlags && !flow.thin && mDims.x > 2) {
    mRows.Take({&source, flow.nothing}, *mFlags, mFarthest, flow.reach, flow.threads);
  } else {
    mRows.TakeAll(mDims);
  }
  if (mRowsBefore.Dims() != mDims || mRowsBefore.IsEmpty()) mRowsBefore.TakeNone(mDims);
  ForEachLayer(flow, [&](i32 z) { Leave(z); });
  mIsSettled = true;
}

/// What isn't active any more holds nothing, and a volume of one.
void ConservativeAdvection::Leave(i32 z) {
  for (i32 y = 0; y < mDims.y; ++y) {
    const i32 row = z * mSlice + y * mDims.x;
    mRows.ForEachLeft(mRowsBefore, y, z, [&](i32 first, i32 last) {
      const i32 c = row + first, n = last - first;
      std::fill_n(mGivenContent->mData + c, n, 0.0);
      std::fill_n(mGivenVolume->mData + c, n, 1.0);
      std::fill_n(mVolume->mData + c, n, 1.0);
      mEvening.Leave(c, n);
      mSharpening.Leave(c, n);
    });
    if (mIsSettled) continue;
    const IndexRange run = mRows.At(y, z);
    std::fill_n(mVolume->mData + row, run.first, 1.0);
    std::fill_n(mVolume->mData + row + run.last, mDims.x - run.last, 1.0);
  }
}

void ConservativeAdvection::MarkHolders(const Flow& flow, const EGrid<double>& source) {
  if (flow.wallCells && flow.wallCells->Fits(*mVolume))
    flow.wallCells->HandOver(kVolumeRange, flow.reach, *mVolume);
  ForEachLayer(flow, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y)
      if (mRows.IsNear(y, z)) MarkRow(flow, source, y, z);
  });
  ForEachLayer(flow, [&](i32 z) { FindClosed(z); });
}

void ConservativeAdvection::MarkRow(const Flow& flow, const EGrid<double>& source, i32 y, i32 z) {
  const i32 n = mDims.x, first = mHolds->Index(0, y, z);
  u8 *holds = mHolds->mData + first, *moves = mMoves->mData + first;
  const u8* walls = flow.thin ? flow.thin->Bits() + first : nullptr;
  const bool isInner = !IsOutermostRow(y, z);
  const bool isOpen = isInner && mFlags && !walls && n > 2 &&
                      (CommonBits(mFlags->mData + first + 1, n - 2) & SolidCells::kOpenCentre);
  const auto isFree = [&](i32 x) {
    return (mFlags && ((*mFlags)[first + x] & SolidCells::kOpenCentre)) ||
           !flow.boundary->IsSolid({x + 0.5, y + 0.5, z + 0.5}, source, false);
  };
  if (isOpen) {
    std::fill_n(holds, n, u8{1});
    for (const i32 end : {0, n - 1}) holds[end] = isFree(end);
  } else {
    for (i32 x = 0; x < n; ++x) holds[x] = isFree(x) && !(walls && (walls[x] & ThinFaces::kFilled));
  }
  for (i32 x = 0; x < n; ++x)
    moves[x] = static_cast<u8>((1 | (walls ? walls[x] << 1 : 0)) * (holds[x] && isInner));
  moves[0] = moves[n - 1] = 0;
  // What comes in from outside isn't thinned.
  double* volume = mVolume->mData + first;
  const IndexRange run = mRows.At(y, z);
  const auto settle = [&](i32 x) { volume[x] = moves[x] ? volume[x] : holds[x]; };
  if (isOpen) {
    if (run.first == 0) settle(0);
    if (run.last == n) settle(n - 1);
    return;
  }
  for (i32 x = run.first; x < run.last; ++x) settle(x);
}

void ConservativeAdvection::FindClosed(i32 z) {
  if (z == mDims.z - 1) return;
  for (i32 y = 0; y < mDims.y - 1; ++y) {
    if (!mRows.IsNear(y, z)) continue;
    const i32 first = mHolds->Index(0, y, z);
    FindClosedCorners(mHolds->mData + first, mDims.x, mSlice, mDims.x - 1, mClosed->mData + first);
  }
}

bool ConservativeAdvection::Advect(const Flow& flow, const EGrid<double>& source,
                                   EGrid<double>& destination, bool sharp) {
  if (!Fit(source, sharp)) return false;
  FindActive(flow, source);
  MarkHolders(flow, source);
  ForEachBlock(static_cast<i32>(mSlabs.size()), flow.threads,
               [&](i32 slab) { AskSlab(flow, slab); });
  Settle(flow, source, sharp);
  const u8* moves = mMoves->mData;
  const Carried moved{mMovedContent->mData, mMovedVolume->mData};
  Gather(flow, moved, sharp);
  Scatter(flow, moved);
  // What was given is over: its memory serves again. The volume is that of the next step from here.
  const Carried evened{destination.mData, mVolume->mData};
  mEvening.Run(moves, mRows, moved, evened, {mGivenContent->mData, mGivenVolume->mData},
               flow.threads);
  if (sharp)
    mSharpening.Run(mRows, evened,
                    flow.thin ? flow.thin->Faces() : std::span<const ThinFaces::Face>{},
                    flow.threads);
  Complete(flow, destination);
  return true;
}

/// The field is what the step has moved above nothing, and that where it moved none.
void ConservativeAdvection::Complete(const Flow& flow, EGrid<double>& destination) const {
  ForEachLayer(flow, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      const IndexRange run = mRows.At(y, z);
      double* row = destination.mData + z * mSlice + y * mDims.x;
      std::fill_n(row, run.first, flow.nothing);
      std::fill_n(row + run.last, mDims.x - run.last, flow.nothing);
      if (flow.nothing != 0)
        for (i32 x = run.first; x < run.last; ++x) row[x] += flow.nothing;
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
