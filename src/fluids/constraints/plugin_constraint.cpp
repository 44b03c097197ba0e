#include "fluids/constraints/plugin_constraint.h"

#include "fluids/particles/plugin_point.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

PluginConstraint::PluginConstraint(BaseNode* node, Scene* scene) : Constraint(node, scene) {
  const PluginKind* plugin = node ? FindPluginKind(node->Type()) : nullptr;
  if (plugin && plugin->kind->makeConstraint) mActor.reset(plugin->kind->makeConstraint());
}

NodeKind PluginConstraint::KindOf(const plugin_api::Kind& kind) {
  return {.id = kind.id,
          .type = kind.type,
          .label = kind.label,
          .className = "PluginConstraint",
          .typeId = kTypeId,
          .list = kListAuxiliary,
          .categories = kCategoryConstraint,
          .menu = {"Constraints"},
          .purpose = kind.purpose,
          .make = MakeNode<PluginConstraint>};
}

ParameterTable PluginConstraint::RowsOf(const plugin_api::Kind& kind) {
  return WithRange(PluginRows(kind));
}

bool PluginConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  if (mActor) mActor->Read(mSettings);
  return true;
}

bool PluginConstraint::Open() {
  if (!mActor) return Deactivate("its plug-in makes no constraint");
  const char* why = "its plug-in leaves it out";
  return mActor->Prepare(PluginStep(*this), why) || Deactivate(why);
}

bool PluginConstraint::Test(const Vec3d& position, double& weight, const ConstraintUse& use) {
  if (!Has(FLAG_ACTIVE)) return true;
  plugin_api::Point point;
  point.worker = use.worker;
  point.position = PluginVector(position);
  point.hostPosition = PluginVector(position * GetDomain().simToWorld);
  point.weight = weight;
  if (use.particles) TellParticle(*use.particles, use.particle, point);
  if (mActor->Test(point, weight)) weight = FactorOf(weight);
  return weight != 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
