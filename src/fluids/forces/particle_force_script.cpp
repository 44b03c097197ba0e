#include "fluids/forces/particle_force_script.h"

#include <algorithm>

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
          {{example::kBall},
           {example::kBallMesh,
            R"({ "type": "pforce_script", "name": "brake", "parameters": { "script": [)",
            R"-(  "function main(op)",)-", R"-(  "  return particle_acceleration * -0.5",)-",
            R"-(  "end"] } })-", R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "particle_forces", "name": "slow", "parameters": { "groups": [{ "node": "sparks", "kinds": ["passive"] }], "forces": ["brake"] } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleForce_Script>,
  };
  return kind;
}

const ParameterTable& ParticleForce_Script::Parameters() {
  static const ParameterTable table = {
      RealRow(kIntensityRow, "intensity", 1.0, "none",
              "which number the script reads under this name")
          .To(&ParticleForce_Script::mIntensity),
      ScriptPart::Row(
          kParticleScripts,
          "-- Global Variables:\n"
          "-- intensity - the node's 'intensity'\n"
          "-- particle_pos - where the particle is, in metres\n"
          "-- particle_acceleration - its velocity, in m/s\n"
          "-- particle_index - its index in its group\n"
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
  if (!sample.particles) return;
  EvaluateParticles({sample.worker,
                     sample.particles,
                     sample.particle,
                     {&sample.position, 1},
                     {&sample.weight, 1},
                     {},
                     {&sample.force, 1}});
}

void ParticleForce_Script::EvaluateParticles(const ForceParticles& run) {
  if (!Has(FLAG_ACTIVE)) return;
  const std::span<const Vec3d> velocities = run.particles->Velocities();
  double intensity[kRun], weights[kRun];
  Vec3d positions[kRun], speeds[kRun], answers[kRun];
  i32 rows[kRun];
  for (std::size_t first = 0; first < run.positions.size(); first += kRun) {
    const std::size_t n = std::min(kRun, run.positions.size() - first);
    const i32 firstRow = run.first + static_cast<i32>(first);
    for (std::size_t i = 0; i < n; ++i) weights[i] = run.weights[first + i] * mWeight;
    if (!mConstraints.IsEmpty())
      mConstraints.TestRow({run.positions.subspan(first, n), {weights, n}, run.particles, firstRow},
                           this, run.worker);
    std::size_t count = 0;
    for (std::size_t i = 0; i < n; ++i) {
      if (weights[i] == 0) continue;
      rows[count] = firstRow + static_cast<i32>(i);
      positions[count] = run.positions[first + i];
      speeds[count] = velocities[rows[count]];
      intensity[count++] = mIntensity;
    }
    const ScriptColumn told[] = {
        std::span<const double>(intensity, count), std::span<const Vec3d>(positions, count),
        std::span<const Vec3d>(speeds, count), std::span<const i32>(rows, count)};
    if (count == 0 || !mScript.Run(run.worker, told, std::span(answers, count))) continue;
    for (std::size_t k = 0; k < count; ++k) {
      const auto i = static_cast<std::size_t>(rows[k] - firstRow);
      run.forces[first + i] += answers[k] * (mTime->stepDuration * weights[i]);
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
