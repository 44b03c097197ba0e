#include "fluids/forces/plugin_force.h"

#include "fluids/forces/sampled_velocity.h"
#include "fluids/particles/particle_columns.h"
#include "fluids/particles/plugin_point.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

PluginForce::PluginForce(BaseNode* node, Scene* scene)
    : ForceOf(node, scene), mPlugin(node ? FindPluginKind(node->Type()) : nullptr) {
  if (mPlugin && mPlugin->kind->makeForce) mActor.reset(mPlugin->kind->makeForce());
}

NodeKind PluginForce::KindOf(const plugin_api::Kind& kind) {
  const bool onFluids = kind.sides & plugin_api::kFluids,
             onParticles = kind.sides & plugin_api::kParticles;
  NodeKind node = {.id = kind.id,
                   .type = kind.type,
                   .label = kind.label,
                   .className = "PluginForce",
                   .typeId = kTypeId,
                   .list = kListForces,
                   .categories = (onFluids ? u32{kCategoryGrid} : 0u) |
                                 (onParticles ? u32{kCategoryParticle} : 0u),
                   .purpose = kind.purpose,
                   .make = MakeNode<PluginForce>};
  if (onFluids) node.menu.push_back("Grids/Forces");
  if (onParticles) node.menu.push_back("Particles/Forces");
  return node;
}

ParameterTable PluginForce::RowsOf(const plugin_api::Kind& kind) {
  ParameterTable table = {LinkRow(kDurationRow, "duration", "pushes only inside this time window",
                                  {Duration::Kind().id})
                              .To(&PluginForce::mDuration)};
  for (ParameterRow& row : PluginRows(kind)) table.push_back(std::move(row));
  return table;
}

bool PluginForce::ReadParameters() {
  if (!ForceOf::ReadParameters()) return false;
  if (mActor) mActor->Read(mSettings);
  return true;
}

bool PluginForce::ActsOnParticles() const { return TakesSide(plugin_api::kParticles); }

bool PluginForce::PrepareForce() {
  if (!mActor) return Deactivate("its plug-in makes no force");
  if (mFlow && !TakesSide(plugin_api::kFluids)) return Deactivate("it pushes particles alone");
  const char* why = "its plug-in leaves it out";
  return mActor->Prepare(PluginStep(*this), why) || Deactivate(why);
}

void PluginForce::FinishForce() {
  if (mActor) mActor->Finish();
}

void PluginForce::Push(ForceSample& sample, double s) const {
  plugin_api::Point point;
  point.worker = sample.worker;
  point.position = PluginVector(sample.position);
  point.hostPosition = PluginVector(sample.position * GetDomain().simToWorld);
  point.weight = mTime->stepDuration > 0 ? s / mTime->stepDuration : 0.0;
  if (sample.particles) {
    TellParticle(*sample.particles, sample.particle, point);
  } else {
    point.velocity = PluginVector(SampledVelocity(mVelocity, sample.position));
    point.cell = sample.cellIndex;
    for (i32 a = 0; a < 3; ++a) {
      point.faces[a] = sample.faceIndex[a];
      point.open[a] = sample.fraction[a];
    }
  }
  sample.force += VectorOf(mActor->Evaluate(point)) * s;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
