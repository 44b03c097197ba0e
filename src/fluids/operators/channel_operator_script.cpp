#include "fluids/operators/channel_operator_script.h"

#include <algorithm>

#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/ifluid_solver.h"
#include "framework/node_kind.h"
#include "framework/rest.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
const ScriptFamily kChannelScripts{{"intensity", "cell_value", "cell_index", "physical_pos"}};

/// Whether a channel is the one that a scope names, or a field of the solver that it names.
bool Covers(const iObject& named, const iObject* channel) {
  if (&named == channel) return true;
  const auto* solver = dynamic_cast<const iFluidSolver*>(&named);
  if (!solver) return false;
  const Flow& flow = solver->GetFlow();
  return channel == &flow.mDivergence || channel == &flow.mVelocity;
}
}  // namespace

ChannelOperator_Script::ChannelOperator_Script(BaseNode* node, Scene* scene)
    : ChannelOperator(node, scene), mScript(ScriptPart::AddTo(*this, kChannelScripts)) {}

const NodeKind& ChannelOperator_Script::Kind() {
  static const NodeKind kind = {
      .id = 1300059,
      .type = "channelop_script",
      .label = "COP::Script",
      .className = "ChannelOperator_Script",
      .typeId = 115,
      .list = kListAuxiliary,
      .categories = kCategoryGrid,
      .menu = {"Grids/Operators"},
      .purpose = "gives the cells of a field new values by a few lines of the user's own",
      .example =
          {{},
           {example::kSmoke,
            R"({ "type": "channelop_script", "name": "wisps", "parameters": { "script": [)",
            R"-(  "function main(op)",)-",
            R"-(  "  return math.max(0, Noise(physical_pos * 3, op.time))",)-", R"-(  "end"] } })-",
            R"({ "type": "grid_celliterator", "name": "each cell", "parameters": { "channel": "smoke", "operators": ["wisps"] } })"}},
      .rows = Parameters,
      .make = MakeNode<ChannelOperator_Script>,
  };
  return kind;
}

const ParameterTable& ChannelOperator_Script::Parameters() {
  static const ParameterTable table = {
      RealRow(kIntensityRow, "intensity", 1.0, "none",
              "which number the script reads under this name")
          .To(&ChannelOperator_Script::mIntensity),
      ScriptPart::Row(
          kChannelScripts,
          "-- Global Variables:\n"
          "-- intensity - the node's 'intensity'\n"
          "-- physical_pos - where the cell's centre is, in metres\n"
          "-- cell_value - the value of the cell\n"
          "-- cell_index - the index of the cell in its grid\n"
          "function main(op)\n"
          "  return cell_value + Noise(physical_pos.x, physical_pos.y, physical_pos.z)\n"
          "end",
          "gives each cell its new value: main(op) is told intensity, cell_value, "
          "cell_index and physical_pos")
          .To(&ChannelOperator_Script::mSource),
      LinksRow(kScopeRow, "scope",
               "the channels, and the solvers whose flow, that it may change; with none, every one")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&ChannelOperator_Script::mScope),
  };
  return table;
}

bool ChannelOperator_Script::Open() {
  if (mTime->stepDuration == 0) return Deactivate(kNoStepReason);
  const iObject* target = mScalar ? static_cast<iObject*>(mScalar) : mVectorChannel;
  const auto covers = [&](const iObject* named) { return Covers(*named, target); };
  if (!mScope.empty() && std::none_of(mScope.begin(), mScope.end(), covers))
    return Deactivate("its channel isn't in its 'scope'");
  return mScript.Open(mSource);
}

void ChannelOperator_Script::ChangeCells(const CellRecord* cells, i32 count,
                                         const EvaluationThreadData& data) {
  if (mScalar)
    Change<double>(cells, count, static_cast<u32>(data.index));
  else
    Change<Vec3d>(cells, count, static_cast<u32>(data.index));
}

template <class T>
void ChannelOperator_Script::Change(const CellRecord* cells, i32 count, u32 worker) {
  double intensity[kRun];
  T values[kRun], answers[kRun];
  i32 indices[kRun];
  Vec3d positions[kRun];
  const auto n = static_cast<std::size_t>(count);
  std::fill_n(intensity, n, mIntensity);
  for (std::size_t i = 0; i < n; ++i) {
    values[i] = Read(cells[i], T{});
    indices[i] = cells[i].cellIndex;
    positions[i] = cells[i].position;
  }
  const ScriptColumn told[] = {std::span<const double>(intensity, n), std::span<const T>(values, n),
                               std::span<const i32>(indices, n),
                               std::span<const Vec3d>(positions, n)};
  if (!mScript.Run(worker, told, std::span(answers, n))) return;
  for (std::size_t i = 0; i < n; ++i) Write(cells[i], answers[i] * cells[i].weight);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
