// What a scene keeps from one frame to the next.
#include "framework/state_archive.h"
#include "framework/sulva_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

void PersistClock(StateArchive& archive, FrameClock& clock) {
  archive(clock.frameOffset, clock.frame, clock.lastFrame, clock.frameFromStart, clock.fps,
          clock.frameTime, clock.time, clock.lastTime, clock.startFrame, clock.endFrame);
}

void PersistTime(StateArchive& archive, SceneTime& time) {
  archive(time.frameIndex, time.frameDuration, time.elapsed, time.stepDuration, time.timeInFrame,
          time.fps, time.stepFraction, time.remainingFraction, time.substep, time.maxSubsteps,
          time.minSubsteps, time.isLastSubstep);
}

/// The one-cell layout that carries a scene's scale.
void PersistDomain(StateArchive& archive, GridLayout& domain) {
  Vec3d size = domain.worldSize;
  f32 cell = domain.cellSize;
  archive(size, cell);
  if (archive.IsLoading() && archive.IsGood()) domain.Set({1, 1, 1}, size, cell, {});
}

}  // namespace

void SulvaScene::Persist(StateArchive& archive) {
  if (archive.IsLoading()) Synchronise(GetDocument());
  archive.BeginPart(Server() ? Server()->Id() : 0);
  PersistClock(archive, mClock);
  PersistTime(archive, mTime);
  PersistDomain(archive, mDomain);
  archive(mFlags, mStepRatio, mTimeMode, mCfl, mStage, mCellHalf, mCellQuarter, mServerDirty,
          mBoundsValid);
  for (const auto& part : mParts) part->Persist(archive);
  archive.EndPart();
  for (const ObjectList& list : mLists) {
    archive.Expect(static_cast<u64>(list.size()), "the number of nodes");
    for (const auto& [id, object] : list) {
      if (!archive.IsGood()) return;
      archive.BeginPart(id);
      archive.Expect(object->GetTypeId(), "the kind of a node");
      object->Persist(archive);
      archive.EndPart();
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
