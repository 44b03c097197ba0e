// The stages of a step: who runs in them, in which groups, and how.
#include <algorithm>
#include <chrono>

#include "framework/stage_order.h"
#include "framework/sulva_scene.h"
#include "grids/fixed_blocks.h"
#include "grids/memory_owner.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
/// Adds the wall time of its life to a counter.
class StageTimer {
 public:
  explicit StageTimer(double& seconds) : mSeconds(seconds) {}
  ~StageTimer() { mSeconds += std::chrono::duration<double>(Clock::now() - mStart).count(); }

 private:
  using Clock = std::chrono::steady_clock;
  double& mSeconds;
  Clock::time_point mStart = Clock::now();
};
}  // namespace

bool SulvaScene::Simulate(bool refresh) {
  for (i32 stage = kInitialiseSubstep; stage <= kFinish; ++stage) {
    SetStage(stage);
    const StageTimer timer(mReport.stageSeconds[stage]);
    if (stage == kInitialiseSubstep) {
      if (!refresh && mTime.IsUnderWay())
        ForEachPart([&](ScenePart& part) { part.BeginStep(*this); });
    } else if (stage == kCalculateBounds) {
      if (!refresh && !NegotiateBounds()) return false;
    } else if (stage == kFinish) {
      if (!refresh && !FinishStep()) return false;
    } else {
      if (stage == kVolumes && !refresh) ForEachPart([&](ScenePart& part) { part.Advance(*this); });
      if (!RunStage(stage, refresh)) return false;
      if (stage == kVolumes && !refresh)
        ForEachPart([&](ScenePart& part) { part.FollowVolumes(*this); });
    }
  }
  return !IsCancelled();
}

void SulvaScene::RunVisualStages() {
  for (i32 stage = kStartVisual; stage <= kVisualPost; ++stage) {
    SetStage(stage);
    const StageTimer timer(mReport.stageSeconds[stage]);
    if (!RunStage(stage, false)) return;
  }
}

bool SulvaScene::NegotiateBounds() {
  const auto forEachContent = [&](auto&& f) {
    for (i32 list = 1; list <= 8; ++list)
      if (list != kListSolvers)
        for (const auto& [id, object] : mLists[list])
          if (object->Has(FLAG_ENABLED)) f(*object);
  };
  const auto forEachSource = [&](auto&& f) {
    forEachContent([&](iBase& o) {
      if (o.Has(FLAG_AFFECTS_BOUNDS)) f(o);
    });
  };
  Bounds content;
  forEachSource([&](iBase& o) { o.ExpandBounds(content.min, content.max); });
  mBoundsValid = false;
  if (!content.IsValid()) {
    mFlags |= kNoBounds;
    for (const i32 list : {kListChannels, kListSolvers})
      for (const auto& [id, object] : mLists[list])
        if (object->Has(FLAG_AFFECTS_BOUNDS)) object->Release(true);
    return true;
  }
  mFlags &= ~kNoBounds;

  // Each solver takes the content in its own reach, or the box of one would follow what only
  // another one can move. Fields cover what all solvers took.
  NegotiatedBounds bounds;
  std::vector<iBase*> solvers;
  bool anyActive = false;
  for (const auto& [id, object] : mLists[kListSolvers]) {
    Bounds reach, own;
    if (!object->Has(FLAG_ENABLED) || !object->GetReach(reach.min, reach.max)) continue;
    forEachSource([&](iBase& o) { o.ExpandBoundsWithin(reach.min, reach.max, own.min, own.max); });
    object->ExpandBounds(own.min, own.max);
    if (object->Has(FLAG_ACTIVE)) bounds.fields.Add(own);
    bounds.own[object.get()] = own;
    solvers.push_back(object.get());
  }
  if (!bounds.fields.IsValid()) bounds.fields = content;
  if (mBoundsGuard && !mBoundsGuard(bounds)) return false;
  const auto apply = [&](iBase& object) {
    const MemoryOwner owner(object.mName);
    object.ApplyBounds(bounds.Of(object).min, bounds.Of(object).max);
  };
  for (iBase* solver : solvers) {
    apply(*solver);
    anyActive = anyActive || solver->Has(FLAG_ACTIVE);
  }
  if (anyActive || solvers.empty()) forEachContent(apply);
  mBoundsValid = anyActive;
  return true;
}

