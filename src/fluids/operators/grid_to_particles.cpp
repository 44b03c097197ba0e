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
      GroupsRow("whose particles are told, by kind"),
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
      DurationRow(kDurationRow, "works only inside this time window"),
  };
  return table;
}

bool GridToParticles::CommutesWith(const iBase& other) const {
  const auto* reader = dynamic_cast<const GridToParticles*>(&other);
  if (!reader || !mProperty || !reader->mProperty) return false;
  const auto moves = [](const iProperty& property) {
    return property.PropertyId() == property_id::kPosition;
  };
  return !(mProperty->Key() == reader->mProperty->Key()) && !moves(*mProperty) &&
         !moves(*reader->mProperty);
}

bool GridToParticles::PrepareOperator() {
  if (mField.IsEmpty()) return Deactivate("it has no field; name one under 'source'");
  if (!mProperty) return Deactivate("it has no property; name one under 'target'");
  if (!mField.Open()) return Deactivate("its 'source' has no grid");
  mTargets.clear();
  ForEachNamedKind([&](ParticleGroup& group, i32 kind) {
    mTargets.push_back({&group, kind, PropertyNumbers(group.Store(kind), *mProperty, true)});
  });
  return !mTargets.empty() || Deactivate(kNoParticlesReason);
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

void GridToParticles::FinishOperator() {
  if (mProperty->PropertyId() == property_id::kPosition)
    for (const Target& target : mTargets) target.group->MarkTreeStale(target.kind);
  mTargets.clear();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
