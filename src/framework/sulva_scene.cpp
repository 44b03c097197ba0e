// An evaluation of a scene, from the frame decision to the caches.
#include "framework/sulva_scene.h"

#include <algorithm>

#include "framework/cache_setup_rows.h"
#include "framework/node_kind.h"
#include "framework/server_rows.h"
#include "framework/stage_order.h"
#include "host/console.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
constexpr double kFarthestFrame = 1e9;  // the distance of two frames fits a long
}  // namespace

const NodeKind& SulvaScene::Kind() {
  static const NodeKind kind = {
      .id = 1300000,
      .type = "server",
      .label = "Sulva Scene",
      .className = "Scene",
      .menu = {"Support"},
      .purpose = "owns one simulation: its cell size, its time steps and all of its nodes",
      .example = {{}, {example::kSmoke, example::kGas}},
      .rows = Parameters,
  };
  return kind;
}

const ParameterTable& SulvaScene::Parameters() {
  static const ParameterTable table = {
      RealRow(
          server_row::kHostUnits, "host_units", 100.0, "host",
          "how many units of the scene file make up simulation_units: 100 reads it in centimetres")
          .AtLeast(1e-9)
          .To(&SceneSettings::hostUnits),
      RealRow(
          server_row::kSimulationUnits, "simulation_units", 1.0, "m",
          "how long host_units really are: a larger world moves more slowly; with --set the cell "
          "sizes follow it")
          .AtLeast(1e-9)
          .To(&SceneSettings::simulationUnits),
      RealRow(server_row::kCellSize, "cell_size", 0.2, "m",
              "the finest detail that smoke can show; half of it needs eight times the memory")
          .Range(1e-6, 1e6)
          .To(&SceneSettings::cellSize),
      RealRow(server_row::kRenderCellSize, "render_cell_size", 0.2, "m",
              "takes the place of cell_size where a scene is evaluated for a picture")
          .Range(1e-6, 1e6)
          .To(&SceneSettings::renderCellSize),
      LongRow(server_row::kTimeMode, "time_mode", 0, "",
              "how a frame is cut into substeps: as fast flow asks for, or always alike")
          .Choices({{0, "adaptive"}, {1, "fixed_substeps"}, {2, "fixed_step"}})
          .To(&SceneSettings::timeMode),
      RealRow(server_row::kFixedStep, "fixed_step", 0.2, "s",
              "time that a frame advances, whatever the frame rate is; extra_substeps cut it")
          .AtLeast(0)
          .OnlyWith(server_row::kTimeMode, {2})
          .To(&SceneSettings::fixedStep),
      LongRow(
          server_row::kExtraSubsteps, "extra_substeps", 2, "",
          "substeps less one: the most that fast flow gets when adaptive, else every frame's count")
          .Range(0, 254)
          .To(&SceneSettings::extraSubsteps),
      LongRow(server_row::kExtraMinSubsteps, "extra_min_substeps", 0, "",
              "substeps less one that even slow flow gets: raise it for sudden starts")
          .Range(0, 254)
          .OnlyWith(server_row::kTimeMode, {0})
          .To(&SceneSettings::extraMinSubsteps),
      RealRow(1011, "cfl", 2.0, "cells",
              "how far the fastest flow may go in a substep: lower is sharper and slower")
          .AtLeast(0)
          .OnlyWith(server_row::kTimeMode, {0})
          .To(&SceneSettings::cfl),
      RealRow(server_row::kTimeScale, "time_scale", 1.0, "none",
              "slow motion below 1, fast motion above; 0 or less freezes the picture")
          .To(&SceneSettings::timeScale),
      VectorRow(
          server_row::kGravity, "gravity", {0, -9.81, 0}, "m/s^2",
          "pulls particles that fly and rigid bodies; fluids rise and sink by their own forces")
          .To(&SceneSettings::gravity),
      LongRow(1014, "seed", 2150, "",
              "start of everything random: another one gives a sister of the same shot")
          .To(&SceneSettings::seed),
      BoolRow(server_row::kUsePreviewRange, "use_preview_range", true,
              "the frames are those of the scene's range; off: of first_frame and last_frame")
          .To(&SceneSettings::usePreviewRange),
      LongRow(server_row::kFirstFrame, "first_frame", 0, "frames",
              "where the simulation begins, from an empty world")
          .Range(-kFarthestFrame, kFarthestFrame)
          .OnlyWith(server_row::kUsePreviewRange, {0})
          .To(&SceneSettings::firstFrame),
      LongRow(server_row::kLastFrame, "last_frame", 90, "frames",
              "behind it nothing moves any more")
          .Range(-kFarthestFrame, kFarthestFrame)
          .OnlyWith(server_row::kUsePreviewRange, {0})
          .To(&SceneSettings::lastFrame),
      LongRow(1009, "thread_limit", 0, "",
              "most processor cores to use, 0 for all; the picture is the same with any number")
          .Range(0, kMaxWorkers)
          .To(&SceneSettings::threadLimit),
      LongRow(
          server_row::kRigidIterations, "rigid_iterations", 10, "",
          "how hard stacks of rigid bodies are kept from sinking into each other: raise it where "
          "heavy ones stand on light ones")
          .AtLeast(1)
          .To(&SceneSettings::rigidIterations),
      LongRow(server_row::kRigidSubsteps, "rigid_substeps", 10, "",
              "how finely rigid bodies move: raise it where fast ones pass through walls")
          .AtLeast(1)
          .To(&SceneSettings::rigidSubsteps),
      LongRow(server_row::kRigidBroadphase, "rigid_mode", 0, "",
              "how bodies that are near each other are found: a tree suits all, the sweeps worlds "
              "in which little moves")
          .Choices({{0, "tree"}, {1, "sweep"}, {2, "wide_sweep"}})
          .OrNumbers()
          .To(&SceneSettings::rigidBroadphase),
      LinkRow(server_row::kIsoKernel, "iso_kernel",
              "how particles weigh their neighbours where their usual density is measured")
          .AcceptsAny({kListAuxiliary, 0})
          .Kept(),
      BoolRow(server_row::kShowStatistics, "show_statistics", true,
              "a viewport writes numbers beside the scene; where particles lie evenly, for the "
              "measure of their usual density, 2 stand along the edge of a cell, or 1 without it")
          .Kept(),
      RealRow(
          server_row::kDisplayScale, "display_scale", 2.5, "none",
          "size of what a viewport draws for the scene, and the radius in half cells with which "
          "the usual density of particles is measured")
          .Range(0.1, 10)
          .Kept(),
      BoolRow(cache_setup::kRenderOnly, "cache_render_only", false,
              "`sulva cache-setup`: the caches that it makes rest unless a picture is made"),
      LongRow(cache_setup::kMode, "cache_setup_mode", 1, "",
              "`sulva cache-setup`: record here, both at once, or play back in a new server")
          .Choices({{0, "new_server"}, {1, "record"}, {2, "both"}}),
      StringRow(cache_setup::kFolder, "cache_folder", "", "`sulva cache-setup`: where the files go")
          .OnlyWith(cache_setup::kPlace, {1}),
      StringRow(
          cache_setup::kName, "cache_name", "",
          "`sulva cache-setup`: how the names of the files begin; those of particles go on with "
          "\"particles_\""),
      BoolRow(cache_setup::kWindow, "cache_window", false,
              "`sulva cache-setup`: adds a duration that says when the caches work"),
      LongRow(cache_setup::kShowFrame, "cache_show_frame", 0, "frames",
              "`sulva cache-setup`: holds the picture at one recorded frame; 0 follows the run")
          .AtLeast(-1),
      LongRow(cache_setup::kFrameOffset, "cache_frame_offset", 0, "frames",
              "`sulva cache-setup`: plays that many frames later in the recording"),
      LongRow(cache_setup::kCompression, "cache_compression", 0, "",
              "`sulva cache-setup`: smaller files, for a little time")
          .Choices({{0, "none"}, {1, "fast"}, {2, "small"}}),
      LongRow(cache_setup::kParticleFormat, "cache_particle_format", 21, "",
              "`sulva cache-setup`: which kind of file caches of particles write")
          .Choices(cache_setup::ParticleFormatWords())
          .OrNumbers()
          .Range(0, 21),
      LongRow(cache_setup::kFormat, "cache_format", 0, "",
              "`sulva cache-setup`: which kind of file is written")
          .Choices({{0, "grid_cache"}}),
      LongRow(cache_setup::kNumbering, "cache_numbering", 0, "",
              "`sulva cache-setup`: files count from the first frame, or by the scene's numbers")
          .Choices({{0, "from_start"}, {1, "document"}}),
      LinksRow(cache_setup::kCandidates, "cache_candidates",
               "kept with the scene; a list to choose from")
          .AcceptsAny({kListChannels, kCategoryGrid})
          .AcceptsAny({kListSolvers, 0})
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .Kept(),
      LongRow(cache_setup::kPlace, "cache_place", 0, "",
              "`sulva cache-setup`: files go below the output of each run, or to cache_folder")
          .Choices({{0, "output"}, {1, "custom"}}),
      BoolRow(cache_setup::kBackwards, "cache_backwards", false,
              "`sulva cache-setup`: the recording plays in reverse"),
      LinksRow(cache_setup::kObjects, "cache_objects",
               "`sulva cache-setup`: what is recorded; empty takes all that is simulated")
          .AcceptsAny({kListChannels, kCategoryGrid})
          .AcceptsAny({kListSolvers, 0})
          .AcceptsAny({kListParticles, 0})
          .AcceptsAny({kListGeometry, kCategoryMesh})
          .AcceptsAny({kListGeometry, kCategoryVolume}),
      ButtonRow(cache_setup::kChooseFolder, "choose_cache_folder",
                "asks a person where recordings go"),
      ButtonRow(cache_setup::kSetUp, "set_up_caches", "what `sulva cache-setup` does"),
      BoolRow(cache_setup::kCopyServer, "cache_copy_server", true,
              "`sulva cache-setup`: with new_server, make that server; off: play back right here")
          .OnlyWith(cache_setup::kMode, {0}),
  };
  return table;
}

