// An evaluation of a scene, from the frame decision to the caches.
#include "framework/scene.h"

#include <algorithm>

#include "host/console.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const ParameterTable& Scene::Parameters() {
  static const ParameterTable table = {
      RealRow(1000, "host_units", 100.0, "host", "host units of the scale").AtLeast(1e-9),
      RealRow(1001, "simulation_units", 1.0, "m", "simulation units of the scale").AtLeast(1e-9),
      RealRow(1002, "cell_size", 0.2, "m", "edge of a cell").AtLeast(1e-6),
      RealRow(1015, "render_cell_size", 0.2, "m", "edge of a cell when rendering").AtLeast(1e-6),
      LongRow(1003, "time_mode", 0, "", "how a frame is cut into substeps")
          .Choices({{0, "adaptive"}, {1, "fixed_substeps"}, {2, "fixed_step"}}),
      RealRow(1004, "fixed_step", 0.2, "s", "step length in the mode fixed_step").AtLeast(0),
      LongRow(1005, "extra_substeps", 2, "",
              "substeps less one: the maximum when adaptive, else the count")
          .Range(0, 254),
      LongRow(1010, "extra_min_substeps", 0, "", "minimum substeps less one, when adaptive")
          .Range(0, 254),
      RealRow(1011, "cfl", 2.0, "cells", "cells that the fastest flow may cross in a substep")
          .AtLeast(0),
      RealRow(1013, "time_scale", 1.0, "", "speed of time; 0 or less stops the simulation"),
      VectorRow(1012, "gravity", {0, -9.81, 0}, "m/s^2", "gravity of bodies and liquids"),
      LongRow(1014, "seed", 2150, "", "base of all random sequences"),
      BoolRow(1006, "use_preview_range", true, "simulate the document's range"),
      LongRow(1007, "first_frame", 0, "frames", "first frame, without use_preview_range"),
      LongRow(1008, "last_frame", 90, "frames", "last frame, without use_preview_range"),
      LongRow(1009, "thread_limit", 0, "", "most worker threads; 0 = as many as there are")
          .Range(0, kMaxWorkers),
      LongRow(1300, "rigid_iterations", 10, "", "iterations of the rigid-body solver").AtLeast(1),
      LongRow(1301, "rigid_substeps", 10, "", "rigid-body substeps in a substep").AtLeast(1),
      LongRow(1302, "rigid_mode", 0, "", "mode of the rigid-body world"),
  };
  return table;
}

Scene::Scene(BaseNode* server, ObjectFactory factory)
    : mInterface(server), mFactory(std::move(factory)) {
  mClock.document = GetDocument();
}

Scene::~Scene() { Clear(); }

const Document* Scene::GetDocument() const { return Server() ? &Server()->GetDocument() : nullptr; }

void Scene::DetectChanges() { mInterface.GetDirtyCount(mServerDirty); }

bool Scene::IsCancelled(const HostThread* control) const {
  return (mThread && mThread->TestBreak()) || (control && control->TestBreak());
}

void Scene::SetStage(i32 stage) {
  mStage = stage;
  ShowStatus("PipelineStage: " + std::string(kPipeline[stage].name));
}

Scene::FrameDecision Scene::DecideFrame(bool domainChanged, bool& hardReset) {
  hardReset = false;
  const i32 f = mClock.frame, s = mClock.startFrame;
  if (f < s) {
    Reset(true);
    return FrameDecision::Nothing;
  }
  if (f == s) {
    if (domainChanged || s < mClock.lastFrame) {
      Reset(true);
      hardReset = true;
    }
    return FrameDecision::NewFrame;
  }
  if (f >= mClock.endFrame) return FrameDecision::Nothing;
  if (domainChanged) {
    mClock.Restart();
    Reset(true);
    hardReset = true;
  }
  return mClock.time == mClock.lastTime ? FrameDecision::Refresh : FrameDecision::NewFrame;
}

bool Scene::EndEvaluation(bool result) {
  SetStage(kFinishVisual);
  DispatchStage();
  mReport.whole = result;
  SaveCaches();
  mClock.Commit();
  return result;
}

