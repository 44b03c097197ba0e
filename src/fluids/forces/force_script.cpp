#include "fluids/forces/force_script.h"

#include <algorithm>

#include "fluids/emission/emission_settings.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
const ScriptFamily kForceScripts{{"intensity", "physical_pos", "velocity_u_index",
                                  "velocity_v_index", "velocity_w_index", "cell_velocity"}};
constexpr std::string_view kOfCells[] = {"velocity_u_index", "velocity_v_index", "velocity_w_index",
                                         "cell_velocity"};
}  // namespace

Force_Script::Force_Script(BaseNode* node, Scene* scene)
    : Force(node, scene), mScript(ScriptPart::AddTo(*this, kForceScripts)) {}

const NodeKind& Force_Script::Kind() {
  static const NodeKind kind = {
      .id = 13000141,
      .type = "force_script",
      .label = "GF::Script",
      .className = "Force_Script",
      .typeId = 34,
      .list = kListForces,
      .categories = kCategoryGrid,
      .menu = {"Grids/Forces"},
      .purpose = "pushes a fluid by a few lines of the user's own: vortices, gusts, fans",
      .example =
          {{},
           {R"({ "type": "force_script", "name": "whirl", "parameters": { "script": [)",
            R"-(  "function main(op)",)-",
            R"-(  "  return Cross(Vector(0, 1, 0), physical_pos) * op.step",)-",
            R"-(  "end"] } })-",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["whirl"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Script>,
  };
  return kind;
}

const ParameterTable& Force_Script::Parameters() {
  static const ParameterTable table = {
      RealRow(kIntensityRow, "intensity", 1.0, "none",
              "which number the script reads under this name")
          .To(&Force_Script::mIntensity),
      ScriptPart::Row(
          kForceScripts,
          "-- Global Variables:\n"
          "-- intensity - the node's 'intensity'\n"
          "-- physical_pos - where the cell's centre is, in metres\n"
          "-- velocity_u_index, velocity_v_index, velocity_w_index - the cell's low faces\n"
          "-- cell_velocity - the velocity at these faces, in m/s\n"
          "function main(op)\n"
          "  -- a simple drag\n"
          "  return cell_velocity * -0.05\n"
          "end",
          "gives what each cell's velocity changes by in a step of op.step seconds, in "
          "m/s: main(op) is told intensity, physical_pos, cell_velocity and the indices "
          "of its faces, velocity_u_index and so on; where it names neither velocity nor "
          "indices, it pushes the gas outside of the container too")
          .To(&Force_Script::mSource),
      LinkRow(1001, "settings",
              "emission settings whose time window counts where 'duration' is empty",
              {GridEmissionSettings::Kind().id})
          .To(&Force_Script::mSettings),
      LinkRow(1003, "duration", "pushes only inside this time window", {Duration::Kind().id})
          .To(&Force_Script::mOwnDuration),
  };
  return table;
}

bool Force_Script::ReadParameters() {
  if (!Force::ReadParameters()) return false;
  const ScriptText text(mSource);
  mRestsOnPlace = std::none_of(std::begin(kOfCells), std::end(kOfCells),
                               [&](std::string_view name) { return text.Names(name); });
  return true;
}

void Force_Script::Open() {
  mDuration = mOwnDuration || !mSettings ? mOwnDuration : mSettings->mDuration;
  Force::Open();
}

bool Force_Script::PrepareForce() {
  if (mTime->stepDuration == 0) return Deactivate(kNoStepReason);
  return mScript.Open(mSource);
}

Vec3d Force_Script::VelocityAt(const std::array<i32, 3>& faceIndex) const {
  Vec3d velocity{};
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>* grid = mVelocity ? mVelocity->GetGrid(a) : nullptr;
    if (grid && grid->mData) velocity[a] = (*grid)[faceIndex[a]];
  }
  return velocity;
}

void Force_Script::Evaluate(ForceSample& sample) {
  if (!Has(FLAG_ACTIVE) || sample.particleMode) return;
  ForceSample* one[] = {&sample};
  EvaluateRun(one);
}

void Force_Script::EvaluateRow(const ForceRow& row) {
  if (!Has(FLAG_ACTIVE)) return;
  ForceSample samples[kRun];
  ForceSample* run[kRun];
  std::size_t n = 0;
  const auto flush = [&] {
    EvaluateRun({run, n});
    for (std::size_t i = 0; i < n; ++i)
      Store(samples[i], row, samples[i].cellIndex - row.cellIndex);
    n = 0;
  };
  for (i32 x = 0; x < row.count; ++x) {
    if (!row.open[x]) continue;
    samples[n] = SampleOf(row, x);
    run[n] = &samples[n];
    if (++n == kRun) flush();
  }
  if (n > 0) flush();
}

void Force_Script::EvaluateRun(std::span<ForceSample* const> samples) {
  double intensity[kRun], weights[kRun];
  Vec3d positions[kRun], velocities[kRun], answers[kRun];
  i32 faces[3][kRun];
  ForceSample* left[kRun];
  const u32 worker = samples.front()->worker;
  std::size_t n = samples.size();
  for (std::size_t i = 0; i < n; ++i) {
    positions[i] = samples[i]->position;
    weights[i] = samples[i]->weight * mWeight;
  }
  if (!mConstraints.IsEmpty()) mConstraints.TestRow({{positions, n}, {weights, n}}, this, worker);
  std::size_t count = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (weights[i] == 0) continue;
    left[count] = samples[i];
    weights[count] = weights[i];
    positions[count] = positions[i];
    velocities[count] = VelocityAt(samples[i]->faceIndex);
    intensity[count] = mIntensity;
    for (i32 a = 0; a < 3; ++a) faces[a][count] = samples[i]->faceIndex[a];
    ++count;
  }
  if (count == 0) return;
  const ScriptColumn told[] = {
      std::span<const double>(intensity, count), std::span<const Vec3d>(positions, count),
      std::span<const i32>(faces[0], count),     std::span<const i32>(faces[1], count),
      std::span<const i32>(faces[2], count),     std::span<const Vec3d>(velocities, count)};
  if (!mScript.Run(worker, told, std::span(answers, count))) return;
  for (std::size_t i = 0; i < count; ++i) left[i]->force += answers[i] * weights[i];
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