SulvaScene::SulvaScene(BaseNode* server, ObjectFactory factory)
    : Scene(server), mFactory(std::move(factory)) {
  mClock.document = GetDocument();
}

SulvaScene::~SulvaScene() { Clear(); }

SceneSettings SulvaScene::ReadSettings() const {
  SceneSettings settings;
  FillMembers(Parameters(), Server(), settings);
  return settings;
}

void SulvaScene::DetectChanges() { mInterface.GetDirtyCount(mServerDirty); }

void SulvaScene::SetStage(i32 stage) {
  mStage = stage;
  ++mStageRuns;
  ShowStatus("PipelineStage: " + std::string(kPipeline[stage].name));
}

SulvaScene::FrameDecision SulvaScene::DecideFrame(bool domainChanged, bool& hardReset) {
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

bool SulvaScene::EndEvaluation(bool result) {
  SetStage(kFinishVisual);
  DispatchStage();
  mReport.whole = result;
  SaveCaches();
  mClock.Commit();
  return result;
}

bool SulvaScene::Execute(HostThread* thread, bool render) {
  mThread = thread;
  mReport = {};
  const SceneSettings settings = ReadSettings();
  mGravity = settings.gravity;
  mFlags &= ~(kDomainChanged | kTimeChanged);
  mSeed = settings.seed;
  mRigidIterations = settings.rigidIterations;
  mRigidSubsteps = settings.rigidSubsteps;
  mRigidBroadphase = settings.rigidBroadphase;
  const double cellSize = render ? settings.renderCellSize : settings.cellSize;
  ReadClock();
  if (mClock.time != mClock.lastTime) mFlags |= kTimeChanged;
  const i32 limit = settings.threadLimit;
  mThreadCount = limit > 0 ? std::min(limit, ThreadCount()) : ThreadCount();
  mIsRender = render;

  SetStage(kStartSimulation);
  DetectChanges();
  const bool domainChanged = UpdateDomain(settings.hostUnits, settings.simulationUnits, cellSize);
  Synchronise(GetDocument());
  bool hardReset = false;
  const FrameDecision decision = DecideFrame(domainChanged, hardReset);
  if (decision == FrameDecision::Nothing) return true;

  i32 blurSample, blurSamples;
  ReadBlur(blurSample, blurSamples);
  SetTimes(mClock.frameFromStart, mClock.time, settings.timeScale * mClock.frameTime,
           settings.timeMode, settings.cfl, settings.fixedStep, settings.extraSubsteps + 1,
           settings.extraMinSubsteps + 1, mClock.fps, blurSample, blurSamples);
  LoadCaches();
  if (settings.timeScale <= 0) return EndEvaluation(true);

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
    if (!hardReset && !mTime.IsUnderWay()) Reset(false);
    mReport.simulated = true;
    const bool finished = RunSubsteps();
    ClearStatus();
    if (!finished) return EndEvaluation(false);
  }
  RunVisualStages();
  return EndEvaluation(!IsCancelled());
}

