// Values of a channel through a ramp.
#pragma once
#include <vector>

#include "fluids/fields/channel_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Replaces a scalar v of a grid with the range [min, max] by min + (max - min) r((v - min) / (max
/// - min)), where r is the first component of the ramp, and each component of a vector by that
/// component of the ramp at it. The ramp is the gradient of the node, or one that the owner gives.
///
/// Who preprocesses a grid for rendering makes one of its own.
class ChannelOperator_Remap : public ChannelOperator {
 public:
  static constexpr i32 kPluginId = 1300063;
  static constexpr i32 kRemapType = 116;

  ChannelOperator_Remap() = default;
  ChannelOperator_Remap(host::BaseNode* node, Scene* scene) : ChannelOperator(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kGradientRow = 1000;
  /// Takes the place of the node's own ramp.
  void SetGradient(const host::Gradient& gradient) { mGiven = gradient; }
  /// A curve fills all three components.
  void SetCurve(const host::SplineData& curve);

 protected:
  bool Open() override;
  void Close() override { mRamp = nullptr; }
  void ChangeCells(const CellRecord* cells, i32 count, const EvaluationThreadData& data) override;

 private:
  const host::Gradient* mOwn = nullptr;  ///< of the node
  host::Gradient mGiven;
  const host::Gradient* mRamp = nullptr;  ///< the one in use, from `Prepare` to `Finish`
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
