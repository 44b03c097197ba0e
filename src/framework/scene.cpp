#include "framework/scene.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

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

const Document* Scene::GetDocument() const {
  return Server() ? &Server()->GetDocument() : nullptr;
}

void Scene::DetectChanges() { mInterface.GetDirtyCount(mServerDirty); }

bool Scene::IsCancelled(const HostThread* control) const {
  return (mThread && mThread->TestBreak()) || (control && control->TestBreak());
}

void Scene::SetStage(i32 stage) {
  mStage = stage;
  ShowStatus("PipelineStage: " + std::string(kPipeline[stage].name));
}

// ---- lists ------------------------------------------------------------------------------------

template <class F>
void Scene::ForEachObject(F&& f, bool withCaches) const {
  for (i32 list = 1; list <= 11; ++list) {
    if (list == 9 || (list == kListCaches && !withCaches)) continue;
    for (const auto& [id, object] : mLists[list]) f(*object);
  }
}

bool Scene::AddObject(i32 list, std::unique_ptr<iBase> object) {
  if (!object || list == 200 || !object->Node()) return false;
  if (list < 1 || list > 11 || list == 9) list = kListGeometry;
  return mLists[list].try_emplace(object->Node()->Id(), std::move(object)).second;
}

bool Scene::CreateObject(BaseNode* node, i32 pluginId) {
  if (!node) return false;
  for (i32 list = 1; list <= 11; ++list)
    if (mLists[list].contains(node->Id())) return false;
  auto object = mFactory(pluginId, node, this);
  if (!object) return false;
  const i32 list = object->GetListIndex();
  return AddObject(list, std::move(object));
}

void Scene::Synchronise(const Document*) {
  const auto isListed = [&](NodeId id) {
    for (const ObjectList& list : mLists) {
      const auto found = list.find(id);
      if (found != list.end() && found->second->Has(FLAG_ENABLED)) return true;
    }
    return false;
  };
  // Ids under which nodes of other programs join the catalogue.
  constexpr i32 adopted[] = {1300139, 1300140, 1300141};
  const std::function<void(BaseNode&)> walk = [&](BaseNode& node) {
    for (BaseNode* child : node.Children()) {
      if (child->IsInstanceOf(kServerNode) && child->IsEnabled() && !isListed(child->Id())) {
        i32 id = child->Type();
        for (const i32 base : adopted)
          if (child->IsInstanceOf(base)) id = base;
        CreateObject(child, id);
      }
      walk(*child);
    }
  };
  if (Server()) walk(*Server());
  RemoveDead();
}

void Scene::RemoveDead() {
  for (ObjectList& list : mLists)
    std::erase_if(list, [&](const auto& entry) {
      const iBase& object = *entry.second;
      return !object.IsNodeAlive(0, nullptr) || !object.Node()->HasAncestor(Server());
    });
}

void Scene::Clear() {
  for (ObjectList& list : mLists) list.clear();
}

iBase* Scene::FindObject(const BaseNode* node, i32 list, i32 categoryA, i32 categoryB,
                         i32 typeId) const {
  if (!node) return nullptr;
  const auto look = [&](i32 number) -> iBase* {
    const auto found = mLists[number].find(node->Id());
    if (found == mLists[number].end()) return nullptr;
    iBase* object = found->second.get();
    const bool matches = object->Has(FLAG_ENABLED) &&
                         (categoryA == kBitAny || object->HasCategory(categoryA)) &&
                         (categoryB == kBitAny || object->HasCategory(categoryB)) &&
                         (typeId == kTypeAny || object->GetTypeId() == typeId);
    return matches ? object : nullptr;
  };
  if (list <= 11) return list >= 1 && list != 9 ? look(list) : nullptr;
  for (i32 number = 1; number <= 11; ++number)
    if (number != 9)
      if (iBase* object = look(number)) return object;
  return nullptr;
}