std::vector<iObject*> SulvaScene::Caches(bool enabledOnly) const {
  std::vector<iObject*> caches;
  for (const auto& [id, object] : mLists[kListCaches])
    if (object->IsPipelineObject() && (!enabledOnly || object->Has(FLAG_ENABLED)))
      caches.push_back(static_cast<iObject*>(object.get()));
  return caches;
}

namespace {
/// Tells which caches work in the stages that are theirs alone.
void Trace(const SulvaScene& scene, const std::vector<iObject*>& caches) {
  if (!scene.mTrace) return;
  for (const iObject* cache : caches)
    if (cache->Has(FLAG_ACTIVE) && cache->IsDirty()) scene.mTrace(scene.mStage, *cache);
}
}  // namespace

void SulvaScene::LoadCaches() {
  SetStage(kLoadCache);
  for (iObject* cache : Caches(true)) {
    cache->ReadParameters();
    cache->ResolveLinks();
  }
  for (iObject* cache : Caches(false))
    if (!cache->Has(FLAG_DIRTY_CHECKED)) cache->CheckDirty();
  for (iObject* cache : Caches(true)) cache->Prepare();
  Trace(*this, Caches(true));
}

void SulvaScene::SaveCaches() {
  SetStage(kSaveCache);
  EvaluationThreadData data;
  data.thread = mThread;
  for (iObject* cache : Caches(true)) cache->Prepare();
  Trace(*this, Caches(true));
  for (iObject* cache : Caches(true)) cache->Evaluate(data);
  for (iObject* cache : Caches(false)) cache->Finish();
  for (iObject* cache : Caches(false)) cache->ClearLinks();
}

void SulvaScene::RunSetUpPasses() {
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

void SulvaScene::CheckAllDirty() {
  // In stage order, so that an object's dirt reaches objects of later stages in one sweep.
  std::vector<iBase*> order;
  for (i32 stage = 0; stage <= kVisualPost; ++stage) {
    std::vector<iBase*> objects;
    ForEachObject([&](iBase& o) {
      if (o.Has(FLAG_ENABLED) && (o.mStageMask & StageBit(stage))) objects.push_back(&o);
    });
    for (iBase* object : OrderByLinks(objects, *this)) order.push_back(object);
  }
  order.erase(std::unique(order.begin(), order.end()), order.end());
  for (iBase* object : order) object->CheckDirty();
  ForEachObject([](iBase& o) {
    if (!o.Has(FLAG_DIRTY_CHECKED)) o.CheckDirty();
  });
}

void SulvaScene::DispatchStage() {
  switch (mStage) {
    case kStartSimulation:
    case kUpdate:
      RunSetUpPasses();
      CheckAllDirty();
      break;
    case kFinishVisual: ForEachObject([](iBase& o) { o.ClearLinks(); }); break;
    default: break;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
