#include "run/simulation.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <new>

#include "cache/cache_operator.h"
#include "fluids/advection/grid_advection.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "framework/rest.h"
#include "framework/stage_order.h"
#include "framework/state_archive.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/polygon_object.h"
#include "host/worker_pool.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

/// Several scenes of one document share a frame: their times add up, and its steps are those of the
/// first one that simulates it.
void AddReport(const SulvaScene& scene, bool isFirst, FrameRecord& record) {
  const EvaluationReport& report = scene.mReport;
  if (isFirst || (!record.simulated && report.simulated)) {
    record.steps = report.steps;
    record.elapsed = scene.mTime.elapsed;
  }
  record.simulated = record.simulated || report.simulated;
  for (i32 stage = 0; stage < kStageCount; ++stage)
    record.stageSeconds[stage] += report.stageSeconds[stage];
}

}  // namespace

u64 PeakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<u64>(usage.ru_maxrss) * 1024;
}

FrameRange SelectFrames(const FrameRange& range, const FrameSelection& selection) {
  const FrameRange selected{selection.first.value_or(range.first),
                            selection.last.value_or(range.last)};
  if (!range.Contains(selected.first) || !range.Contains(selected.last))
    throw CommandError(kExitUsage,
                       fmt::format("--frames {}:{} lies outside the scene's range {}:{}",
                                   selected.first, selected.last, range.first, range.last));
  if (selected.first > selected.last)
    throw CommandError(kExitUsage,
                       fmt::format("--frames {}:{} is reversed", selected.first, selected.last));
  return selected;
}
std::filesystem::path CacheFolderOf(const std::filesystem::path& out) { return out / "cache"; }

Simulation::Simulation(host::Document& document, const std::vector<host::BaseNode*>& servers,
                       u64 memoryLimit)
    : mDocument(document), mGuard(memoryLimit) {
  for (host::BaseNode* server : servers) {
    mScenes.push_back(CreateScene(*server));
    SulvaScene* scene = mScenes.back().get();
    scene->mBoundsGuard = [this, scene](const NegotiatedBounds& bounds) {
      NoteCfl(*scene);
      return mGuard.Allows(*scene, bounds);
    };
  }
}

FrameRange Simulation::Range() const {
  FrameRange range{mDocument.previewMin, mDocument.previewMax};
  for (std::size_t i = 0; i < mScenes.size(); ++i) {
    FrameRange own;
    mScenes[i]->GetFrameRange(own.first, own.last);
    range =
        i == 0 ? own : FrameRange{std::min(range.first, own.first), std::max(range.last, own.last)};
  }
  return range;
}

namespace {
bool Execute(SulvaScene& scene) {
  try {
    return scene.Execute(&host::MainThread(), false);
  } catch (const OrderError& error) {
    throw CommandError(kExitInvalidScene, error.what());
  }
}
}  // namespace

FrameOutcome Simulation::Evaluate(i32 frame, FrameRecord& record) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  record = {};
  record.frame = frame;
  mDocument.SetFrame(frame);
  BeginWatch();
  mCfl = 0;
  for (const auto& scene : mScenes) {
    bool finished = false;
    try {
      finished = Execute(*scene);
    } catch (const std::bad_alloc&) {
      mGuard.NoteFailure(*scene);
    }
    if (!mGuard.Refusal().empty() || !mGuard.CheckGrids(*scene)) return FrameOutcome::OutOfMemory;
    if (!CheckCaches(*scene)) return FrameOutcome::FileFailure;
    if (!finished || host::MainThread().TestBreak()) return FrameOutcome::Interrupted;
    AddReport(*scene, scene == mScenes.front(), record);
  }
  EndWatch();
  record.cfl = mCfl;
  AddWarnings(record);
  std::fflush(stdout);  // a trace appears with its frame
  record.wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  record.peakMemory = PeakMemory();
  return FrameOutcome::Done;
}

namespace {

/// What the simulation left in the document beside counters: placements and meshes that it wrote.
void PersistWritten(StateArchive& archive, host::BaseNode& node) {
  bool isWritten = node.IsWrittenBack();
  archive(isWritten);
  if (isWritten) {
    Matrix placement = node.LocalMatrix();
    archive(placement);
    if (archive.IsLoading() && archive.IsGood()) node.WriteBack(placement);
  }
  if (auto* mesh = dynamic_cast<host::PolygonObject*>(&node)) {
    bool isOutput = mesh->IsOutput();
    archive(isOutput);
    if (isOutput) {
      host::Geometry geometry = mesh->GetGeometry();
      archive(geometry.points, geometry.polygons);
      if (archive.IsLoading() && archive.IsGood()) {
        geometry.uvs.clear();
        geometry.normals.clear();
        mesh->WriteOutput(std::move(geometry));
      }
    }
  }
  for (host::BaseNode* child : node.Children()) PersistWritten(archive, *child);
}

void PersistWritten(StateArchive& archive, host::Document& document) {
  for (host::BaseNode* root : document.Roots()) PersistWritten(archive, *root);
}

}  // namespace

