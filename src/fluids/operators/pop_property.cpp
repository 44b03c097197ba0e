#include "fluids/operators/pop_property.h"

#include "fluids/emission/alignment_vector.h"
#include "framework/dead_link.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& POP_Property::Kind() {
  static const NodeKind kind = {
      .id = 1300154,
      .type = "pop_property",
      .label = "POP::Property",
      .className = "POP_Property",
      .typeId = 108,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "changes a property of particles: sets it, adds to it, or limits it by another",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "kind": "passive", "source": "ball mesh", "settings": "rate" } })",
            R"({ "type": "property_vector", "name": "motion", "parameters": { "property": "velocity" } })",
            R"({ "type": "pop_property", "name": "lift", "parameters": { "group": "sparks", "kind": "passive", "target": "motion", "operation": "add", "vector_value": [0, 0.1, 0] } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<POP_Property>,
  };
  return kind;
}

const ParameterTable& POP_Property::Parameters() {
  static const ParameterTable table = {
      GroupRow("whose particles are changed"),
      KindRow(kKindRow, kLiquid, "which particles of the group are changed"),
      LinkRow(kSourceRow, "source",
              "another property, whose value at each particle is taken, or a direction there; "
              "particles without that property stay as they are",
              {AlignmentVector3D::Kind().id})
          .AcceptsAny({kListParticles, kCategoryProperty})
          .RestsWhereDead()
          .To(&POP_Property::mSourceProperty)
          .To(&POP_Property::mAlignment),
      LinkRow(kTargetRow, "target",
              "which property is changed; particles without it get it, as 0, or 1 of a mass or an "
              "age, before the change")
          .AcceptsAny({kListParticles, kCategoryProperty})
          .To(&POP_Property::mProperty)
          .Required(),
      LongRow(kOperationRow, "operation", 1, "",
              "what the source does to the property in every step; numbers fill all three parts of "
              "a vector, and a number takes the first part of one")
          .Choices(PropertyOperationChoices())
          .OrNumbers()
          .To(&POP_Property::mOperation),
      BoolRow(kSkipRow, "skip_excluded", true,
              "leaves particles alone of which constraints leave nothing; off, they get 0, as what "
              "is written is multiplied by the weight that is left")
          .To(&POP_Property::mSkips),
      DurationRow(kDurationRow, "works only inside this time window"),
      LongRow(5000, "value_kind", 0, "",
              "which of the three values a dialog shows; the property takes the one that fits it")
          .Choices({{0, "real"}, {1, "vector"}, {2, "whole_number"}})
          .Kept(),
      RealRow(kRealRow, "value", 1.0, "none", "what a number takes without a source")
          .OnlyWithout(kSourceRow)
          .To(&POP_Property::mReal),
      VectorRow(kVectorRow, "vector_value", {1, 0, 0}, "none",
                "what a vector takes without a source")
          .OnlyWithout(kSourceRow)
          .To(&POP_Property::mVector),
      LongRow(kWholeRow, "whole_value", 100, "",
              "what a switch takes without a source: 0 counts as off, all else as on")
          .OnlyWithout(kSourceRow)
          .To(&POP_Property::mWhole),
  };
  return table;
}

bool POP_Property::PrepareOperator() {
  if (RestsByDeadLink(*this)) return false;
  if (!mProperty) return Deactivate("it has no property; name one under 'target'");
  if (!FindParticles()) return false;
  ParticleStore& store = mGroup->Store(mKind);
  if (mSourceProperty) {
    mSource = PropertyNumbers(store, *mSourceProperty, false);
    if (!mSource.IsAnywhere()) return Deactivate("no particle has what 'source' names");
  }
  mTarget = PropertyNumbers(store, *mProperty, true);
  if (mAlignment) mAlignment->SetWorkerCount(kShares);
  const double number =
      dynamic_cast<const Property<bool>*>(mProperty) ? (mWhole != 0 ? 1.0 : 0.0) : mReal;
  mConstant = mTarget.IsVector() ? mVector : Vec3d{number, number, number};
  return true;
}

Vec3d POP_Property::SourceAt(i32 row, const Vec3d& position, u32 worker) const {
  if (mSourceProperty) return mSource.Get(row);
  Vec3d source = mConstant;
  if (mAlignment) mAlignment->GetDirection(source, position, worker);
  return source;
}

void POP_Property::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const ParticleStore& store = mGroup->Store(mKind);
  const u32 worker = static_cast<u32>(data.index);
  ForEachLiving(store, store.PartOf(data.index, data.count), worker, [&](i32 row, double weight) {
    if (weight == 0 && (mSkips || mConstraints.IsEmpty())) return;
    if (mSourceProperty && !mSource.Has(row)) return;
    const Vec3d source = SourceAt(row, store.Positions()[row], worker);
    mTarget.Set(row, Combined(mOperation, mTarget.Get(row), source, mTarget.IsVector()) * weight);
  });
}

void POP_Property::FinishOperator() {
  if (mProperty->PropertyId() == property_id::kPosition) mGroup->MarkTreeStale(mKind);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
