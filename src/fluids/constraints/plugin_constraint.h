// Constraints that plug-ins bring.
#pragma once
#include <memory>

#include "framework/constraint.h"
#include "framework/plugin_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Leaves of the weight at a point what a plug-in does; where that answers so, the range makes a
/// factor of it, which then is the weight.
class PluginConstraint : public Constraint, public PluginUser {
 public:
  PluginConstraint(host::BaseNode* node, Scene* scene);
  static constexpr i32 kTypeId = 28;
  /// What the catalogue takes for a kind of a library.
  static NodeKind KindOf(const plugin_api::Kind& kind);
  /// The plug-in's own rows, and those of the range.
  static host::ParameterTable RowsOf(const plugin_api::Kind& kind);
  bool ReadParameters() override;
  bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) override;

 protected:
  bool Open() override;

 private:
  std::unique_ptr<plugin_api::Constraint> mActor;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
