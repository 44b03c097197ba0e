#include "fluids/operators/channel_operator_math.h"

#include <algorithm>

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ChannelOperator_Math::Kind() {
  static const NodeKind kind = {
      .id = 1300056,
      .type = "channelop_math",
      .label = "COP::Math",
      .className = "ChannelOperator_Math",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryGrid,
      .menu = {"Grids/Operators"},
      .purpose = "adds to a field, scales or limits it, by a number or by another field",
      .example =
          {{},
           {example::kSmoke,
            R"({ "type": "channelop_math", "name": "at most half", "parameters": { "operation": "minimum", "value": 0.5 } })",
            R"({ "type": "grid_celliterator", "name": "each cell", "parameters": { "channel": "smoke", "operators": ["at most half"] } })"}},
      .rows = Parameters,
      .make = MakeNode<ChannelOperator_Math>,
  };
  return kind;
}

const ParameterTable& ChannelOperator_Math::Parameters() {
  static const ParameterTable table = {
      LinkRow(kOperandRow, "operand",
              "a field that is the right side, cell by cell: a channel, or a solver for its "
              "velocity; without one it is a number")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&ChannelOperator_Math::mOperand),
      LongRow(kOperationRow, "operation", kAdd, "",
              "what is done in every step to the value of a cell with the right side, which "
              "constraints weigh; dot gives a field of vectors the product of both, in x alone")
          .Choices({{kAdd, "add"},
                    {kSubtract, "subtract"},
                    {kMultiply, "multiply"},
                    {kDot, "dot"},
                    {kMin, "minimum"},
                    {kMax, "maximum"}})
          .To(&ChannelOperator_Math::mOperation),
      RealRow(kValueRow, "value", 1.0, "field", "the right side for a field of numbers")
          .To(&ChannelOperator_Math::mValue),
      VectorRow(kVectorRow, "vector_value", {1, 1, 1}, "field",
                "the right side for a field of vectors")
          .To(&ChannelOperator_Math::mVectorValue),
      BoolRow(kUseVectorRow, "use_vector_value", false,
              "for vectors whose 'operand' is a field of numbers that holds nothing as yet: takes "
              "'vector_value', and not 'value' along all axes")
          .To(&ChannelOperator_Math::mUseVectorValue),
  };
  return table;
}

bool ChannelOperator_Math::ResolveLinks() {
  if (!ChannelOperator::ResolveLinks()) return false;
  mOperand.ChooseField(ChannelTarget::kVelocity);
  return true;
}

bool ChannelOperator_Math::Open() {
  mRight = {};
  const bool isVector = mVectorChannel != nullptr;
  bool hasAll = !mOperand.IsEmpty();
  for (i32 a = 0; a < (isVector ? 3 : 1); ++a) {
    const EGrid<double>* grid = mOperand.scalar   ? mOperand.scalar->GetGrid(0)
                                : mOperand.vector ? mOperand.vector->GetGrid(a)
                                                  : nullptr;
    hasAll = hasAll && grid && grid->mData;
    mRight[a] = grid;
    mIsAligned[a] = grid && grid->Dims() == mGrids[a]->Dims() && grid->mKind == mGrids[a]->mKind &&
                    grid->mLayout.Equals(mGrids[a]->mLayout);
  }
  if (!hasAll) mRight = {};
  mIsRightStaggered = mOperand.vector && mOperand.vector->GetTypeId() == kTypeVelocityChannel;
  const bool takesValue = !isVector || (mOperand.scalar && !mUseVectorValue);
  mNumbers = takesValue ? Vec3d{mValue, mValue, mValue} : mVectorValue;
  return true;
}

double ChannelOperator_Math::Right(const CellRecord& cell, i32 a) const {
  const EGrid<double>* grid = mRight[a];
  if (!grid) return mNumbers[a];
  if (mIsAligned[a]) return (*grid)[IndexOf(cell, a, mIsRightStaggered)];
  // A cell's low face lies half a cell off its middle.
  Vec3d place = cell.position;
  if (mIsStaggered) place[a] -= 0.5 * mGrids[a]->mLayout.simCell[a];
  return SampleLinear(*grid, grid->ToSamples(place));
}

double ChannelOperator_Math::Apply(double t, double r) const {
  switch (mOperation) {
    case kAdd: return t + r;
    case kSubtract: return t - r;
    case kMultiply:
    case kDot: return t * r;
    case kMin: return std::min(t, r);
    case kMax: return std::max(t, r);
    default: return t;
  }
}

void ChannelOperator_Math::ChangeCells(const CellRecord* cells, i32 count,
                                       const EvaluationThreadData&) {
  for (const CellRecord& cell : std::span(cells, static_cast<std::size_t>(count))) {
    if (mScalar) {
      double& t = Value(cell, 0);
      t = Apply(t, cell.weight * Right(cell, 0));
      continue;
    }
    Vec3d t;
    for (i32 a = 0; a < 3; ++a) t[a] = Apply(Value(cell, a), cell.weight * Right(cell, a));
    if (mOperation == kDot) t = {t.x + t.y + t.z, Value(cell, 1), Value(cell, 2)};
    for (i32 a = 0; a < 3; ++a) Value(cell, a) = t[a];
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
