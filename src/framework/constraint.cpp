#include "framework/constraint.h"

#include <algorithm>

#include "framework/constraint_port.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

host::ParameterTable Constraint::WithRange(host::ParameterTable own) {
  using namespace host;
  const ParameterTable range = {
      BoolRow(kInvertRow, "invert", false, "turns it round: it lets pass what it held back")
          .To(&Constraint::mInvert),
      RealRow(kStrengthRow, "strength", 1.0, "none",
              "a handle on the whole: what comes out is multiplied by it")
          .To(&Constraint::mStrength),
      BoolRow(kClampLowRow, "clamp_low", true, "less than 'input_low' counts as that")
          .To(&Constraint::mClampsLow),
      BoolRow(kClampHighRow, "clamp_high", true, "more than 'input_high' counts as that")
          .To(&Constraint::mClampsHigh),
      RealRow(kInputLowRow, "input_low", 0.0, "none", "the measure that gives 'output_low'")
          .To(&Constraint::mInputLow),
      RealRow(kInputHighRow, "input_high", 1.0, "none",
              "the measure that gives 'output_high'; where it is 'input_low', all do")
          .To(&Constraint::mInputHigh),
      RealRow(kOutputLowRow, "output_low", 0.0, "none",
              "how much passes where the measure is 'input_low'")
          .To(&Constraint::mOutputLow),
      RealRow(kOutputHighRow, "output_high", 1.0, "none",
              "how much passes where it is 'input_high'")
          .To(&Constraint::mOutputHigh),
      BoolRow(kUseCurveRow, "use_curve", false, "bends the way from low to high by 'curve'")
          .To(&Constraint::mUsesCurve),
      CurveRow(kCurveRow, "curve", "where between the ends, 0 to 1, a place between them comes to")
          .OnlyWith(kUseCurveRow, {1})
          .To(&Constraint::mCurve),
  };
  own.insert(own.end(), range.begin(), range.end());
  return own;
}

bool Constraint::ResolveLinks() {
  mOpenedIn = 0;
  return iBase::ResolveLinks();
}

void Constraint::ClearLinks() {
  mOpenedIn = 0;
  iBase::ClearLinks();
}

void Constraint::Relink() {
  ReadParameters();
  ResolveLinks();
  AfterLinks();
}

void Constraint::Prepare(const ConstraintUse& /*use*/) {
  if (!mScene) return;
  const bool isNew = mOpenedIn != mScene->mStageRuns;
  mOpenedIn = mScene->mStageRuns;
  if (isNew) mIsOpen = Open();
  SetFlag(FLAG_ACTIVE, mIsOpen && Fetch());
  if (isNew && Has(FLAG_ACTIVE)) ++mRuns;
}

void Constraint::TestRow(const ConstraintRow& row, const ConstraintUse& use) {
  ConstraintUse at = use;
  at.particles = row.particles;
  for (std::size_t i = 0; i < row.positions.size(); ++i) {
    at.particle = row.firstParticle + static_cast<i32>(i);
    if (row.weights[i] != 0 && !Test(row.positions[i], row.weights[i], at)) row.weights[i] = 0;
  }
}

double Constraint::FactorOf(double measure) const {
  if (mClampsLow && measure < mInputLow)
    measure = mInputLow;
  else if (mClampsHigh && measure > mInputHigh)
    measure = mInputHigh;
  const double span = mInputHigh - mInputLow;
  double t = span == 0 ? 1.0 : (measure - mInputLow) / span;
  if (mUsesCurve && mCurve) t = mCurve->Evaluate(t);
  if (mInvert) t = 1 - t;
  return (mOutputLow + (mOutputHigh - mOutputLow) * t) * mStrength;
}

void ConstraintList::Connect(std::span<const host::LinkTarget> targets) {
  mNamed.clear();
  for (const host::LinkTarget& target : targets) {
    auto* constraint = dynamic_cast<Constraint*>(target.object);
    // One that is named twice is asked once.
    if (!constraint || std::any_of(mNamed.begin(), mNamed.end(), [&](const Entry& entry) {
          return entry.constraint == constraint;
        }))
      continue;
    const auto [state, isNew] = mStates.try_emplace(target.node->Id());
    if (isNew) state->second = constraint->MakeState();
    mNamed.push_back({constraint, state->second.get()});
  }
}

void ConstraintList::Reset() {
  mStates.clear();
  for (Entry& entry : mNamed) {
    auto& state = mStates[entry.constraint->Node()->Id()];
    state = entry.constraint->MakeState();
    entry.state = state.get();
  }
}

void ConstraintList::Relink() {
  for (const Entry& entry : mNamed) entry.constraint->Relink();
}

void ConstraintList::Prepare(const iBase* owner) {
  for (const Entry& entry : mNamed) entry.constraint->Prepare({owner, entry.state});
}

void ConstraintList::Finish(const iBase* owner) {
  for (const Entry& entry : mNamed) entry.constraint->Finish({owner, entry.state});
}

bool ConstraintList::Test(const Vec3d& position, double& weight, const iBase* owner,
                          u32 worker) const {
  return Test(position, weight, owner, worker, nullptr, 0);
}

bool ConstraintList::Test(const Vec3d& position, double& weight, const iBase* owner, u32 worker,
                          const ParticleColumns* particles, i32 particle,
                          bool onlyOfParticles) const {
  for (const Entry& entry : mNamed)
    if (entry.constraint->Has(FLAG_ENABLED) &&
        (!onlyOfParticles || entry.constraint->IsOfParticles()) &&
        !entry.constraint->Test(position, weight,
                                {owner, entry.state, worker, particles, particle})) {
      weight = 0;
      return false;
    }
  return weight != 0;
}

void ConstraintList::TestRow(const ConstraintRow& row, const iBase* owner, u32 worker) const {
  for (const Entry& entry : mNamed)
    if (entry.constraint->Has(FLAG_ENABLED))
      entry.constraint->TestRow(row, {owner, entry.state, worker});
}

void ConstraintList::Persist(StateArchive& archive, const Scene& scene) {
  std::vector<host::NodeId> nodes;
  for (const auto& [node, state] : mStates)
    if (state) nodes.push_back(node);
  archive(nodes);
  if (archive.IsLoading() && archive.IsGood()) {
    mNamed.clear();
    mStates.clear();
  }
  for (const host::NodeId node : nodes) {
    if (!archive.IsGood()) return;
    if (archive.IsLoading()) {
      const auto& auxiliary = scene.List(kListAuxiliary);
      const auto found = auxiliary.find(node);
      const auto* constraint =
          found == auxiliary.end() ? nullptr : dynamic_cast<Constraint*>(found->second.get());
      mStates[node] = constraint ? constraint->MakeState() : nullptr;
      if (!mStates[node]) return archive.Fail("a constraint differs");
    }
    mStates[node]->Persist(archive);
  }
}

void ConnectConstraints(ConstraintList& list, std::span<const host::LinkTarget> targets) {
  list.Connect(targets);
}

void PersistConstraints(ConstraintList& list, StateArchive& archive, const Scene& scene) {
  list.Persist(archive, scene);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
