#include "fluids/constraints/script_constraint.h"

#include <algorithm>

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
const ScriptFamily kConstraintScripts{{"intensity", "invert", "physical_pos", "source_value"}};
}  // namespace

ScriptConstraint::ScriptConstraint(BaseNode* node, Scene* scene)
    : Constraint(node, scene), mScript(ScriptPart::AddTo(*this, kConstraintScripts)) {}

const NodeKind& ScriptConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300057,
      .type = "constraint_script",
      .label = "CS::Script",
      .className = "ScriptConstraint",
      .typeId = 25,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "limits what names it by a few lines of the user's own, at every place",
      .example =
          {{example::kBall},
           {example::kSmoke,
            R"({ "type": "constraint_script", "name": "stripes", "parameters": { "script": [)",
            R"-(  "function main(op)",)-",
            R"-(  "  return math.sin(40 * physical_pos.y) > 0 and 1 or 0",)-", R"-(  "end"] } })-",
            R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 3 } })",
            example::kPair, example::kBallMesh, example::kBallVolume,
            R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["pair"], "constraints": ["stripes"] } })"}},
      .rows = Parameters,
      .make = MakeNode<ScriptConstraint>,
  };
  return kind;
}

const ParameterTable& ScriptConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      RealRow(kIntensityRow, "intensity", 1.0, "none",
              "which number the script reads under this name")
          .To(&ScriptConstraint::mIntensity),
      ScriptPart::Row(
          kConstraintScripts,
          "-- Global Variables:\n"
          "-- intensity - the node's 'intensity'\n"
          "-- invert - 1 if the measure is turned round behind this, else 0\n"
          "-- physical_pos - the place, in metres\n"
          "-- source_value - what is left at the place so far: at first 1, or of a force its\n"
          "--   strength in this step\n"
          "function main(op)\n"
          "  return intensity\n"
          "end",
          "gives the measure of each place: main(op) is told intensity, invert (1 or 0), "
          "physical_pos and source_value, what is left there so far of the 1, or of a force the "
          "strength times the length of the step, that it begins with")
          .To(&ScriptConstraint::mSource),
      LongRow(kStateRow, "script_state", 0, "", "kept with the node; nothing reads it").Kept(),
  });
  return table;
}

void ScriptConstraint::Finish(const ConstraintUse& use) {
  mScript.Close();
  Constraint::Finish(use);
}

bool ScriptConstraint::Weigh(std::span<const Vec3d> positions, std::span<double> weights,
                             u32 worker) {
  const std::size_t n = positions.size();
  double intensity[kRun], measures[kRun];
  i32 invert[kRun];
  std::fill_n(intensity, n, mIntensity);
  std::fill_n(invert, n, i32{mInvert});
  const ScriptColumn told[] = {std::span<const double>(intensity, n),
                               std::span<const i32>(invert, n), positions,
                               std::span<const double>(weights)};
  if (!mScript.Run(worker, told, std::span(measures, n))) return false;
  for (std::size_t i = 0; i < n; ++i) weights[i] *= FactorOf(measures[i]);
  return true;
}

bool ScriptConstraint::Test(const Vec3d& position, double& weight, const ConstraintUse& use) {
  if (!Has(FLAG_ACTIVE) || !Weigh({&position, 1}, {&weight, 1}, use.worker)) return true;
  return weight != 0;
}

void ScriptConstraint::TestRow(const ConstraintRow& row, const ConstraintUse& use) {
  if (!Has(FLAG_ACTIVE)) return;
  Vec3d positions[kRun];
  double weights[kRun];
  std::size_t which[kRun], n = 0;
  const auto weigh = [&] {
    if (n > 0 && Weigh({positions, n}, {weights, n}, use.worker))
      for (std::size_t i = 0; i < n; ++i) row.weights[which[i]] = weights[i];
    n = 0;
  };
  for (std::size_t i = 0; i < row.positions.size(); ++i) {
    if (row.weights[i] == 0) continue;
    positions[n] = row.positions[i];
    weights[n] = row.weights[i];
    which[n] = i;
    if (++n == kRun) weigh();
  }
  weigh();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