bool SulvaScene::FinishStep() {
  for (const ObjectList& list : mLists)
    for (const auto& [id, object] : list)
      if (object->Has(FLAG_ENABLED)) object->CommitStep();
  if (!mBoundsValid) return !IsCancelled();
  // Channels know nothing of each other, and none goes through its grid on several workers.
  for (const i32 list : {kListChannels, kListSolvers}) {
    if (IsCancelled()) return false;
    std::vector<iBase*> changed;
    for (const auto& [id, object] : mLists[list])
      if (object->Has(FLAG_ENABLED) && object->IsDirty()) changed.push_back(object.get());
    const i32 threads = list == kListChannels ? mThreadCount : 1;
    ForEachBlock(static_cast<i32>(changed.size()), threads,
                 [&](i32 i) { changed[i]->UpdateRange(); });
  }
  return !IsCancelled();
}

std::vector<iObject*> SulvaScene::CollectStage(i32 stage) const {
  std::vector<iBase*> found;
  for (i32 list = 1; list <= 8; ++list)
    for (const auto& [id, object] : mLists[list])
      if (object->Has(FLAG_ENABLED) && (object->mStageMask & StageBit(stage)) &&
          object->IsPipelineObject())
        found.push_back(object.get());
  std::vector<iObject*> objects;
  for (iBase* object : OrderByLinks(OrderByPlace(std::move(found)), *this))
    objects.push_back(static_cast<iObject*>(object));
  return objects;
}

std::vector<OrderTie> SulvaScene::LookAtOrder() {
  const SceneSettings settings = ReadSettings();
  UpdateDomain(settings.hostUnits, settings.simulationUnits, settings.cellSize);
  Synchronise(GetDocument());
  RunSetUpPasses();
  std::vector<OrderTie> ties;
  for (i32 stage = 0; stage < kStageCount; ++stage) {
    const std::vector<iObject*> objects = CollectStage(stage);
    for (OrderTie& tie : FindTies({objects.begin(), objects.end()}, *this)) {
      tie.stage = stage;
      ties.push_back(tie);
    }
  }
  return ties;
}

bool SulvaScene::RunStage(i32 stage, bool refreshOnly) {
  // All groups stand before the first one runs: what a run makes dirty waits for its next stage.
  std::vector<std::vector<iObject*>> groups;
  const iObject* previous = nullptr;
  for (iObject* object : CollectStage(stage)) {
    if (!object->IsDirty() || (refreshOnly && !object->RunsOnRefresh())) continue;
    // Iterative objects run one by one in any group; together, they know who follows.
    const bool opensGroup = object->Has(FLAG_GROUP_BREAK) && !object->IsIterative();
    if (!previous || opensGroup || object->IsIterative() != previous->IsIterative() ||
        object->IsSequential() != previous->IsSequential())
      groups.emplace_back();
    groups.back().push_back(object);
    previous = object;
  }
  for (const auto& group : groups) {
    RunGroup(group);
    if (IsCancelled()) return false;
  }
  return !IsCancelled();
}

void SulvaScene::RunGroup(const std::vector<iObject*>& group) {
  const iObject& first = *group.front();
  if (!first.IsSequential() && !first.IsIterative()) return RunShared(group);
  for (iObject* object : group) RunAlone(*object, group);
}

void SulvaScene::NoteRun(iObject& object) {
  if (!object.Has(FLAG_ACTIVE)) return;
  ++object.mRuns;
  if (mTrace) mTrace(mStage, object);
}

void SulvaScene::RunAlone(iObject& object, const std::vector<iObject*>& group) {
  const MemoryOwner owner(object.mName);
  EvaluationThreadData data;
  data.thread = mThread;
  data.objects = &group;
  if (object.Has(FLAG_ENABLED) && !IsCancelled()) {
    object.Prepare();
    object.Begin();
    NoteRun(object);
    object.Evaluate(data);
  }
  object.Finish();
}

void SulvaScene::RunShared(const std::vector<iObject*>& group) {
  // Of several that work together it isn't known which one asks.
  const MemoryOwner owner(group.size() == 1 ? group.front()->mName : std::string());
  for (iObject* object : group) {
    if (!object->Has(FLAG_ENABLED)) continue;
    object->Prepare();
    object->Begin();
    NoteRun(*object);
  }
  ForEachShare(mThreadCount, mThread, [&](EvaluationThreadData data) {
    data.objects = &group;
    for (iObject* object : group)
      if (object->Has(FLAG_ENABLED)) object->Evaluate(data);
  });
  for (iObject* object : group) object->Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
