#include "fluids/operators/particle_converter.h"

#include <algorithm>

#include "fluids/particles/particle_import.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleConverter::Kind() {
  static const NodeKind kind = {
      .id = 1300040,
      .type = "particle_converter",
      .label = "POP::Particle Converter",
      .className = "ParticleConverter",
      .typeId = 64,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kChannelsOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose =
          "hands particles of a group over to an object of the scene, or an object's to a group",
      .example =
          {{R"({ "name": "seeds", "type": "points", "points": [[0, 60, 0], [20, 70, 0], [40, 60, 0]] })",
            R"({ "name": "shown", "type": "particles" })"},
           {R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particle_converter", "name": "sow", "parameters": { "source": "seeds", "target": "sparks", "once": true } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "particle_converter", "name": "show", "parameters": { "source": "sparks", "target": "shown" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleConverter>,
  };
  return kind;
}

const ParameterTable& ParticleConverter::Parameters() {
  using This = ParticleConverter;
  static const ParameterTable table = {
      LinkRow(kSourceRow, "source",
              "whose particles are handed over: a group's, or those of an object of points or "
              "particles",
              {ParticleGroup::kNodeType, kPointsObject})
          .To(&This::mSourceGroup)
          .To(&This::mSourcePoints)
          .Required(),
      LongRow(kSourceKindRow, "source_kind", kPassive, "",
              "which particles of 'source' are meant where it is a group")
          .Choices(ParticleKindChoices())
          .To(&This::mSourceKind),
      LinkRow(kTargetRow, "target",
              "who gets them: of an object a group, of a group an object of particles that no "
              "file fills",
              {ParticleGroup::kNodeType, kPointsObject})
          .To(&This::mTargetGroup)
          .To(&This::mTargetPoints)
          .Writes()
          .Required(),
      LongRow(kTargetKindRow, "target_kind", kPassive, "",
              "which particles they become where 'target' is a group")
          .Choices(ParticleKindChoices())
          .To(&This::mTargetKind),
      BoolRow(kKeepIdsRow, "keep_ids", true,
              "a particle of the target is the one of the source with its number, which new ones "
              "get; off, the first is the first")
          .To(&This::mKeepsIds),
      BoolRow(kRemoveRow, "remove_missing", true,
              "what the source hasn't got, or not any more, leaves the target")
          .To(&This::mRemoves),
      BoolRow(kOnceRow, "once", false,
              "hands each particle over a single time: what the target has goes on as it is there")
          .To(&This::mOnce),
      DurationRow(kDurationRow, "hands over only inside this time window"),
      RealRow(kPlaceBlendRow, "position_blend", 1.0, "none",
              "how much of the way to its place in the source a particle goes in each step")
          .Range(0, 1)
          .To(&This::mPlaceBlend),
      RealRow(kVelocityBlendRow, "velocity_blend", 1.0, "none",
              "how much of its velocity there it takes on in each step")
          .Range(0, 1)
          .To(&This::mVelocityBlend),
      RealRow(kRadiusFactorRow, "radius_factor", 1.0, "none",
              "what the radius of a particle is multiplied by on its way")
          .AtLeast(0)
          .To(&This::mRadiusFactor),
      RealRow(kLifeFactorRow, "life_factor", 1.0, "none",
              "what its age and life span are multiplied by")
          .AtLeast(0)
          .To(&This::mLifeFactor),
      LinkRow(kColourRow, "color",
              "a vector that stands for the colour in the group; without it the property 'color'")
          .AcceptsAny({kListParticles, kCategoryProperty | kCategoryVector})
          .To(&This::mColour),
      RealRow(kColourBlendRow, "color_blend", 1.0, "none",
              "how much of its colour there it takes on in each step")
          .Range(0, 1)
          .To(&This::mColourBlend),
      LinksRow(kPropertiesRow, "properties",
               "what else goes over, under the names that these have, where the source has it")
          .AcceptsAny({kListParticles, kCategoryProperty})
          .To(&This::mProperties),
  };
  return table;
}

void ParticleConverter::Reset() {
  ParticleOperator::Reset();
  mObject.Reset(GetDomain());
  mHeld.Set(0);
  if (auto* shown = dynamic_cast<exchange::ParticlesObject*>(mShown.Resolve()))
    shown->WriteOutput({});
}

void ParticleConverter::Persist(StateArchive& archive) {
  ParticleOperator::Persist(archive);
  mObject.Persist(archive);
}

void ParticleConverter::Open(const PointsObject& object) {
  mObject.Reset(GetDomain());
  AppendPoints(object, GetDomain(), mProperties, mObject);
  const auto* file = dynamic_cast<const exchange::ParticlesObject*>(&object);
  const exchange::ParticleColumn* ids = file ? file->Table().Find("id", 1) : nullptr;
  if (!ids) return;
  for (i32 row = 0; row < mObject.Count(); ++row)
    mObject.Ids()[row] = static_cast<i32>(ids->At(row));
  mObject.NoteReplaced();
}

bool ParticleConverter::PrepareOperator() {
  if (mSourceGroup && mTargetPoints) {
    const auto* object = dynamic_cast<const exchange::ParticlesObject*>(mTargetPoints);
    if (!object || object->IsFromFile()) return Deactivate(kHeldReason);
    if (!IsParticleKind(mSourceKind)) return Deactivate("there is no such kind of particles");
    mSource = &mSourceGroup->Store(mSourceKind);
    mTarget = &mObject;
  } else if (mSourcePoints && mTargetGroup) {
    if (!IsParticleKind(mTargetKind)) return Deactivate("there is no such kind of particles");
    if (mTargetGroup->IsCached(mTargetKind)) return Deactivate(kPlayedParticlesReason);
    Open(*mSourcePoints);
    mSource = &mObject;
    mTarget = &mTargetGroup->Store(mTargetKind);
  } else {
    return Deactivate(kNoPairReason);
  }
  if (mSource->IsEmpty() && mTarget->IsEmpty()) return Deactivate(kEmptySourceReason);
  mWeights.assign(static_cast<std::size_t>(mSource->Count()), kDead);
  return true;
}

void ParticleConverter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE) || data.TestBreak()) return;
  ForEachLiving(*mSource, mSource->PartOf(data.index, data.count), static_cast<u32>(data.index),
                [&](i32 row, double weight) { mWeights[static_cast<std::size_t>(row)] = weight; });
}

