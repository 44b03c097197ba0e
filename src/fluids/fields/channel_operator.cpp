#include "fluids/fields/channel_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ChannelOperator::ClearLinks() {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  mGrids = {};
  iObject::ClearLinks();
}

bool ChannelOperator::Attach(iBase* channel) {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  if (!channel) return false;
  if (channel->HasCategory(kBitVector))
    mVectorChannel = dynamic_cast<VectorField*>(channel);
  else
    mScalar = dynamic_cast<ScalarField*>(channel);
  return mScalar || mVectorChannel;
}

bool ChannelOperator::IsBusyBeside(const iBase* channel) const {
  const iBase* own = mScalar ? static_cast<const iBase*>(mScalar) : mVectorChannel;
  return mGrids[0] && own != channel;
}

void ChannelOperator::Prepare() {
  mGrids = {};
  const i32 components = mScalar ? 1 : mVectorChannel ? 3 : 0;
  bool isThere = components > 0;
  for (i32 a = 0; a < components; ++a) {
    mGrids[a] = mScalar ? mScalar->GetGridForWrite(0) : mVectorChannel->GetGridForWrite(a);
    isThere = isThere && mGrids[a] && mGrids[a]->mData;
  }
  if (!isThere) return void(Deactivate("it has no channel"));
  mIsStaggered = mVectorChannel && mVectorChannel->GetTypeId() == kTypeVelocityChannel;
  if (!Open()) return SetFlag(FLAG_ACTIVE, false);
  mConstraints.Prepare(this);
  ++mRuns;
  SetFlag(FLAG_ACTIVE, true);
}

void ChannelOperator::Finish() {
  mConstraints.Finish(this);
  Close();
  mGrids = {};
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

void ChannelOperator::EvaluateCells(const CellRecord* cells, i32 count,
                                    const EvaluationThreadData& data) {
  if (!Has(FLAG_ENABLED) || !Has(FLAG_ACTIVE)) return;
  if (mConstraints.IsEmpty()) return ChangeCells(cells, count, data);
  Vec3d positions[kRun];
  double weights[kRun];
  for (i32 i = 0; i < count; ++i) {
    positions[i] = cells[i].position;
    weights[i] = cells[i].weight;
  }
  const auto n = static_cast<std::size_t>(count);
  mConstraints.TestRow({{positions, n}, {weights, n}}, this, static_cast<u32>(data.index));
  CellRecord left[kRun];
  i32 leftCount = 0;
  for (i32 i = 0; i < count; ++i) {
    if (weights[i] == 0) continue;
    left[leftCount] = cells[i];
    left[leftCount++].weight = weights[i];
  }
  if (leftCount > 0) ChangeCells(left, leftCount, data);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
