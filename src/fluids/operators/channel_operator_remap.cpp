#include "fluids/operators/channel_operator_remap.h"
#include "fluids/constraints/field_share.h"
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

bool ChannelOperator_Remap::Open() {
  ReadParameters();  // nobody else sees to one that a picture made
  mRamp = !mGiven.knots.empty() || !mOwn ? &mGiven : mOwn;
  return !mRamp->knots.empty() || Deactivate("it has no 'gradient', and changes nothing");
}

void ChannelOperator_Remap::ChangeCells(const CellRecord* cells, i32 count,
                                        const EvaluationThreadData&) {
  if (mVectorChannel) {
    for (i32 i = 0; i < count; ++i)
      for (i32 a = 0; a < 3; ++a) {
        double& value = Value(cells[i], a);
        value = mRamp->Evaluate(value)[a];
      }
    return;
  }
  const FieldShare range(mGrids[0]->mRangeMin, mGrids[0]->mRangeMax);
  for (i32 i = 0; i < count; ++i) {
    double& value = Value(cells[i], 0);
    value = range.ValueOf(mRamp->Evaluate(range.ShareOf(value)).x);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
