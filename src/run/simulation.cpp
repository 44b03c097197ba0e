#include "run/simulation.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <new>

#include "cache/cache_operator.h"
#include "exchange/particles_object.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "framework/stage_order.h"
#include "framework/state_archive.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/polygon_object.h"
#include "host/worker_pool.h"
#include "nodes/catalogue.h"
#include "run/for_each_object.h"

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
  mWatch.BeginFrame(mScenes);
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
  mWatch.EndFrame(mScenes);
  record.cfl = mCfl;
  AddWarnings(record);
  std::fflush(stdout);  // a trace appears with its frame
  record.wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  record.peakMemory = PeakMemory();
  return FrameOutcome::Done;
}

namespace {

/// What the corners of polygons have.
void PersistCorners(StateArchive& archive, std::vector<std::array<Vec3d, 4>>& corners) {
  std::vector<Vec3d> flat;
  for (const auto& each : corners) flat.insert(flat.end(), each.begin(), each.end());
  archive(flat);
  if (!archive.IsLoading() || !archive.IsGood()) return;
  corners.resize(flat.size() / 4);
  for (std::size_t i = 0; i < corners.size(); ++i)
    std::copy_n(flat.begin() + static_cast<std::ptrdiff_t>(4 * i), 4, corners[i].begin());
}

void PersistTable(StateArchive& archive, exchange::ParticleTable& table) {
  i64 rows = table.Count();
  auto columns = static_cast<u64>(table.Columns().size());
  archive(rows, columns);
  if (archive.IsLoading()) table = {};
  for (u64 i = 0; i < columns && archive.IsGood(); ++i) {
    exchange::ParticleColumn own;
    if (!archive.IsLoading()) own = table.Columns()[i];
    u8 type = static_cast<u8>(own.Type());
    archive(own.name, own.components, type);
    if (archive.IsLoading()) own.values = exchange::EmptyValues(exchange::ValueType{type});
    std::visit([&](auto& list) { archive(list); }, own.values);
    if (archive.IsLoading()) table.Columns().push_back(std::move(own));
  }
  table.TakeCount(rows);
}

/// What the simulation left in the document beside counters: placements that it wrote, and the
/// content of objects.
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
      PersistCorners(archive, geometry.normals);
      PersistCorners(archive, geometry.uvs);
      archive(geometry.velocities, geometry.colours);
      if (archive.IsLoading() && archive.IsGood()) mesh->WriteOutput(std::move(geometry));
    }
  }
  if (auto* particles = dynamic_cast<exchange::ParticlesObject*>(&node)) {
    bool isOutput = particles->IsOutput();
    archive(isOutput);
    if (isOutput) {
      exchange::ParticleTable table = particles->Table();
      PersistTable(archive, table);
      if (archive.IsLoading() && archive.IsGood()) particles->WriteOutput(std::move(table));
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
  PersistWritten(archive, mDocument);
  // What was written back has raised them.
  if (archive.IsLoading() && archive.IsGood()) {
    auto next = counters.begin();
    mDocument.VisitCounters([&](u32& counter) { counter = *next++; });
  }
  archive.Expect(mScenes.size(), "the number of servers");
  for (const auto& scene : mScenes) {
    if (!archive.IsGood()) return;
    scene->Persist(archive);
  }
  // A run that goes on tells what one that was never interrupted does.
  archive(mHasToldStep, mHasWarned);
  mWatch.Persist(archive);
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

// A solver that rests still answers a small speed, which seeds the first adaptive step.
void Simulation::NoteCfl(const SulvaScene& scene) {
  double top = 0;
  for (const auto& [id, object] : scene.List(kListSolvers))
    if (object->Has(FLAG_ENABLED) && object->Has(FLAG_ACTIVE))
      top = std::max(top, object->GetMaxSpeedSq());
  mCfl = std::max(mCfl, std::sqrt(top) * scene.mTime.stepDuration / scene.mDomain.cellSize);
}

namespace {
/// The largest size of cells, of two digits, in which a gap of `width` cells is half a cell wide.
double CellThatShows(double width, double cell) {
  const double size = 2 * width * cell, digit = std::pow(10, std::floor(std::log10(size)) - 1);
  return std::floor(size / digit + 1e-9) * digit;
}

/// What is said of a gap that the cells of its scene don't show.
std::string GapText(const NarrowGaps::Place& gap, const GridLayout& domain, bool isLiquid) {
  const Vec3d at = gap.at * domain.simToWorld;
  const std::string other = !gap.other             ? "a wall of the container"
                            : gap.other == gap.one ? "another side of it"
                                                   : LabelOf(*gap.other);
  return fmt::format(
      "{} and {} face each other {:.2g} cells apart, at [{:.4g}, {:.4g}, {:.4g}]: {}; a "
      "'cell_size' "
      "of the server below {:.2g} shows the gap",
      LabelOf(*gap.one), other, gap.width, at.x, at.y, at.z,
      isLiquid ? "less liquid passes than would, or none"
               : "more or less gas passes than would, or none, and so of all that it carries",
      CellThatShows(gap.width, domain.cellSize));
}

bool HasLiquid(const SulvaScene& scene) {
  bool has = false;
  ForEachObject(scene, [&](iBase& object) {
    const auto* solver = dynamic_cast<const iFluidSolver*>(&object);
    has |= solver && solver->Has(FLAG_ENABLED) && solver->LiquidGroups();
  });
  return has;
}

/// Adds what objects report of themselves, each sentence once.
void TakeFaults(const SulvaScene& scene, std::vector<std::string>& told) {
  for (const auto& part : scene.mParts)
    for (std::string& warning : part->TakeWarnings()) told.push_back(std::move(warning));
  ForEachObject(scene, [&](iBase& object) {
    for (const std::string& warning : object.TakeWarnings())
      told.push_back(fmt::format("{}: {}", LabelOf(object), warning));
    auto* solver = dynamic_cast<FluidSolver*>(&object);
    if (!solver) return;
    for (const NarrowGaps::Place& gap : solver->GetFlow().mNarrowGaps.TakePlaces())
      told.push_back(GapText(gap, scene.mDomain, solver->LiquidGroups() != nullptr));
  });
}
}  // namespace

void Simulation::AddWarnings(FrameRecord& record) {
  constexpr double kMostCells = 20;
  for (const auto& scene : mScenes) {
    TakeFaults(*scene, record.warnings);
    mWatch.AddWarnings(*scene, record.warnings);
  }
  if (record.cfl > kMostCells && !mHasToldStep) {
    mHasToldStep = true;
    const bool hasLiquid = std::any_of(mScenes.begin(), mScenes.end(),
                                       [](const auto& scene) { return HasLiquid(*scene); });
    record.warnings.push_back(
        fmt::format("the flow crosses {:.0f} cells in a substep, and what lies between is "
                    "skipped{}; raise the server's 'extra_substeps', or 'cell_size'",
                    record.cfl, hasLiquid ? ", so that a liquid loses volume" : ""));
  }
  mHasWarned |= !record.warnings.empty();
}

std::vector<std::string> Simulation::TakeWarnings() {
  std::vector<std::string> warnings;
  for (const auto& scene : mScenes) {
    mWatch.AddLastWarnings(*scene, warnings);
    TakeFaults(*scene, warnings);
  }
  return warnings;
}

}  // namespace MELDO_GLOBAL::app