void Scene::CollectObjects(const InExcludeData* list, std::vector<iBase*>& out, i32 listIndex,
                           u32 exactCategories, i32 typeId, i32 categoryA, bool includeOnly,
                           i32 categoryB) const {
  out.clear();
  const auto passes = [&](const iBase& object) {
    if (!object.Has(FLAG_ENABLED)) return false;
    if (typeId != kTypeAny && object.GetTypeId() != typeId) return false;
    u32 mask = 0;
    object.GetCategories(mask);
    if (mask == exactCategories) return true;
    if (categoryA == kBitAny) return exactCategories == kBitAny;
    return object.HasCategory(categoryA) &&
           (categoryB == kBitAny || object.HasCategory(categoryB));
  };
  const i32 first = listIndex > 11 ? 1 : listIndex, last = listIndex > 11 ? 11 : listIndex;
  if (list && includeOnly) {
    for (const InExcludeData::Entry& entry : list->entries)
      for (i32 number = first; number <= last; ++number) {
        const auto found = mLists[number].find(entry.node);
        if (found != mLists[number].end() && passes(*found->second))
          out.push_back(found->second.get());
      }
    return;
  }
  const auto isNamed = [&](NodeId id) {
    return list && std::any_of(list->entries.begin(), list->entries.end(),
                               [&](const auto& entry) { return entry.node == id; });
  };
  for (i32 number = first; number <= last; ++number)
    for (const auto& [id, object] : mLists[number])
      if (!isNamed(id) && passes(*object)) out.push_back(object.get());
}

bool Scene::NeedsRun() const {
  if (mStage != kStartSimulation && mStage != kUpdate) return false;
  bool dirty = false;
  ForEachObject(
      [&](iBase& object) { dirty = dirty || (object.Has(FLAG_ENABLED) && object.IsDirty()); },
      true);
  return dirty;
}

void Scene::Reset(bool full) {
  ForEachObject(
      [&](iBase& object) {
        if (full || (object.IsDirty() && object.ResetsOnChange())) object.Reset();
      },
      true);
  if (full) mTime.elapsed = 0;
}

// ---- clock ------------------------------------------------------------------------------------

bool Scene::UpdateDomain(double hostUnits, double simUnits, double cellSize) {
  const double w = hostUnits / simUnits * cellSize;
  GridLayout layout;
  layout.Set({1, 1, 1}, {w, w, w}, static_cast<f32>(cellSize), {});
  if (mDomain.count > 0 && layout.Equals(mDomain)) {
    mFlags &= ~kDomainChanged;
    return false;
  }
  mDomain = layout;
  mFlags |= kDomainChanged;
  mCellHalf = mDomain.cellSize * 0.5;
  mCellQuarter = mCellHalf * 0.5;
  return true;
}

void Scene::ReadClock() {
  const Document& document = *GetDocument();
  mClock.document = &document;
  mClock.fps = document.fps;
  mClock.frameTime = 1.0 / document.fps;
  i32 first = document.previewMin, last = document.previewMax;
  if (!mInterface.GetBool(1006)) {
    first = mInterface.GetLong(1007);
    last = mInterface.GetLong(1008);
    if (first > last) std::swap(first, last);
  }
  mClock.startFrame = first;
  mClock.endFrame = last + 1;
  const double seconds = document.Time();
  // A whole frame must not fall one short by the rounding of frame / fps * fps.
  mClock.frame = static_cast<i32>(std::floor(seconds * mClock.fps + 1e-6));
  mClock.frameFromStart = mClock.frame - mClock.startFrame;
  const bool keepsTime = mClock.time == mClock.lastTime && seconds > 0 &&
                         std::abs(mClock.time - mClock.frameTime - seconds) < 1e-12;
  if (!keepsTime) mClock.time = seconds;
}

void Scene::ReadBlur(i32& sample, i32& samples) const {
  sample = samples = 0;
  if (!mIsRender) return;
  samples = GetDocument()->blurSamples;
  const double past = mClock.time - mClock.frame * mClock.frameTime;
  sample = static_cast<i32>(std::floor(past * mClock.fps * samples + 1e-6));
}

void Scene::SetTimes(i32 frameIndex, double, double frameDuration, i32 timeMode, double cfl,
                     double fixedStep, i32 substeps, i32 minSubsteps, double fps, i32 blurSample,
                     i32 blurSamples) {
  mTime.frameIndex = frameIndex;
  mTime.frameDuration = frameDuration;
  mTime.fps = static_cast<i32>(fps);
  mTimeMode = timeMode;
  mCfl = cfl;
  mTime.substep = 0;
  mTime.maxSubsteps = static_cast<u8>(std::clamp(substeps, 1, 255));
  mTime.minSubsteps = static_cast<u8>(std::clamp(minSubsteps, 1, 255));
  mTime.stepFraction = 1.0 / mTime.maxSubsteps;
  const bool blur = blurSample > 0 && blurSamples > 0;
  switch (timeMode) {
    case 1:
      mTime.stepDuration = frameDuration / mTime.maxSubsteps;
      if (blur) mTime.stepDuration = frameDuration / blurSamples * blurSample;
      break;
    case 2:
      mTime.stepDuration = fixedStep / mTime.maxSubsteps;
      if (blur) mTime.stepDuration = mTime.stepDuration / blurSamples * blurSample;
      break;
    default: mTime.stepDuration = frameDuration;
  }
}

