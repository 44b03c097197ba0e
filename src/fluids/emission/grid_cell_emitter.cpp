#include "fluids/emission/grid_cell_emitter.h"

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

Grid_CellEmitter::Grid_CellEmitter() { mStageMask |= StageBit(kEmitters); }

Grid_CellEmitter::Grid_CellEmitter(BaseNode* node, Scene* scene) : iObject(node, scene) {}

const NodeKind& Grid_CellEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300121,
      .type = "grid_celliterator",
      .label = "Emitter::Cell Iterator",
      .className = "Grid_CellEmitter",
      .typeId = kTypeCellEmitter,
      .list = kListEmitters,
      .categories = kCategoryGrid,
      .stages = {kEmitters},
      .priority = 15,
      .menu = {"Grids/Emitters"},
      .purpose = "works on every cell of a field through the operators of its list",
      .example =
          {{},
           {example::kSmoke,
            R"({ "type": "channelop_remap", "name": "crisp", "parameters": { "gradient": [[0.2, [0, 0, 0]], [0.4, [1, 1, 1]]] } })",
            R"({ "type": "grid_celliterator", "name": "each cell", "parameters": { "channel": "smoke", "operators": ["crisp"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Grid_CellEmitter>,
  };
  return kind;
}

const ParameterTable& Grid_CellEmitter::Parameters() {
  static const ParameterTable table = {
      LinkRow(kChannelRow, "channel", "whose cells are worked on: a field, or a solver's flow")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&Grid_CellEmitter::mTarget)
          .Writes()
          .Required(),
      LongRow(kSolverFieldRow, "solver_field", 0, "", "which part of a linked solver is meant")
          .Choices({{0, "pressure"}, {2, "velocity"}})
          .To(&Grid_CellEmitter::mSolverField),
      LinksRow(1001, "operators",
               "what changes the cells in every step, one after the other; with null, every one of "
               "the scene",
               {})
          .AcceptsAny({kListAuxiliary, kCategoryGrid})
          .AllWhenAbsent()
          .To(&Grid_CellEmitter::mOperators)
          .Required(),
  };
  return table;
}

bool Grid_CellEmitter::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  mTarget.ChooseField(mSolverField);
  return !mTarget.IsEmpty();
}

iObject* Grid_CellEmitter::Channel() const {
  if (mTarget.scalar) return mTarget.scalar;
  return mTarget.vector;
}

const EGrid<double>* Grid_CellEmitter::Grid(i32 i) const {
  const EGrid<double>* grid = mTarget.scalar   ? mTarget.scalar->GetGrid(i)
                              : mTarget.vector ? mTarget.vector->GetGrid(i)
                                               : nullptr;
  return grid && grid->mData ? grid : nullptr;
}

void Grid_CellEmitter::CheckDirty() {
  iObject::CheckDirty();
  const FrameClock& clock = mScene->mClock;
  bool rests = !IsDirty() && clock.frame > clock.startFrame &&
               clock.lastFrame <= clock.startFrame && !(mScene->mFlags & Scene::kTimeChanged);
  for (ChannelOperator* op : mOperators) rests = !IsDirtyNow(op) && rests;
  if (rests) return;
  if (!IsDirty()) MarkDirty(false);
  for (ChannelOperator* op : mOperators) op->MarkDirty(false);
  if (iObject* channel = Channel()) channel->MarkDirty(false);
}

void Grid_CellEmitter::Prepare() {
  iObject* channel = Channel();
  if (!channel || !channel->Has(FLAG_ENABLED))
    return void(Deactivate("it has no channel; name one under 'channel'"));
  if (channel->Has(FLAG_CACHED)) return void(Deactivate(kPlayedReason));
  if (!Grid(0)) return void(Deactivate("its channel has no grid"));
  if (mOperators.empty())
    return void(Deactivate("it has no operators; name some under 'operators'"));
  for (const ChannelOperator* op : mOperators)
    if (op->IsBusyBeside(channel))
      return void(Deactivate(
          "an operator of it works on another channel at a time; leave 'group_break' on"));
  mConstraints.Prepare(this);
  for (ChannelOperator* op : mOperators) {
    if (!op->Has(FLAG_ENABLED)) continue;
    op->Attach(channel);
    op->Prepare();
  }
  if (mTarget.scalar) mTarget.scalar->SettleEmission();
  SetFlag(FLAG_ACTIVE, true);
}

void Grid_CellEmitter::Begin() {
  if (!Has(FLAG_ACTIVE)) return;
  for (ChannelOperator* op : mOperators)
    if (op->Has(FLAG_ENABLED)) op->Begin();
}

void Grid_CellEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const GridLayout& layout = Grid(0)->mLayout;
  const LayerOwner owner{data.index, data.count};
  for (i32 z = 1; z < layout.dims.z - 1; ++z) {
    if (data.TestBreak()) return;
    if (!owner.Owns(layout.originCell.z + z)) continue;
    for (i32 y = 1; y < layout.dims.y - 1; ++y) EvaluateRow(y, z, data);
  }
}

void Grid_CellEmitter::EvaluateRow(i32 y, i32 z, const EvaluationThreadData& data) const {
  const GridLayout& layout = Grid(0)->mLayout;
  const i32 components = mTarget.scalar ? 1 : 3;
  CellRecord cells[kRun];
  i32 count = 0;
  const auto flush = [&] {
    for (ChannelOperator* op : mOperators)
      if (op->Has(FLAG_ENABLED)) op->EvaluateCells(cells, count, data);
    count = 0;
  };
  const auto place = [&](i32 x) {
    return layout.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell;
  };
  const auto take = [&](i32 x, double weight) {
    CellRecord& cell = cells[count];
    cell.position = place(x);
    cell.weight = weight;
    // As `position` is counted from the world's origin, so is this.
    cell.worldPosition = cell.position * layout.simToWorld;
    for (i32 i = 0; i < components; ++i)
      if (const EGrid<double>* grid = Grid(i)) cell.cellIndices[i] = grid->Index(x, y, z);
    cell.cellIndex = cell.cellIndices[0];
    if (++count == kRun) flush();
  };
  mConstraints.ForEachWeighed(
      {1, layout.dims.x - 1, this, static_cast<u32>(data.index)}, place, [](i32) { return 1.0; },
      take);
  if (count > 0) flush();
}

void Grid_CellEmitter::Finish() {
  for (ChannelOperator* op : mOperators)
    if (op->Has(FLAG_ENABLED)) op->Finish();
  if (mTarget.scalar && Has(FLAG_ACTIVE)) mTarget.scalar->BookWork();
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
