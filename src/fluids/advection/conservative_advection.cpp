#include "fluids/advection/conservative_advection.h"

#include "fluids/fields/channel.h"
#include "framework/state_archive.h"
#include "grids/make_grids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kSlabLayers = 8;
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
  mCellSize = source.mLayout.cellSize;
  bool made =
      MakeGrids(mDims, mHolds, mMoves, mBlocks, mAsked, mGiven, mMoved) && mEvening.Fit(mDims);
  if (sharp) made = made && mSharpening.Fit(mDims);
  made = made && FitVolume(source);
  mForward.resize(mDims.z);
  mReach.resize(mDims.z);
  mSlabs.resize((mDims.z + kSlabLayers - 1) / kSlabLayers);
  if (!made) Release();
  return made;
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
  return true;
}

void ConservativeAdvection::Release() {
  mDims = {};
  mHolds.reset();
  mMoves.reset();
  mBlocks.reset();
  mVolume.reset();
  mSlabs.clear();
  mForward.clear();
  mReach.clear();
  for (Field* field : {&mAsked, &mMoved}) field->reset();
  mGiven.reset();
  mEvening.Release();
  mSharpening.Release();
}

void ConservativeAdvection::Persist(StateArchive& archive) { archive(mVolume); }

void ConservativeAdvection::MarkHolders(const Flow& flow, const EGrid<double>& source) {
  if (flow.wallCells && flow.wallCells->Fits(*mVolume))
    flow.wallCells->HandOver(kVolumeRange, flow.reach, *mVolume);
  const u8* flags = flow.solidCells && flow.solidCells->Dims() == mDims && flow.solidCells->mData
                        ? flow.solidCells->mData
                        : nullptr;
  mFlags = flags;
  ForEachLayer(flow, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y)
      for (i32 x = 0; x < mDims.x; ++x) {
        const i32 c = mHolds->Index(x, y, z);
        const u8 walls = flow.thin ? flow.thin->At(c) : 0;
        const bool holds = !(walls & ThinFaces::kFilled) &&
                           ((flags && (flags[c] & SolidCells::kOpenCentre)) ||
                            !flow.boundary->IsSolid({x + 0.5, y + 0.5, z + 0.5}, source, false));
        const bool moves = holds && !IsBorder({x, y, z});
        mHolds->mData[c] = holds;
        mMoves->mData[c] = moves ? static_cast<u8>(1 | walls << 1) : u8{0};
        // What comes in from outside isn't thinned.
        if (!moves) mVolume->mData[c] = holds;
      }
  });
}

bool ConservativeAdvection::Advect(const Flow& flow, const EGrid<double>& source,
                                   EGrid<double>& destination, bool sharp) {
  if (!Fit(source, sharp)) return false;
  MarkHolders(flow, source);
  RecordBackward(flow);
  FindAsked(flow, source);
  RecordForward(flow);
  const Contribution* blocks = mBlocks->mData;
  const u8* moves = mMoves->mData;
  if (sharp)
    mSharpening.FindLimits(blocks, source.mData, flow.nothing, mVolume->mData, flow.threads);
  Gather(flow, source.mData, {destination.mData, mMoved->mData});
  Scatter(flow, {destination.mData, mMoved->mData});
  const Carried moved{destination.mData, mMoved->mData};
  // What was given is over: its memory serves as two fields.
  auto* spare = reinterpret_cast<double*>(mGiven->mData);
  mEvening.Run(moves, moved, {spare, spare + mGiven->mCount}, flow.threads);
  if (sharp)
    mSharpening.Run(blocks, moves, moved,
                    flow.thin ? flow.thin->Faces() : std::span<const ThinFaces::Face>{},
                    flow.threads);
  ForEachLayer(flow, [&](i32 z) {
    const i32 first = z * mSlice;
    std::copy_n(mMoved->mData + first, mSlice, mVolume->mData + first);
    if (flow.nothing != 0)
      for (i32 c = first; c < first + mSlice; ++c) destination[c] += flow.nothing;
  });
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