std::vector<ParticleConverter::Pair> ParticleConverter::MatchParticles() const {
  std::vector<i32> inOrder;
  if (!mKeepsIds)
    for (i32 row = 0; row < mTarget->Count(); ++row)
      if (std::as_const(*mTarget).Flags()[row] & PF_ALIVE) inOrder.push_back(row);
  std::vector<Pair> pairs;
  std::size_t rank = 0;
  for (i32 row = 0; row < mSource->Count(); ++row) {
    const double weight = mWeights[static_cast<std::size_t>(row)];
    if (weight == kDead) continue;
    i32 to = -1;
    if (mKeepsIds)
      to = mTarget->RowOf(mSource->Ids()[row]);
    else if (rank < inOrder.size())
      to = inOrder[rank++];
    if (to >= 0)
      pairs.push_back({row, to, mOnce ? 0.0 : weight, false});
    else if (weight != 0)
      pairs.push_back({row, -1, 1.0, true});
  }
  return pairs;
}

void ParticleConverter::RemoveMissing(const std::vector<Pair>& pairs) {
  std::vector<u8> isThere(static_cast<std::size_t>(mTarget->Count()), 0);
  for (const Pair& pair : pairs)
    if (!pair.isNew) isThere[static_cast<std::size_t>(pair.to)] = 1;
  for (i32 row = 0; row < mTarget->Count(); ++row)
    if (!isThere[static_cast<std::size_t>(row)])
      mTarget->Flags()[row] &= static_cast<u16>(~PF_ALIVE);
}

bool ParticleConverter::MakeMissing(std::vector<Pair>& pairs) {
  ParticleTemplate newborn;
  if (mTargetGroup) newborn.flags |= kParticleKindRows[static_cast<std::size_t>(mTargetKind)].flag;
  const auto births = static_cast<double>(
      std::count_if(pairs.begin(), pairs.end(), [](const Pair& pair) { return pair.isNew; }));
  if (births == 0) return true;
  if (mTargetGroup && !mTargetGroup->HasRoom(mTargetKind, births, newborn)) return false;
  for (Pair& pair : pairs) {
    if (!pair.isNew) continue;
    pair.to = mTarget->Create(newborn);
    if (mKeepsIds) mTarget->Ids()[pair.to] = mSource->Ids()[pair.from];
  }
  if (mKeepsIds) mTarget->NoteReplaced();
  return true;
}

