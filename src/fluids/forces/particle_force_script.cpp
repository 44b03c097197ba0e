#include "fluids/forces/particle_force_script.h"

#include "fluids/particles/particle_columns.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
const ScriptFamily kParticleScripts{
    {"intensity", "particle_pos", "particle_acceleration", "particle_index"}};
}  // namespace

ParticleForce_Script::ParticleForce_Script(BaseNode* node, Scene* scene)
    : Force(node, scene), mScript(ScriptPart::AddTo(*this, kParticleScripts)) {}

const NodeKind& ParticleForce_Script::Kind() {
  static const NodeKind kind = {
      .id = 1300060,
      .type = "pforce_script",
      .label = "PF::Script",
      .className = "ParticleForce_Script",
      .typeId = 111,
      .list = kListForces,
      .categories = kCategoryParticle,
      .menu = {"Particles/Forces"},
      .purpose = "pushes particles by a few lines of the user's own",
      .example =
          {{},
           {R"({ "type": "pforce_script", "name": "brake", "parameters": { "script": [)",
            R"-(  "function main(op)",)-",
            R"-(  "  return particle_acceleration * -0.5",)-",
            R"-(  "end"] } })-"}},
      .rows = Parameters,
      .make = MakeNode<ParticleForce_Script>,
  };
  return kind;
}

const ParameterTable& ParticleForce_Script::Parameters() {
  static const ParameterTable table = {
      RealRow(kIntensityRow, "intensity", 1.0, "none", "a number for the script: its 'intensity'")
          .To(&ParticleForce_Script::mIntensity),
      ScriptPart::Row(kParticleScripts,
                      "function main(op)\n"
                      "  -- a simple drag\n"
                      "  return particle_acceleration * -0.05\n"
                      "end",
                      "gives the acceleration of each particle, in m/s^2: main(op) is told intensity, "
                      "particle_pos, particle_acceleration, which is its velocity, and particle_index")
          .To(&ParticleForce_Script::mSource),
      LinkRow(1003, "duration", "pushes only inside this time window", {Duration::Kind().id})
          .To(&ParticleForce_Script::mDuration),
  };
  return table;
}

bool ParticleForce_Script::PrepareForce() {
  if (mTime->stepDuration == 0) return Deactivate(kNoStepReason);
  return mScript.Open(mSource);
}

void ParticleForce_Script::Evaluate(ForceSample& sample) {
  if (!Has(FLAG_ACTIVE) || !sample.particles) return;
  double k = sample.weight * mWeight;
  if (!mConstraints.IsEmpty())
    mConstraints.TestRow({{&sample.position, 1}, {&k, 1}, sample.particles, sample.particle}, this,
                         sample.worker);
  if (k == 0) return;
  const Vec3d velocity = sample.particles->Velocities()[sample.particle];
  Vec3d answer;
  const ScriptColumn told[] = {
      std::span<const double>(&mIntensity, 1), std::span<const Vec3d>(&sample.position, 1),
      std::span<const Vec3d>(&velocity, 1), std::span<const i32>(&sample.particle, 1)};
  if (mScript.Run(sample.worker, told, std::span(&answer, 1)))
    sample.force += answer * (mTime->stepDuration * k);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
