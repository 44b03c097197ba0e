#include "fluids/operators/pop_deform.h"

#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& POP_Deform::Kind() {
  static const NodeKind kind = {
      .id = 1300166,
      .type = "particle_deform",
      .label = "POP::Deform",
      .className = "POP_Deform",
      .typeId = 128,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kStartVisual},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "says where bends, twists and other deformers take particles",
      .example =
          {{example::kBall,
            R"({ "name": "lean", "type": "deformer", "position": [0, 20, 0], "parameters": { "kind": "bend", "angle": 45 } })"},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "particle_deform", "name": "bent", "parameters": { "group": "sparks", "kind": "passive", "deformers": ["lean"] } })"}},
      .rows = Parameters,
      .make = MakeNode<POP_Deform>,
  };
  return kind;
}

const ParameterTable& POP_Deform::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = {GroupRow("whose particles are deformed"),
                           KindRow(kKindRow, kLiquid, "which particles of the group are deformed"),
                           DurationRow(kDurationRow, "deforms only inside this time window")};
    const ParameterTable own = {
        LinksRow(
            kDeformersRow, "deformers",
            "what they go through, in this order; a placement of this node carries all of them",
            {kDeformerObject})
            .To(&POP_Deform::mNodes)
            .Required(),
        LinkRow(kTargetRow, "target",
                "a vector that particles carry, which takes the result, where they have it; "
                "without it the property 'deformed', which all of them get")
            .AcceptsAny({kListParticles, kCategoryProperty | kCategoryVector})
            .To(&POP_Deform::mTarget),
        LongRow(kModeRow, "mode", kSet, "",
                "set: the vector becomes the deformed place; add: the way there is added to it")
            .Choices({{kAdd, "add"}, {kSet, "set"}})
            .OrNumbers()
            .To(&POP_Deform::mMode),
        BoolRow(kPerSecondRow, "per_second", false,
                "the way is what a second brings: a frame of short last steps adds less of it")
            .To(&POP_Deform::mPerSecond),
        RealRow(kStrengthRow, "strength", 1.0, "none",
                "which part of the way there they go: 0 leaves them, 2 overshoots")
            .To(&POP_Deform::mStrength)};
    rows.insert(rows.end(), own.begin(), own.end());
    return rows;
  }();
  return table;
}

bool POP_Deform::PrepareOperator() {
  if (!FindParticles()) return false;
  if (mNodes.empty()) return Deactivate("it has no deformers; name some under 'deformers'");
  mScale = mStrength * (mPerSecond ? mTime->stepDuration : 1.0);
  mDeformers.clear();
  for (const BaseNode* node : mNodes)
    mDeformers.emplace_back(*node, Node() ? Node()->GlobalMatrix() : Matrix());
  ParticleStore& store = mGroup->Store(mKind);
  mColumn = nullptr;
  if (mTarget) {
    const i32 id = mTarget->Key().id;
    if (id == property_id::kPosition || id == property_id::kVelocity) return true;
    mColumn = store.Find<Vec3d>(mTarget->Key());
    return mColumn ? true : Deactivate("none of its particles has its 'target'");
  }
  mColumn = &store.Require<Vec3d>(property_id::kDeformed);
  // Those that a constraint leaves out, or that it has left out since, are where they are.
  if (mMode == kSet)
    for (i32 row = 0; row < store.Count(); ++row) mColumn->Set(row, store.Positions()[row]);
  return true;
}

void POP_Deform::Evaluate(const EvaluationThreadData& data) {
  ForEachChosen(
      data, [&](ParticleStore& store, i32 row, double weight, u32) { Deform(store, row, weight); });
}

void POP_Deform::Deform(ParticleStore& store, i32 row, double weight) {
  if (mTarget && mColumn && !mColumn->Has(row)) return;
  const GridLayout& domain = GetDomain();
  const Vec3d position = store.Positions()[row];
  Vec3d world = position * domain.simToWorld;
  for (const PlacedDeformer& deformer : mDeformers) world = deformer.At(world);
  const Vec3d way = (world * domain.worldToSim - position) * (weight * mScale);
  const auto result = [&](const Vec3d& before) {
    return mMode == kSet ? position + way : before + way;
  };
  if (mColumn) return mColumn->Set(row, result(mColumn->Get(row, {})));
  Vec3d& field = Moves() ? store.Positions()[row] : store.Velocities()[row];
  field = result(field);
}

void POP_Deform::FinishOperator() {
  if (Moves()) mGroup->MarkTreeStale(mKind);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
