#include "fluids/operators/channel_operator_remap.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ChannelOperator_Remap::Kind() {
  static const NodeKind kind = {
      .id = 1300063,
      .type = "channelop_remap",
      .label = "COP::Remap",
      .className = "ChannelOperator_Remap",
      .typeId = kRemapType,
      .list = kListAuxiliary,
      .categories = kCategoryGrid,
      .menu = {"Grids/Operators"},
      .purpose = "gives a field, or a picture of it, other values through a ramp",
      .example =
          {{},
           {example::kSmoke,
            R"({ "type": "channelop_remap", "name": "crisp", "parameters": { "gradient": [[0.2, [0, 0, 0]], [0.4, [1, 1, 1]]] } })",
            R"({ "type": "grid_celliterator", "name": "each cell", "parameters": { "channel": "smoke", "operators": ["crisp"] } })"}},
      .rows = Parameters,
      .make = MakeNode<ChannelOperator_Remap>,
  };
  return kind;
}

const ParameterTable& ChannelOperator_Remap::Parameters() {
  static const ParameterTable table = {
      GradientRow(kGradientRow, "gradient",
                  "what a value becomes, black to white, from the low to the high end of the "
                  "channel: a steep step gives hard edges")
          .To(&ChannelOperator_Remap::mOwn),
  };
  return table;
}

void ChannelOperator_Remap::SetCurve(const SplineData& curve) {
  mGiven.knots.clear();
  for (const Vec2D<double>& knot : curve.knots)
    mGiven.knots.push_back({knot.x, {knot.y, knot.y, knot.y}});
}

void ChannelOperator_Remap::Prepare() {
  const bool hasTarget =
      (mScalar && mScalar->GetGrid(0)) || (mVectorChannel && mVectorChannel->GetGrid(0));
  if (!hasTarget) return void(Deactivate("it has no channel"));
  ReadParameters();  // nobody else sees to one that a picture made
  mRamp = !mGiven.knots.empty() || !mOwn ? mGiven : *mOwn;
  if (mRamp.knots.empty()) return void(Deactivate("it has no 'gradient', and changes nothing"));
  mConstraints.Prepare(this);
  ++mRuns;
  SetFlag(FLAG_ACTIVE, true);
}

bool ChannelOperator_Remap::Allows(const CellRecord& cell, i32 worker) const {
  double weight = cell.weight;
  return mConstraints.IsEmpty() || mConstraints.Test(cell.position, weight, this, worker);
}

void ChannelOperator_Remap::EvaluateCells(const CellRecord* cells, i32 count,
                                          const EvaluationThreadData& data) {
  if (!Has(FLAG_ENABLED) || !Has(FLAG_ACTIVE)) return;
  if (mScalar) {
    EGrid<double>& grid = *mScalar->GetGridForWrite(0);
    const double low = grid.mRangeMin, high = grid.mRangeMax;
    for (i32 i = 0; i < count; ++i) {
      if (!Allows(cells[i], data.index)) continue;
      double& value = grid[cells[i].cellIndex];
      const double u = high != 0 ? (value - low) / high : 0.0;
      value = (high - low) * mRamp.Evaluate(u).x + low;
    }
    return;
  }
  EGrid<double>* grids[3];
  for (i32 a = 0; a < 3; ++a) grids[a] = mVectorChannel->GetGridForWrite(a);
  const bool staggered = mVectorChannel->GetTypeId() == kTypeVelocityChannel;
  for (i32 i = 0; i < count; ++i) {
    if (!Allows(cells[i], data.index)) continue;
    for (i32 a = 0; a < 3; ++a) {
      double& value = (*grids[a])[staggered ? cells[i].cellIndices[a] : cells[i].cellIndex];
      value = mRamp.Evaluate(value)[a];
    }
  }
}

void ChannelOperator_Remap::Finish() {
  mConstraints.Finish(this);
  mRamp.knots.clear();
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
