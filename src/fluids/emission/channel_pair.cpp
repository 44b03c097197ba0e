#include "fluids/emission/channel_pair.h"

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

void ChannelTarget::Connect(std::span<const host::LinkTarget> targets) {
  *this = {};
  if (targets.empty()) return;
  scalar = dynamic_cast<ScalarField*>(targets.front().object);
  vector = dynamic_cast<VectorField*>(targets.front().object);
  solver = dynamic_cast<iFluidSolver*>(targets.front().object);
}

void ChannelTarget::ChooseField(i32 solverField) {
  if (!solver) return;
  if (solverField == kPressure) scalar = &solver->GetFlow().mDivergence;
  if (solverField == kVelocity) vector = &solver->GetFlow().mVelocity;
}

const NodeKind& ChannelPair::Kind() {
  static const NodeKind kind = {
      .id = 1300012,
      .type = "channelsettings",
      .label = "Container::Channel/Settings",
      .className = "ChannelPair",
      .typeId = kTypeChannelPair,
      .list = kListSettings,
      .categories = kCategoryGrid,
      .menu = {"Grids/Emitters"},
      .purpose = "joins a field with the settings of what is emitted into it",
      .example = {{example::kBall},
                  {example::kSmoke, example::kRate, example::kPair, example::kBallMesh,
                   example::kBallVolume, example::kEmitter}},
      .rows = Parameters,
      .make = MakeNode<ChannelPair>,
  };
  return kind;
}

const ParameterTable& ChannelPair::Parameters() {
  static const ParameterTable table = {
      LinkRow(kChannelRow, "channel", "what is filled: a field, or a solver, whose gas then swells")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&ChannelPair::mTarget)
          .Writes()
          .Required(),
      LinkRow(kSettingsRow, "settings", "how much of it, when, and how it mixes with what is there",
              {GridEmissionSettings::Kind().id})
          .To(&ChannelPair::mSettings)
          .Required(),
  };
  return table;
}

bool ChannelPair::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  mTarget.ChooseField(ChannelTarget::kPressure);
  mScalar = mTarget.scalar;
  mVectorChannel = mTarget.vector;
  return !mTarget.IsEmpty() && mSettings;
}

void ChannelPair::ClearLinks() {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  iBase::ClearLinks();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
