#include "fluids/emission/channel_pair.h"

#include "fluids/emission/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const std::vector<i32>& ChannelKinds() {
  static const std::vector<i32> kinds = {1300027, 1300028, 1300029, 1300030, 1300112};
  return kinds;
}

const std::vector<i32>& FieldKinds() {
  static const std::vector<i32> kinds = {1300027, 1300028, 1300029, 1300030,
                                         1300112, 1300002, 1300003, 1300004};
  return kinds;
}

void ChannelTarget::Resolve(const iBase& holder, i32 id, i32 solverField) {
  Clear();
  const Scene& scene = *holder.mScene;
  const BaseNode* node = holder.mInterface.GetLink(id);
  scalar = dynamic_cast<ScalarField*>(scene.FindObject(node, kListChannels, kBitScalar));
  if (scalar) return;
  if (auto* solver = dynamic_cast<iFluidSolver*>(scene.FindObject(node, kListSolvers))) {
    if (solverField == kPressure) scalar = solver->GetDivergenceChannel();
    if (solverField == kVelocity) vector = solver->GetVelocityChannel();
    return;
  }
  vector = dynamic_cast<VectorField*>(scene.FindObject(node, kListChannels, kBitVector));
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
      LinkRow(1000, "channel", "what is filled: a field, or a solver, whose gas then swells",
              FieldKinds()),
      LinkRow(1001, "settings", "how much of it, when, and how it mixes with what is there",
              {1300024}),
  };
  return table;
}

bool ChannelPair::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  ChannelTarget target;
  target.Resolve(*this, 1000, ChannelTarget::kPressure);
  mScalar = target.scalar;
  mVectorChannel = target.vector;
  mSettings = static_cast<GridEmissionSettings*>(mScene->FindObject(
      mInterface.GetLink(1001), kListSettings, kBitAny, kBitAny, kTypeGridEmissionSettings));
  return !target.IsEmpty() && mSettings;
}

void ChannelPair::ClearLinks() {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  mSettings = nullptr;
  iBase::ClearLinks();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
