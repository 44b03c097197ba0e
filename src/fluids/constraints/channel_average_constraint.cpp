#include "fluids/constraints/channel_average_constraint.h"

#include "fluids/constraints/limited_example.h"
#include "fluids/fields/channel_kinds.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

struct CellSum {
  double sum = 0;
  i64 count = 0;
};

/// The cells above 0 and their values.
CellSum SumAboveZero(const EGrid<double>& grid, i32 threads) {
  const auto layer = [&](i32 z) {
    CellSum own;
    const double* v = grid.mData + grid.Index(0, 0, z);
    for (i32 i = 0; i < grid.mSlice; ++i) {
      if (!(v[i] > 0)) continue;
      own.sum += v[i];
      ++own.count;
    }
    return own;
  };
  return ReduceBlocks(grid.mNz, threads, CellSum{}, layer, [](CellSum a, const CellSum& b) {
    return CellSum{a.sum + b.sum, a.count + b.count};
  });
}

}  // namespace

const NodeKind& ChannelAverageConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300023,
      .type = "constraint_gridaverage",
      .label = "CS::Grid Channel Average",
      .className = "ChannelAverageConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work by how much of a field there is on average: a source that stops "
          "when the room is full of smoke",
      .example = example::Limited(
          R"({ "type": "constraint_gridaverage", "name": "where", "parameters": { "channel": "smoke", "minimum": 0.1, "invert": true } })"),
      .rows = Parameters,
      .make = MakeNode<ChannelAverageConstraint>,
  };
  return kind;
}

const ParameterTable& ChannelAverageConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "channel",
              "the field whose mean is measured, over its cells above 0, as a share of its range")
          .AcceptsAny(kScalarChannels)
          .To(&ChannelAverageConstraint::mChannel)
          .Required(),
      RealRow(1001, "minimum", 0.5, "field", "a mean below this counts as 0")
          .To(&ChannelAverageConstraint::mMinimum),
  });
  return table;
}

void ChannelAverageConstraint::Reset() {
  MeasuredConstraint::Reset();
  mAverage = 0;
}

void ChannelAverageConstraint::Persist(StateArchive& archive) {
  MeasuredConstraint::Persist(archive);
  archive(mAverage);
}

bool ChannelAverageConstraint::Open() {
  const EGrid<double>* grid = mChannel ? mChannel->GetGrid(0) : nullptr;
  if (!grid || !grid->mData) return Deactivate("its channel has no grid");
  if (const CellSum cells = SumAboveZero(*grid, mScene->mThreadCount); cells.count > 0) {
    const double mean = cells.sum / static_cast<double>(cells.count);
    mAverage = mean < mMinimum ? 0.0 : mean;
  }
  mShare = FieldShare(grid->mRangeMin, grid->mRangeMax).ShareOf(mAverage);
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