bool Scene::Execute(HostThread* thread, bool render) {
  mThread = thread;
  mReport = {};
  mInterface.GetVector(mGravity, 1012, {0, -9.81, 0});
  mFlags &= ~(kDomainChanged | kTimeChanged);
  mSeed = static_cast<i32>(mInterface.GetReal(1014));
  mRigidSubsteps = mInterface.GetLong(1301);
  const double timeScale = mInterface.GetReal(1013);
  const double cellSize = mInterface.GetReal(render ? 1015 : 1002);
  ReadClock();
  if (mClock.time != mClock.lastTime) mFlags |= kTimeChanged;
  const i32 limit = mInterface.GetLong(1009);
  mThreadCount = limit > 0 ? std::min(limit, ThreadCount()) : ThreadCount();
  mIsRender = render;

  SetStage(kStartSimulation);
  DetectChanges();
  const bool domainChanged =
      UpdateDomain(mInterface.GetReal(1000), mInterface.GetReal(1001), cellSize);
  Synchronise(GetDocument());
  bool hardReset = false;
  const FrameDecision decision = DecideFrame(domainChanged, hardReset);
  if (decision == FrameDecision::Nothing) return true;

  i32 blurSample, blurSamples;
  ReadBlur(blurSample, blurSamples);
  SetTimes(mClock.frameFromStart, mClock.time, static_cast<f32>(timeScale * mClock.frameTime),
           mInterface.GetLong(1003), mInterface.GetReal(1011), mInterface.GetReal(1004),
           mInterface.GetLong(1005) + 1, mInterface.GetLong(1010) + 1, mClock.fps, blurSample,
           blurSamples);
  LoadCaches();
  if (timeScale <= 0) return EndEvaluation(true);

  if (decision == FrameDecision::Refresh) {
    SetStage(kUpdate);
    DispatchStage();
    if (!NeedsRun()) {
      SetStage(kFinishVisual);
      DispatchStage();
      return true;
    }
    if (IsCancelled() || !Simulate(true)) return EndEvaluation(false);
  } else {
    SetStage(kStartSimulation);
    DispatchStage();
    if (!NeedsRun() || IsCancelled()) return EndEvaluation(!IsCancelled());
    if (!hardReset && (mClock.frame <= mClock.startFrame || mTime.elapsed == 0)) Reset(false);
    mReport.simulated = true;
    const bool finished = RunSubsteps();
    ClearStatus();
    if (!finished) return EndEvaluation(false);
  }
  RunVisualStages();
  return EndEvaluation(!IsCancelled());
}

std::vector<iObject*> Scene::Caches(bool enabledOnly) const {
  std::vector<iObject*> caches;
  for (const auto& [id, object] : mLists[kListCaches])
    if (object->IsPipelineObject() && (!enabledOnly || object->Has(FLAG_ENABLED)))
      caches.push_back(static_cast<iObject*>(object.get()));
  return caches;
}

void Scene::LoadCaches() {
  SetStage(kLoadCache);
  for (iObject* cache : Caches(true)) {
    cache->ReadParameters();
    cache->ResolveLinks();
  }
  for (iObject* cache : Caches(false))
    if (!cache->Has(FLAG_DIRTY_CHECKED)) cache->CheckDirty();
  for (iObject* cache : Caches(true)) cache->Prepare();
}

void Scene::SaveCaches() {
  SetStage(kSaveCache);
  EvaluationThreadData data;
  data.thread = mThread;
  for (iObject* cache : Caches(true)) cache->Prepare();
  for (iObject* cache : Caches(true)) cache->Evaluate(data);
  for (iObject* cache : Caches(false)) cache->Finish();
  for (iObject* cache : Caches(false)) cache->ClearLinks();
}

void Scene::RunSetUpPasses() {
  ForEachObject([](iBase& o) {
    if (o.Has(FLAG_ENABLED)) o.ReadParameters();
  });
  ForEachObject([](iBase& o) {
    if (o.Has(FLAG_ENABLED)) o.ResolveLinks();
  });
  ForEachObject([](iBase& o) {
    if (o.Has(FLAG_ENABLED)) o.AfterLinks();
  });
}

void Scene::CheckAllDirty() {
  // In stage order, so that an object's dirt reaches objects of later stages in one sweep.
  std::vector<iBase*> order;
  for (i32 stage = 0; stage <= kVisualPost; ++stage)
    ForEachObject([&](iBase& o) {
      if (o.Has(FLAG_ENABLED) && (o.mStageMask & StageBit(stage))) order.push_back(&o);
    });
  order.erase(std::unique(order.begin(), order.end()), order.end());
  for (iBase* object : order) object->CheckDirty();
  ForEachObject([](iBase& o) {
    if (!o.Has(FLAG_DIRTY_CHECKED)) o.CheckDirty();
  });
}

void Scene::DispatchStage() {
  switch (mStage) {
    case kStartSimulation:
    case kUpdate:
      RunSetUpPasses();
      CheckAllDirty();
      break;
    case kFinishSubstep:
    case kFinishVisual: ForEachObject([](iBase& o) { o.ClearLinks(); }); break;
    case kProcess: RunSetUpPasses(); break;
    default: break;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