// ---- evaluation -------------------------------------------------------------------------------

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
  SetTimes(mClock.frameFromStart, mClock.time,
           static_cast<f32>(timeScale * mClock.frameTime), mInterface.GetLong(1003),
           mInterface.GetReal(1011), mInterface.GetReal(1004), mInterface.GetLong(1005) + 1,
           mInterface.GetLong(1010) + 1, mClock.fps, blurSample, blurSamples);
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
    if (!NeedsRun() || IsCancelled()) return EndEvaluation(true);
    if (!hardReset && (mClock.frame <= mClock.startFrame || mTime.elapsed == 0)) Reset(false);
    mReport.simulated = true;
    const bool finished = RunSubsteps();
    ClearStatus();
    if (!finished) return EndEvaluation(false);
  }
  RunVisualStages();
  return EndEvaluation(!IsCancelled());
}

double Scene::ComputeAdaptiveStep(double seed) {
  double top = seed;
  for (const auto& [id, object] : mLists[kListSolvers])
    top = std::max(top, object->GetMaxSpeedSq());
  const double speed = std::sqrt(top);
  const double dt = std::min(mTime.frameDuration, mCfl * mDomain.cellSize / speed);
  mStepRatio = dt * speed / mCellHalf;
  return dt;
}

double Scene::NextAdaptiveStep(bool first, double dtMin, double dtMax, bool& last) {
  const double frame = mTime.frameDuration;
  double dt = static_cast<f32>(first ? frame : ComputeAdaptiveStep(1e-16));
  if (dt > dtMax) {
    dt = dtMax;
  } else if (dt < dtMin) {
    dt = dtMin;
  } else if (dt > frame) {
    dt = frame;
  }
  if (dt + mTime.timeInFrame < frame) {
    // The frame must not end on a sliver.
    if (frame <= dt * 1.5 + mTime.timeInFrame) dt = (frame - mTime.timeInFrame) * 0.5;
  } else {
    dt = frame - mTime.timeInFrame;
    last = true;
  }
  mTime.stepDuration = dt;
  mTime.stepFraction = dt == 0 ? 0 : dt / frame;
  mTime.remainingFraction -= mTime.stepFraction;
  if (mTime.timeInFrame == 0 && last) {
    mTime.substep = 1;
    mTime.maxSubsteps = 1;
  } else {
    mTime.maxSubsteps += mTime.timeInFrame == 0 ? 2 : 1;
    mTime.substep += 1;
  }
  return dt;
}

bool Scene::RunSubsteps() {
  mTime.timeInFrame = 0;
  mTime.remainingFraction = 1;
  const i32 minimum = mTime.minSubsteps, maximum = mTime.maxSubsteps;
  const double dtMax = static_cast<f32>(mTime.frameDuration / std::max(1, minimum));
  const double dtMin = static_cast<f32>(mTime.frameDuration / std::max(maximum, minimum));
  if (mTimeMode == 0) mTime.maxSubsteps = 0;
  mTime.isLastSubstep = 0;
  bool last = false;
  for (i32 i = 0; !last; ++i) {
    const bool first = mTime.elapsed == 0;
    double dt;
    if (mTimeMode == 0) {
      dt = NextAdaptiveStep(first, dtMin, dtMax, last);
    } else {
      mTime.substep = static_cast<u8>(i + 1);
      mTime.remainingFraction = 1 - (i + 1) * mTime.stepFraction;
      last = i == mTime.maxSubsteps - 1;
      dt = mTime.stepDuration;
    }
    mTime.timeInFrame += dt;
    ShowStatus("Substep: " + std::to_string(mTime.substep));
    // A frame at the start of a simulation takes one step only.
    if (first || mTime.frameIndex == 0) last = true;
    mTime.isLastSubstep = last;
    mReport.steps.push_back(dt);
    if (!Simulate(false)) return false;
    SetStage(kFinishSubstep);
    if ((mFlags & kTimeChanged) && mClock.frame > mClock.startFrame) mTime.elapsed += dt;
  }
  return !IsCancelled();
}