void Simulation::Persist(StateArchive& archive, i32 frame) {
  if (archive.IsLoading()) mDocument.SetFrame(frame);
  std::vector<u32> counters;
  mDocument.VisitCounters([&](u32& counter) { counters.push_back(counter); });
  const std::size_t count = counters.size();
  archive(counters);
  if (counters.size() != count) archive.Fail("the number of nodes differs");
  if (archive.IsLoading() && archive.IsGood()) {
    auto next = counters.begin();
    mDocument.VisitCounters([&](u32& counter) { counter = *next++; });
  }
  PersistWritten(archive, mDocument);
  archive.Expect(mScenes.size(), "the number of servers");
  for (const auto& scene : mScenes) {
    if (!archive.IsGood()) return;
    scene->Persist(archive);
  }
  // A run that goes on tells what one that was never interrupted does.
  archive(mTold, mHasWarned);
}

void Simulation::ForEachCache(const std::function<void(Cache_OperatorBase&)>& f) const {
  for (const auto& scene : mScenes)
    for (const auto& [id, object] : scene->List(kListCaches))
      if (auto* cache = dynamic_cast<Cache_OperatorBase*>(object.get())) f(*cache);
}

void Simulation::SetCacheRun(const CacheRun& run) {
  for (const auto& scene : mScenes) scene->Synchronise(scene->GetDocument());
  ForEachCache([&](Cache_OperatorBase& cache) { cache.SetRun(run); });
}

std::vector<WrittenFile> Simulation::TakeWritten() {
  std::vector<WrittenFile> all;
  ForEachCache([&](Cache_OperatorBase& cache) {
    for (WrittenFile& file : cache.TakeWritten()) all.push_back(std::move(file));
  });
  return all;
}

bool Simulation::CheckCaches(const Scene& scene) {
  for (const auto& [id, object] : scene.List(kListCaches))
    if (const auto* cache = dynamic_cast<const Cache_OperatorBase*>(object.get()))
      if (mFileFailure.empty()) mFileFailure = cache->Failure();
  return mFileFailure.empty();
}

void Simulation::PrintTrace() {
  for (const auto& owner : mScenes) {
    const Scene* scene = owner.get();
    owner->mTrace = [scene](i32 stage, const iBase& object) {
      std::printf("%d %d %d %s\n", scene->mClock.frame, int{scene->mTime.substep}, stage,
                  host::Escaped(object.mName).c_str());
    };
  }
}

namespace {
template <class F>
void ForEachObject(const Scene& scene, F&& f) {
  for (i32 list = 1; list <= 11; ++list)
    for (const auto& [id, object] : scene.List(list))
      if (object->Node()) f(*object);
}

/// Whether a node like another one, of its name, stands below some node.
bool HasNamesake(const host::BaseNode& below, const host::BaseNode& node) {
  const auto& children = below.Children();
  return std::any_of(children.begin(), children.end(), [&](const host::BaseNode* child) {
    return (child->Name() == node.Name() && child->Type() == node.Type()) ||
           HasNamesake(*child, node);
  });
}

/// The kind and name of a node, or its path where another server has one like it.
std::string ObjectLabel(const iBase& object) {
  const host::BaseNode& node = *object.Node();
  const NodeKind* kind = FindKind(node.Type());
  const auto& roots = node.GetDocument().Roots();
  const bool isShared = std::any_of(roots.begin(), roots.end(), [&](const host::BaseNode* root) {
    return !node.HasAncestor(root) && HasNamesake(*root, node);
  });
  return fmt::format("{} \"{}\"", kind ? kind->type : "node", isShared ? node.Path() : node.Name());
}

std::string InactiveText(const iBase& object) {
  return fmt::format("{} is inactive: {}", ObjectLabel(object), object.mInactiveReason);
}
}  // namespace

// A solver that rests still answers a small speed, which seeds the first adaptive step.
void Simulation::NoteCfl(const SulvaScene& scene) {
  double top = 0;
  for (const auto& [id, object] : scene.List(kListSolvers))
    if (object->Has(FLAG_ENABLED) && object->Has(FLAG_ACTIVE))
      top = std::max(top, object->GetMaxSpeedSq());
  mCfl = std::max(mCfl, std::sqrt(top) * scene.mTime.stepDuration / scene.mDomain.cellSize);
}

bool Simulation::IsToTell(const iBase& object) const {
  const host::NodeId id = object.Node()->Id();
  return object.mInactiveReason && !IsRest(object.mInactiveReason) && object.Has(FLAG_ENABLED) &&
         !mSilenced.contains(id) && std::find(mTold.begin(), mTold.end(), id) == mTold.end();
}

void Simulation::BeginWatch() {
  mBefore.clear();
  for (const auto& scene : mScenes)
    ForEachObject(*scene, [&](iBase& object) {
      mBefore[&object] = {object.mRuns, object.mInactiveReason};
      object.mInactiveReason = nullptr;
    });
}

