#include "fluids/operators/particle_forces.h"

#include <algorithm>

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleForces::Kind() {
  static const NodeKind kind = {
      .id = 1300127,
      .type = "particle_forces",
      .label = "POP::Forces",
      .className = "ParticleForces",
      .typeId = 107,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "pushes particles by the forces that it names",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [2, 0, 0] } })",
            R"({ "type": "particle_forces", "name": "blow", "parameters": { "groups": [{ "node": "sparks", "kinds": ["passive"] }], "forces": ["wind"] } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleForces>,
  };
  return kind;
}

const ParameterTable& ParticleForces::Parameters() {
  static const ParameterTable table = {
      GroupsRow("whose particles are pushed, by kind"),
      AbsentLinksRow(kForcesRow, "forces",
                     "what pushes them; without the list every force that acts on particles")
          .AcceptsAny({kListForces, 0})
          .AllWhenAbsent()
          .To(&ParticleForces::mNamed),
      LongRow(kForceListRow, "force_list", 1, "",
              "whether 'forces' names those that push, or those that don't")
          .Choices({{0, "exclude"}, {1, "include"}})
          .Missing(i32{0})
          .To(&ParticleForces::mListMode),
      DurationRow(kDurationRow, "pushes only inside this time window"),
      LinkRow(kTargetRow, "target",
              "a vector that particles carry, which takes the sum instead of "
              "the velocity; particles without it are left alone")
          .AcceptsAny({kListParticles, kCategoryProperty | kCategoryVector})
          .To(&ParticleForces::mProperty),
      LongRow(
          kModeRow, "mode", kAdd, "",
          "whether the sum is added to what is there, or replaces it wherever constraints leave "
          "anything of it")
          .Choices({{kAdd, "add"}, {kSet, "set"}})
          .OrNumbers()
          .To(&ParticleForces::mMode),
      BoolRow(kPerStepRow, "per_step", true,
              "takes what forces give to a step of this length; off, what they give to a second")
          .To(&ParticleForces::mIsPerStep),
  };
  return table;
}

bool ParticleForces::SetsVelocity() const {
  return !mProperty || mProperty->Key().id == property_id::kVelocity;
}

void ParticleForces::CollectTargets() {
  mTargets.clear();
  ForEachNamedKind([&](ParticleGroup& group, i32 kind) {
    PropertyColumn<Vec3d>* column =
        SetsVelocity() ? nullptr : group.Store(kind).Find<Vec3d>(mProperty->Key());
    if (SetsVelocity() || column) mTargets.push_back({&group, kind, column});
  });
}

void ParticleForces::CollectForces() {
  const bool isOpen = !Node() || !Node()->Get(kForcesRow);
  mForces.clear();
  if (!isOpen && mListMode != 0) {
    mForces = mNamed;
  } else {
    for (const auto& [id, object] : mScene->List(kListForces)) {
      auto* force = dynamic_cast<Force*>(object.get());
      const bool isNamed = std::find(mNamed.begin(), mNamed.end(), force) != mNamed.end();
      if (force && force->ActsOnParticles() && (isOpen || !isNamed)) mForces.push_back(force);
    }
  }
  std::erase_if(mForces, [](const Force* force) { return !force->Has(FLAG_ENABLED); });
}

/// Neighbours are asked for while the velocities change: each particle sees those of all others as
/// they were.
void ParticleForces::LookAround() {
  if (std::none_of(mForces.begin(), mForces.end(),
                   [](const Force* force) { return force->AsksNeighbours(); }))
    return;
  mBefore.resize(std::max(mBefore.size(), mTargets.size()));
  u64 bytes = 0;
  for (std::size_t i = 0; i < mTargets.size(); ++i) {
    Target& target = mTargets[i];
    target.group->BuildTree(target.kind, mScene->mThreadCount);
    const auto now = std::as_const(target.group->Store(target.kind)).Velocities();
    if (!target.column) mBefore[i].assign(now.begin(), now.end());
    bytes += mBefore[i].capacity() * sizeof(Vec3d);
    target.around.tree = target.group->Tree(target.kind);
    target.around.velocities = target.column ? now : std::span<const Vec3d>(mBefore[i]);
  }
  mHeld.Set(bytes);
}

bool ParticleForces::PrepareOperator() {
  CollectTargets();
  if (mTargets.empty()) return Deactivate(kNoParticlesReason);
  CollectForces();
  if (std::none_of(mForces.begin(), mForces.end(),
                   [](const Force* force) { return force->ActsOnParticles(); }))
    return Deactivate("it has no force that acts on particles");
  LookAround();
  for (Force* force : mForces) force->PrepareForParticles();
  return true;
}

void ParticleForces::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  for (const Target& target : mTargets) {
    const IndexRange own = target.group->Store(target.kind).PartOf(data.index, data.count);
    for (i32 first = own.first; first < own.last && !data.TestBreak(); first += kRun)
      Push(target, first, std::min(kRun, own.last - first), static_cast<u32>(data.index));
  }
}

void ParticleForces::Push(const Target& target, i32 first, i32 count, u32 worker) const {
  ParticleStore& store = target.group->Store(target.kind);
  const auto n = static_cast<std::size_t>(count);
  const std::span<const Vec3d> positions = std::as_const(store).Positions().subspan(first, n);
  double weights[kRun];
  Vec3d forces[kRun] = {};
  Weigh(store, first, {weights, n}, worker);
  for (Force* force : mForces)
    if (force->Has(FLAG_ACTIVE))
      force->EvaluateParticles({worker,
                                &store,
                                first,
                                positions,
                                {weights, n},
                                GetDomain().simToWorld,
                                {forces, n},
                                &target.around});
  const double scale = mIsPerStep ? 1.0 : 1.0 / mTime->stepDuration;
  for (std::size_t i = 0; i < n; ++i) {
    const i32 row = first + static_cast<i32>(i);
    if (weights[i] == 0 || (target.column && !target.column->Has(row))) continue;
    const Vec3d sum = forces[i] * scale;
    if (!target.column)
      store.Velocities()[row] = mMode == kSet ? sum : store.Velocities()[row] + sum;
    else
      target.column->Set(row, mMode == kSet ? sum : Vec3d(target.column->Get(row, {})) + sum);
  }
}

void ParticleForces::FinishOperator() {
  for (Force* force : mForces) force->Finish();
  mForces.clear();
  mTargets.clear();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