void Scene::LoadCaches() {
  SetStage(kLoadCache);
  const ObjectList& caches = mLists[kListCaches];
  for (const auto& [id, object] : caches)
    if (object->Has(FLAG_ENABLED)) object->ReadParameters(), object->ResolveLinks();
  for (const auto& [id, object] : caches)
    if (!object->Has(FLAG_DIRTY_CHECKED)) object->CheckDirty();
  for (const auto& [id, object] : caches)
    if (object->Has(FLAG_ENABLED)) static_cast<iObject&>(*object).Prepare();
}

void Scene::SaveCaches() {
  SetStage(kSaveCache);
  const ObjectList& caches = mLists[kListCaches];
  EvaluationThreadData data;
  data.thread = mThread;
  for (const auto& [id, object] : caches)
    if (object->Has(FLAG_ENABLED)) static_cast<iObject&>(*object).Prepare();
  for (const auto& [id, object] : caches)
    if (object->Has(FLAG_ENABLED)) static_cast<iObject&>(*object).Evaluate(data);
  for (const auto& [id, object] : caches) static_cast<iObject&>(*object).Finish();
  for (const auto& [id, object] : caches) object->ClearLinks();
}

void Scene::RunSetUpPasses() {
  ForEachObject([](iBase& o) { if (o.Has(FLAG_ENABLED)) o.ReadParameters(); });
  ForEachObject([](iBase& o) { if (o.Has(FLAG_ENABLED)) o.ResolveLinks(); });
  ForEachObject([](iBase& o) { if (o.Has(FLAG_ENABLED)) o.AfterLinks(); });
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
  ForEachObject([](iBase& o) { if (!o.Has(FLAG_DIRTY_CHECKED)) o.CheckDirty(); });
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

// ---- stages -----------------------------------------------------------------------------------

namespace {
/// Adds the wall time of its life to a counter.
class StageTimer {
 public:
  explicit StageTimer(double& seconds) : mSeconds(seconds) {}
  ~StageTimer() {
    mSeconds += std::chrono::duration<double>(Clock::now() - mStart).count();
  }

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
      if (!refresh && mTime.elapsed > 0) DispatchStage();
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
  forEachContent([&](iBase& o) { if (o.Has(FLAG_AFFECTS_BOUNDS)) o.ExpandBounds(min, max); });

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
  // insert each object before the first one that it precedes.
  std::vector<iObject*> sorted;
  for (iObject* object : objects) {
    auto at = sorted.end();
    while (at != sorted.begin() && object->ComesBefore(*at[-1])) --at;
    sorted.insert(at, object);
  }
  return sorted;
}

bool Scene::RunStage(i32 stage, bool refreshOnly) {
  std::vector<iObject*> group;
  const auto flush = [&] {
    if (group.empty()) return true;
    RunGroup(group);
    group.clear();
    return !IsCancelled();
  };
  for (iObject* object : CollectStage(stage)) {
    if (!object->IsDirty() || (refreshOnly && !object->RunsOnRefresh())) continue;
    const bool opens = group.empty() || object->Has(FLAG_GROUP_BREAK) ||
                       object->IsIterative() != group.back()->IsIterative() ||
                       object->IsSequential() != group.back()->IsSequential();
    if (opens && !flush()) return false;
    group.push_back(object);
  }
  return flush() && !IsCancelled();
}

void Scene::RunGroup(const std::vector<iObject*>& group) {
  const iObject& first = *group.front();
  if (!first.IsIterative()) {
    first.IsSequential() ? RunSequentialOnce(group) : RunParallelOnce(group);
    return;
  }
  for (iObject* object : group) {
    if (!object->Has(FLAG_ENABLED)) continue;
    first.IsSequential() ? RunSequentialPasses(*object) : RunParallelPasses(*object);
  }
}

void Scene::NoteRun(iObject& object) {
  if (!object.Has(FLAG_ACTIVE)) return;
  ++object.mRuns;
  if (mTrace) mTrace(mStage, object);
}

void Scene::RunWorkers(const std::vector<iObject*>& group) {
  WorkerPool::Instance().Run(mThreadCount, [&](i32 index) {
    EvaluationThreadData data;
    data.thread = mThread;
    data.index = index;
    data.count = mThreadCount;
    data.isLast = index == mThreadCount - 1;
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

void Scene::RunSequentialPasses(iObject& object) {
  EvaluationThreadData data;
  data.thread = mThread;
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