void Simulation::EndWatch() {
  mWentIdle.clear();
  for (const auto& scene : mScenes)
    ForEachObject(*scene, [&](iBase& object) {
      if (object.mInactiveReason) return void(mWentIdle.insert(&object));
      // What had no work keeps its reason: only a change would bring another.
      const auto before = mBefore.find(&object);
      if (before != mBefore.end()) object.mInactiveReason = before->second.reason;
    });
}

u32 Simulation::RunsOf(const iBase& object) const {
  const auto before = mBefore.find(&object);
  return object.mRuns - (before == mBefore.end() ? 0 : before->second.runs);
}

const char* Simulation::IdleReasonOf(const iBase& object) const {
  return mWentIdle.contains(&object) ? object.mInactiveReason : nullptr;
}

bool Simulation::AwaitsContent(const Scene& scene) const {
  const auto& solvers = scene.List(kListSolvers);
  return mMayCome && !solvers.empty() &&
         std::all_of(solvers.begin(), solvers.end(),
                     [](const auto& entry) { return entry.second->mRuns == 0; });
}

void Simulation::AddWarningsOf(const Scene& scene, FrameRecord& record) {
  // The first frames have no flow yet, and a scene without content or time has nothing to work on;
  // what stays that way is told when the run ends.
  constexpr i32 kStartUp = 2;
  const bool isEmpty = scene.mFlags & Scene::kNoBounds;
  if (scene.mClock.frameFromStart < kStartUp || !scene.mReport.simulated || isEmpty ||
      AwaitsContent(scene) || scene.mTime.elapsed == 0)
    return;
  ForEachObject(scene, [&](const iBase& object) {
    const bool stands = object.mRuns == 0 || IdleReasonOf(object);
    if (RunsOf(object) > 0 || !stands || !IsToTell(object) || MayPass(object.mInactiveReason))
      return;
    mTold.push_back(object.Node()->Id());
    record.warnings.push_back(InactiveText(object));
  });
}

namespace {
/// What is said of a gap that the cells of its scene don't show.
std::string GapText(const NarrowGaps::Place& gap, const Vec3d& toWorld) {
  const Vec3d at = gap.at * toWorld;
  const std::string other = !gap.other             ? "a wall of the container"
                            : gap.other == gap.one ? "another side of it"
                                                   : ObjectLabel(*gap.other);
  return fmt::format(
      "{} and {} face each other {:.2g} cells apart, at [{:.4g}, {:.4g}, {:.4g}]; "
      "smoke may not pass there: only a smaller 'cell_size' of the server shows "
      "gaps below half a cell",
      ObjectLabel(*gap.one), other, gap.width, at.x, at.y, at.z);
}

/// Adds what caches, solvers and advections report of themselves, each sentence once.
void TakeFaults(const Scene& scene, std::vector<std::string>& told) {
  ForEachObject(scene, [&](iBase& object) {
    const auto add = [&](const std::vector<std::string>& warnings) {
      for (const std::string& warning : warnings)
        told.push_back(fmt::format("{}: {}", ObjectLabel(object), warning));
    };
    if (auto* cache = dynamic_cast<Cache_OperatorBase*>(&object)) add(cache->TakeWarnings());
    if (auto* advection = dynamic_cast<GridAdvection*>(&object)) add(advection->TakeWarnings());
    auto* solver = dynamic_cast<FluidSolver*>(&object);
    if (!solver) return;
    add(solver->TakeWarnings());
    for (const NarrowGaps::Place& gap : solver->GetFlow().mNarrowGaps.TakePlaces())
      told.push_back(GapText(gap, scene.mDomain.simToWorld));
  });
}
}  // namespace

void Simulation::AddWarnings(FrameRecord& record) {
  constexpr double kMostCells = 20;
  constexpr u64 kStep = 0;
  for (const auto& scene : mScenes) {
    TakeFaults(*scene, record.warnings);
    AddWarningsOf(*scene, record);
  }
  if (record.cfl > kMostCells && std::find(mTold.begin(), mTold.end(), kStep) == mTold.end()) {
    mTold.push_back(kStep);
    record.warnings.push_back(
        fmt::format("the flow crosses {:.0f} cells in a substep, and what lies between is skipped; "
                    "raise the server's 'extra_substeps', or 'cell_size'",
                    record.cfl));
  }
  mHasWarned |= !record.warnings.empty();
}

std::vector<std::string> Simulation::TakeWarnings() {
  std::vector<std::string> warnings;
  for (const auto& scene : mScenes) {
    // No force acts before there is a flow, in the second frame.
    const bool isEarly = scene->mClock.frameFromStart < 1;
    const bool standsStill = !isEarly && scene->mTime.elapsed == 0;
    ForEachObject(*scene, [&](const iBase& object) {
      if (standsStill) return;
      const bool isDue = object.GetListIndex() != kListForces || !isEarly;
      if (object.mRuns == 0 && IsToTell(object) && isDue &&
          mToldAtEnd.insert(object.Node()->Id()).second)
        warnings.push_back(InactiveText(object));
    });
    TakeFaults(*scene, warnings);
  }
  return warnings;
}

}  // namespace MELDO_GLOBAL::app
