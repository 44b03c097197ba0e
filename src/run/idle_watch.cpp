#include "run/idle_watch.h"

#include <fmt/format.h>

#include <algorithm>

#include "framework/rest.h"
#include "framework/state_archive.h"
#include "run/for_each_object.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

/// Whether a node like another one, of its name, stands below some node.
bool HasNamesake(const host::BaseNode& below, const host::BaseNode& node) {
  const auto& children = below.Children();
  return std::any_of(children.begin(), children.end(), [&](const host::BaseNode* child) {
    return (child->Name() == node.Name() && child->Type() == node.Type()) ||
           HasNamesake(*child, node);
  });
}

/// Whether an object is done with a step before the flow moves: shapes and what they emit.
bool WorksBeforeFlow(const iBase& object) {
  return object.mStageMask != 0 && object.mStageMask < StageBit(kAdvection);
}

}  // namespace

std::string LabelOf(const iBase& object) {
  const host::BaseNode& node = *object.Node();
  const auto& roots = node.GetDocument().Roots();
  const bool isShared = std::any_of(roots.begin(), roots.end(), [&](const host::BaseNode* root) {
    return !node.HasAncestor(root) && HasNamesake(*root, node);
  });
  return isShared ? fmt::format("{} \"{}\"", TypeWord(node), Shown(node.Path()))
                  : KindAndName(node);
}

void IdleWatch::Span::Persist(StateArchive& archive) { archive(since, reason); }

void IdleWatch::Persist(StateArchive& archive) { archive(mTold, mSpans); }

void IdleWatch::BeginFrame(const Scenes& scenes) {
  mBefore.clear();
  for (const auto& scene : scenes)
    ForEachObject(*scene, [&](iBase& object) {
      mBefore[&object] = {object.mRuns, object.mInactiveReason};
      object.mInactiveReason = nullptr;
    });
}

void IdleWatch::EndFrame(const Scenes& scenes) {
  mWentIdle.clear();
  for (const auto& scene : scenes)
    ForEachObject(*scene, [&](iBase& object) {
      // What had no work keeps its reason: only a change would bring another.
      const auto before = mBefore.find(&object);
      if (object.mInactiveReason)
        mWentIdle.insert(&object);
      else if (before != mBefore.end())
        object.mInactiveReason = before->second.reason;
      if (scene->mReport.simulated) NoteSpan(object);
    });
}

void IdleWatch::NoteSpan(const iBase& object) {
  const u64 id = object.Node()->Id();
  const bool isIdle =
      RunsOf(object) == 0 && object.mInactiveReason && (object.mRuns == 0 || ReasonOf(object));
  if (!isIdle) return void(mSpans.erase(id));
  Span& span = mSpans[id];
  if (span.reason != object.mInactiveReason)
    span = {object.mScene->mClock.frame, object.mInactiveReason};
}

u32 IdleWatch::RunsOf(const iBase& object) const {
  const auto before = mBefore.find(&object);
  return object.mRuns - (before == mBefore.end() ? 0 : before->second.runs);
}

const char* IdleWatch::ReasonOf(const iBase& object) const {
  return mWentIdle.contains(&object) ? object.mInactiveReason : nullptr;
}

bool IdleWatch::IsToTell(const iBase& object) const {
  const host::NodeId id = object.Node()->Id();
  return object.mInactiveReason && !IsRest(object.mInactiveReason) && object.Has(FLAG_ENABLED) &&
         !mSilenced.contains(id) && std::find(mTold.begin(), mTold.end(), id) == mTold.end();
}

std::string IdleWatch::TextOf(const iBase& object) const {
  const auto span = mSpans.find(object.Node()->Id());
  // In a frame that came to no end the reason may be another one than before.
  const bool isNew = span == mSpans.end() || span->second.since == object.mScene->mClock.frame ||
                     span->second.reason != object.mInactiveReason;
  return fmt::format("{} is inactive{}: {}", LabelOf(object),
                     isNew ? "" : fmt::format(" since frame {}", span->second.since),
                     object.mInactiveReason);
}

bool IdleWatch::AwaitsContent(const Scene& scene) const {
  const auto& solvers = scene.List(kListSolvers);
  return mMayCome && !solvers.empty() &&
         std::all_of(solvers.begin(), solvers.end(),
                     [](const auto& entry) { return entry.second->mRuns == 0; });
}

bool IdleWatch::IsEarly(const Scene& scene, const iBase& object) const {
  // The first frames have no flow yet.
  constexpr i32 kStartUp = 2;
  // A scene without content or time has nothing to work on: what stays that way is told when the
  // run ends. But shapes and what they emit are what content comes from.
  if (scene.mFlags & Scene::kNoBounds)
    return mMayCome || !WorksBeforeFlow(object) || scene.mClock.frameFromStart < kStartUp;
  if (AwaitsContent(scene)) return true;
  if (WorksBeforeFlow(object)) return scene.mTime.stepDuration == 0;
  return scene.mClock.frameFromStart < kStartUp || scene.mTime.elapsed == 0;
}

void IdleWatch::AddWarnings(const Scene& scene, std::vector<std::string>& warnings) {
  if (!scene.mReport.simulated) return;
  ForEachObject(scene, [&](const iBase& object) {
    const bool stands = object.mRuns == 0 || ReasonOf(object);
    if (RunsOf(object) > 0 || !stands || !IsToTell(object) || MayPass(object.mInactiveReason) ||
        IsEarly(scene, object))
      return;
    mTold.push_back(object.Node()->Id());
    warnings.push_back(TextOf(object));
  });
}

void IdleWatch::AddLastWarnings(const Scene& scene, std::vector<std::string>& warnings) {
  // No force acts before there is a flow, in the second frame.
  const bool isEarly = scene.mClock.frameFromStart < 1;
  if (!isEarly && scene.mTime.elapsed == 0) return;
  ForEachObject(scene, [&](const iBase& object) {
    const bool isDue = object.GetListIndex() != kListForces || !isEarly;
    if (object.mRuns == 0 && IsToTell(object) && isDue &&
        mToldAtEnd.insert(object.Node()->Id()).second)
      warnings.push_back(TextOf(object));
  });
}

}  // namespace MELDO_GLOBAL::app
