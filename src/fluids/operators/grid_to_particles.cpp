#include "fluids/operators/grid_to_particles.h"

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& GridToParticles::Kind() {
  static const NodeKind kind = {
      .id = 1300138,
      .type = "particle_gridtoparticles",
      .label = "POP::Grid To ParticleData",
      .className = "GridToParticles",
      .typeId = 109,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Grids/Operators", "Particles/Operators"},
      .purpose =
          "tells particles what a field is where they are: heat, smoke, speed, distance to a shape",
      .example =
          {{example::kBall},
           {example::kBallMesh, example::kBallVolume,
            R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "rate" })",
            R"({ "type": "property_scalar", "name": "height", "parameters": { "property": 80, "value": 0 } })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "kind": "passive", "source": "ball mesh", "settings": "rate", "properties": ["height"] } })",
            R"({ "type": "particle_gridtoparticles", "name": "measure", "parameters": { "groups": [{ "node": "sparks", "kinds": ["passive"] }], "source": "ball volume", "target": "height", "operation": "set" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<GridToParticles>,
  };
  return kind;
}

const ParameterTable& GridToParticles::Parameters() {
  static const ParameterTable table = {
      LinksRow(kGroupsRow, "groups", "whose particles are told, by kind",
               {ParticleGroup::kNodeType})
          .To(&GridToParticles::mGroups)
          .Writes()
          .Required(),
      LinkRow(kSourceRow, "source",
              "the field: numbers, vectors, the distance to a shape, below 0 inside, or the "
              "velocity of a fluid; where it isn't, particles stay as they are")
          .AcceptsAny(kAllChannels)
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .AcceptsAny(kSolvers)
          .To(&GridToParticles::mField)
          .Required(),
      LinkRow(kTargetRow, "target",
              "which property takes it; particles without it get it, as 0, or 1 of a mass or an "
              "age, before the change")
          .AcceptsAny({kListParticles, kCategoryProperty})
          .To(&GridToParticles::mProperty)
          .Required(),
      LongRow(kOperationRow, "operation", 1, "",
              "what the field does to the property in every step: set for the field itself; "
              "numbers fill all three parts of a vector, and a number takes the first part of one")
          .Choices(PropertyOperationChoices())
          .OrNumbers()
          .To(&GridToParticles::mOperation),
      LongRow(kModeRow, "excluded", kSkipExcluded, "",
              "what becomes of particles of which constraints leave nothing: they stay as they "
              "are, or get 0, as what is written is multiplied by the weight that is left")
          .Choices({{kSkipExcluded, "skip"}, {kWriteExcluded, "write"}})
          .To(&GridToParticles::mMode),
      LinkRow(kDurationRow, "duration", "works only inside this time window", {Duration::Kind().id})
          .To(&GridToParticles::mDuration),
  };
  return table;
}

void GridToParticles::CollectTargets() {
  mTargets.clear();
  for (const Linked<ParticleGroup>& entry : mGroups)
    for (i32 kind = 0; kind < kParticleKinds; ++kind) {
      ParticleGroup& group = *entry.object;
      if (NamesKind(entry.flags, kind) && group.Count(kind) > 0 && !group.IsCached(kind))
        mTargets.push_back({&group, kind, PropertyNumbers(group.Store(kind), *mProperty, true)});
    }
}

void GridToParticles::Prepare() {
  if (!OpenWindow()) return;
  if (mField.IsEmpty()) return void(Deactivate("it has no field; name one under 'source'"));
  if (!mProperty) return void(Deactivate("it has no property; name one under 'target'"));
  if (!mField.Open()) return void(Deactivate("its 'source' has no grid"));
  CollectTargets();
  if (mTargets.empty()) return void(Deactivate(kNoParticlesReason));
  Start();
}

void GridToParticles::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const bool writesExcluded = mMode != kSkipExcluded && !mConstraints.IsEmpty();
  for (Target& target : mTargets) {
    const ParticleStore& store = target.group->Store(target.kind);
    PropertyNumbers& property = target.property;
    const auto write = [&](i32 row, double weight) {
      if (weight == 0 && !writesExcluded) return;
      const std::optional<Vec3d> field = mField.At(store.Positions()[row]);
      if (field)
        property.Set(row,
                     Combined(mOperation, property.Get(row), *field, property.IsVector()) * weight);
    };
    ForEachLiving(store, store.PartOf(data.index, data.count), static_cast<u32>(data.index), write);
  }
}

void GridToParticles::Finish() {
  if (Has(FLAG_ACTIVE) && mProperty->PropertyId() == property_id::kPosition)
    for (const Target& target : mTargets) target.group->MarkTreeStale(target.kind);
  mTargets.clear();
  WindowedOperator::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
