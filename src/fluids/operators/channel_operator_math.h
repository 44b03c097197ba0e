// Sums, products and limits of channels.
#pragma once
#include "fluids/emission/channel_pair.h"
#include "fluids/fields/channel_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Puts t o r in the place of each value t of a channel, with an operation o. The right operand r
/// is the weight of the cell times what another field has there, or times a number.
class ChannelOperator_Math : public ChannelOperator {
 public:
  static constexpr i32 kTypeId = 114;
  using ChannelOperator::ChannelOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kOperandRow = 1000, kOperationRow = 1001, kValueRow = 1002,
                       kVectorRow = 1003, kUseVectorRow = 1005;
  bool ResolveLinks() override;

 protected:
  bool Open() override;
  void ChangeCells(const CellRecord* cells, i32 count, const EvaluationThreadData& data) override;

 private:
  enum Operation : i32 { kAdd = 0, kSubtract = 1, kMultiply = 2, kDot = 3, kMin = 4, kMax = 5 };

  /// The right operand of component `a`, before the weight.
  double Right(const CellRecord& cell, i32 a) const;
  double Apply(double t, double r) const;

  ChannelTarget mOperand;
  i32 mOperation = kAdd;
  double mValue = 1;
  Vec3d mVectorValue{1, 1, 1};
  bool mUseVectorValue = false;

  // From `Open` on, for one run.
  std::array<const EGrid<double>*, 3> mRight{};  ///< null where the numbers count
  std::array<bool, 3> mIsAligned{};              ///< its cells are those of the channel
  bool mIsRightStaggered = false;
  Vec3d mNumbers{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
