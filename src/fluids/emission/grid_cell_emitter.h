// Channel operators over all cells of a channel.
#pragma once
#include "fluids/emission/channel_pair.h"
#include "fluids/fields/channel_operator.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Runs channel operators on every cell of one channel but its outermost layer.
class Grid_CellEmitter : public iObject {
 public:
  Grid_CellEmitter();
  Grid_CellEmitter(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  ConstraintList* Constraints() override { return &mConstraints; }
  static const host::ParameterTable& Parameters();
  static constexpr i32 kChannelRow = 1000, kSolverFieldRow = 1004;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Prepare() override;
  void Begin() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  static constexpr i32 kRun = 64;  ///< cells that go to an operator in one call

  iObject* Channel() const;
  /// Component `i` of the target, or null.
  const EGrid<double>* Grid(i32 i) const;
  void EvaluateRow(i32 y, i32 z, const EvaluationThreadData& data) const;

  ConstraintList mConstraints;
  ChannelTarget mTarget;
  i32 mSolverField = ChannelTarget::kPressure;  ///< of a linked solver
  std::vector<ChannelOperator*> mOperators;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
