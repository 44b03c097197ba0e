// Forces that plug-ins bring.
#pragma once
#include <memory>

#include "fluids/forces/force.h"
#include "framework/plugin_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// du = dt w a, with the weight w that constraints and the time window leave of a place, and the
/// acceleration a that a plug-in answers for it.
class PluginForce : public ForceOf<PluginForce>, public PluginUser {
 public:
  PluginForce(host::BaseNode* node, Scene* scene);
  static constexpr i32 kTypeId = 113, kDurationRow = 950;
  /// What the catalogue takes for a kind of a library.
  static NodeKind KindOf(const plugin_api::Kind& kind);
  /// The plug-in's own rows, behind that of the time window.
  static host::ParameterTable RowsOf(const plugin_api::Kind& kind);
  bool ReadParameters() override;
  bool ActsOnParticles() const override;

  double Scale(double weight) const { return mTime->stepDuration * weight * mWeight; }
  void Push(ForceSample& sample, double s) const;
  void Push(const ForceRow& /*row*/, double /*s*/) const {}
  bool IsAlikeInRows() const { return false; }

 protected:
  bool PrepareForce() override;
  void FinishForce() override;

 private:
  bool TakesSide(plugin_api::Side side) const { return mPlugin && mPlugin->kind->sides & side; }

  const PluginKind* mPlugin = nullptr;
  std::unique_ptr<plugin_api::Force> mActor;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