namespace {

/// What a value becomes that goes over by a share; a switch goes over whole.
template <class T>
T Blended(const T& before, const T& value, double share) {
  if constexpr (std::is_same_v<T, bool>)
    return value;
  else
    return share == 1 ? value : before + (value - before) * share;
}

}  // namespace

template <class T>
void ParticleConverter::Carry(const Carried& property, const std::vector<Pair>& pairs) {
  const PropertyColumn<T>* from = mSource->Find<T>(property.from);
  if (!from) return;
  PropertyColumn<T>& to = mTarget->Require<T>(property.to, property.name);
  for (const Pair& pair : pairs) {
    if (pair.weight == 0 || !from->Has(pair.from)) continue;
    T value = from->Get(pair.from, T{});
    if constexpr (!std::is_same_v<T, bool>) value = value * property.factor;
    const bool hasOne = !pair.isNew && to.Has(pair.to);
    to.Set(pair.to,
           hasOne ? Blended<T>(to.Get(pair.to, T{}), value, property.blend * pair.weight) : value);
  }
}

void ParticleConverter::CarryAll(const std::vector<Pair>& pairs) {
  for (const Pair& pair : pairs) {
    if (pair.weight == 0) continue;
    const auto blend = [&](std::span<Vec3d> to, std::span<const Vec3d> from, double share) {
      to[pair.to] = Blended<Vec3d>(to[pair.to], from[pair.from], pair.isNew ? 1.0 : share);
    };
    blend(mTarget->Positions(), mSource->Positions(), mPlaceBlend * pair.weight);
    blend(mTarget->Velocities(), mSource->Velocities(), mVelocityBlend * pair.weight);
  }
  using enum property_id::Id;
  Carry<double>({kRadius, kRadius, {}, mRadiusFactor}, pairs);
  Carry<double>({kAge, kAge, {}, mLifeFactor}, pairs);
  Carry<double>({kLifeSpan, kLifeSpan, {}, mLifeFactor}, pairs);
  const PropertyKey colour = mColour ? mColour->Key() : PropertyKey(kColor);
  const std::string name = mColour ? mColour->mName : std::string();
  if (mSourceGroup)
    Carry<Vec3d>({colour, kColor, {}, 1, mColourBlend}, pairs);
  else
    Carry<Vec3d>({kColor, colour, name, 1, mColourBlend}, pairs);
  for (const iProperty* property : mProperties) {
    const i32 id = property->PropertyId();
    if (id == kPosition || id == kVelocity) continue;
    const Carried carried{property->Key(), property->Key(), property->mName};
    if (dynamic_cast<const Property<double>*>(property))
      Carry<double>(carried, pairs);
    else if (dynamic_cast<const Property<Vec3d>*>(property))
      Carry<Vec3d>(carried, pairs);
    else
      Carry<bool>(carried, pairs);
  }
}

void ParticleConverter::Show() {
  auto& object = static_cast<exchange::ParticlesObject&>(*mTargetPoints);
  mShown = BaseLink(&object);
  exchange::ParticleTable table = PointsOf(mObject, object, GetDomain());
  mHeld.Set(static_cast<u64>(table.Bytes()) + static_cast<u64>(table.Count()) * sizeof(Vec3d));
  object.WriteOutput(std::move(table));
}

void ParticleConverter::FinishOperator() {
  if (IsCancelled()) return;
  if (mKeepsIds) mTarget->IndexIds();
  std::vector<Pair> pairs = MatchParticles();
  if (mRemoves) RemoveMissing(pairs);
  if (MakeMissing(pairs)) CarryAll(pairs);
  if (mTargetGroup) {
    mTargetGroup->MarkTreeStale(mTargetKind);
    // What it holds is read anew in each step.
    mObject.Reset(GetDomain());
  } else {
    mObject.RemoveDead(true);
    Show();
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
