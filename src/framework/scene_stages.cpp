// The stages of a step: who runs in them, in which groups, and how.
#include "framework/scene.h"
#include "grids/run_shares.h"

#include <chrono>
#include <limits>

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

bool Scene::Simulate(bool refresh) {
  for (i32 stage = kInitialiseSubstep; stage <= kFinish; ++stage) {
    SetStage(stage);
    const StageTimer timer(mReport.stageSeconds[stage]);
    if (stage == kInitialiseSubstep) {
      if (!refresh && mTime.IsUnderWay()) DispatchStage();
    } else if (stage == kCalculateBounds) {
      if (!refresh && !NegotiateBounds()) return false;
    } else if (stage == kFinish) {
      if (!refresh && !FinishStep()) return false;
    } else if (!RunStage(stage, refresh)) {
      return false;
    }
  }
  return !IsCancelled();
}

void Scene::RunVisualStages() {
  for (i32 stage = kStartVisual; stage <= kVisualPost; ++stage) {
    SetStage(stage);
    const StageTimer timer(mReport.stageSeconds[stage]);
    if (!RunStage(stage, false)) return;
  }
}

bool Scene::NegotiateBounds() {
  constexpr double huge = std::numeric_limits<double>::max();
  Vec3d min{huge, huge, huge}, max{-huge, -huge, -huge};
  const auto forEachContent = [&](auto&& f) {
    for (i32 list = 1; list <= 8; ++list)
      if (list != kListSolvers)
        for (const auto& [id, object] : mLists[list])
          if (object->Has(FLAG_ENABLED)) f(*object);
  };
  forEachContent([&](iBase& o) {
    if (o.Has(FLAG_AFFECTS_BOUNDS)) o.ExpandBounds(min, max);
  });

  bool valid = true;
  for (int a = 0; a < 3; ++a)
    valid = valid && min[a] != huge && max[a] != -huge && min[a] <= max[a];
  mBoundsValid = false;
  if (!valid) {
    mFlags |= kNoBounds;
    for (const i32 list : {kListChannels, kListSolvers})
      for (const auto& [id, object] : mLists[list])
        if (object->Has(FLAG_AFFECTS_BOUNDS)) object->Release(true);
    return true;
  }
  mFlags &= ~kNoBounds;

  std::vector<iBase*> solvers;
  for (const auto& [id, object] : mLists[kListSolvers]) {
    const i32 type = object->GetTypeId();
    if (object->Has(FLAG_ENABLED) && (type == kTypeFluidSolver || type == kTypeWaterSolver))
      solvers.push_back(object.get());
  }
  for (iBase* solver : solvers) solver->ExpandBounds(min, max);
  if (mBoundsGuard && !mBoundsGuard(min, max)) return false;
  for (iBase* solver : solvers) solver->ApplyBounds(min, max);
  const i32 state = solvers.empty() ? 2 : solvers.back()->Has(FLAG_ACTIVE);
  if (state > 0) forEachContent([&](iBase& o) { o.ApplyBounds(min, max); });
  mBoundsValid = state == 1;
  return true;
}

bool Scene::FinishStep() {
  if (!mBoundsValid) return !IsCancelled();
  for (const i32 list : {kListChannels, kListSolvers})
    for (const auto& [id, object] : mLists[list]) {
      if (IsCancelled()) return false;
      if (object->Has(FLAG_ENABLED) && object->IsDirty()) object->UpdateRange();
    }
  return !IsCancelled();
}

std::vector<iObject*> Scene::CollectStage(i32 stage) const {
  std::vector<iObject*> objects;
  for (i32 list = 1; list <= 8; ++list)
    for (const auto& [id, object] : mLists[list])
      if (object->Has(FLAG_ENABLED) && (object->mStageMask & StageBit(stage)) &&
          object->IsPipelineObject())
        objects.push_back(static_cast<iObject*>(object.get()));
  // Overrides of ComesBefore need not be a strict weak order, which a library sort would ask for:
  // each object moves up from the end past those that it precedes. Equal ones keep list order.
  std::vector<iObject*> sorted;
  for (iObject* object : objects) {
    auto at = sorted.end();
    while (at != sorted.begin() && object->ComesBefore(*at[-1])) --at;
    sorted.insert(at, object);
  }
  return sorted;
}

bool Scene::RunStage(i32 stage, bool refreshOnly) {
  // All groups stand before the first one runs: what a run makes dirty waits for its next stage.
  std::vector<std::vector<iObject*>> groups;
  const iObject* previous = nullptr;
  for (iObject* object : CollectStage(stage)) {
    if (!object->IsDirty() || (refreshOnly && !object->RunsOnRefresh())) continue;
    // Iterative objects run one by one whatever the group; together, they know who follows.
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

void Scene::RunGroup(const std::vector<iObject*>& group) {
  const iObject& first = *group.front();
  if (!first.IsIterative()) {
    first.IsSequential() ? RunSequentialOnce(group) : RunParallelOnce(group);
    return;
  }
  for (iObject* object : group) {
    if (IsCancelled()) return;
    if (!object->Has(FLAG_ENABLED)) continue;
    first.IsSequential() ? RunSequentialPasses(*object, group) : RunParallelPasses(*object);
  }
}

void Scene::NoteRun(iObject& object) {
  if (!object.Has(FLAG_ACTIVE)) return;
  ++object.mRuns;
  if (mTrace) mTrace(mStage, object);
}

void Scene::RunWorkers(const std::vector<iObject*>& group) {
  RunShares(mThreadCount, mThread, [&](EvaluationThreadData& data) {
    data.objects = &group;
    for (iObject* object : group)
      if (object->Has(FLAG_ENABLED)) object->Evaluate(data);
  });
}

void Scene::RunSequentialOnce(const std::vector<iObject*>& group) {
  EvaluationThreadData data;
  data.thread = mThread;
  data.objects = &group;
  for (iObject* object : group) {
    if (object->Has(FLAG_ENABLED)) {
      object->Prepare();
      object->Begin();
      NoteRun(*object);
      object->Evaluate(data);
    }
    object->Finish();
  }
}

void Scene::RunParallelOnce(const std::vector<iObject*>& group) {
  for (iObject* object : group) {
    if (!object->Has(FLAG_ENABLED)) continue;
    object->Prepare();
    object->Begin();
    NoteRun(*object);
  }
  RunWorkers(group);
  for (iObject* object : group) object->Finish();
}

void Scene::RunSequentialPasses(iObject& object, const std::vector<iObject*>& group) {
  EvaluationThreadData data;
  data.thread = mThread;
  data.objects = &group;
  bool noted = false;
  while (object.NextPass()) {
    object.Prepare();
    object.Begin();
    if (!noted) NoteRun(object);
    noted = true;
    if (object.Has(FLAG_ACTIVE)) object.Evaluate(data);
    object.Finish();
  }
}

void Scene::RunParallelPasses(iObject& object) {
  const std::vector<iObject*> alone{&object};
  bool noted = false;
  const auto start = [&] {
    object.Prepare();
    object.Begin();
    if (!noted) NoteRun(object);
    noted = true;
  };
  if (object.PreparesEachPass()) {
    while (object.NextPass()) {
      start();
      RunWorkers(alone);
      object.Finish();
    }
    return;
  }
  start();
  if (object.Has(FLAG_ACTIVE))
    while (object.NextPass()) RunWorkers(alone);
  object.Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
