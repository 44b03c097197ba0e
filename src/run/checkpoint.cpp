#include "run/checkpoint.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <tuple>

#include "cache/cache_operator.h"
#include "cache/state_file.h"
#include "host/atomic_file.h"
#include "host/exit_codes.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;
namespace fs = std::filesystem;

namespace {

constexpr const char* kSuffix = ".checkpoint";
// States are taken into memory for at most this share of a run's time.
constexpr double kMostShare = 0.02;

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

Checkpoints::Checkpoints(fs::path folder, u64 scene, const CheckpointPlan& plan, i32 kept,
                         Sync sync)
    : mFolder(std::move(folder)), mScene(scene), mPlan(plan), mKept(kept), mSync(std::move(sync)) {}

std::vector<Checkpoints::Found> Checkpoints::List() const {
  std::vector<Found> found;
  std::error_code failed;
  for (fs::directory_iterator entry(mFolder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    const fs::path whole = host::NameOfPart(entry->path());
    const fs::path& name = whole.empty() ? entry->path() : whole;
    if (name.extension() != kSuffix) continue;
    const std::string stem = name.stem().string();
    i32 frame = 0;
    const auto [rest, error] = std::from_chars(stem.data(), stem.data() + stem.size(), frame);
    if (error == std::errc() && rest == stem.data() + stem.size())
      found.push_back({frame, !whole.empty(), entry->path()});
  }
  std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
    return std::tie(b.frame, a.isPart, a.path) < std::tie(a.frame, b.isPart, b.path);
  });
  return found;
}

fs::path Checkpoints::StartPath() const {
  return mFolder / fmt::format("{}{}", kStartCheckpoint, kSuffix);
}

fs::path Checkpoints::PathOf(i32 frame) const {
  return mFolder / fmt::format("{:05}{}", frame, kSuffix);
}

void Checkpoints::WriteHeader(HyperFile& file, const RunState& run,
                              const Simulation& simulation) const {
  WriteCheckpointHeader(file, {.version = SULVA_VERSION,
                               .scene = mScene,
                               .run = run,
                               .nodes = NodesOf(simulation.GetDocument())});
}

void Checkpoints::Start(Simulation& simulation) {
  bool any = false;
  for (const auto& scene : simulation.Scenes()) scene->Synchronise(scene->GetDocument());
  simulation.ForEachCache([&](Cache_OperatorBase& cache) {
    cache.ReadParameters();
    any = cache.NoteOldFiles() || any;
  });
  if (!any || mPlan.IsOff()) return;
  HyperFile file;
  file.Open(kCheckpointIdent, StartPath(), HyperFile::Mode::kWrite);
  WriteHeader(file, {simulation.Range().first - 1, 0}, simulation);
  StateWriter writer(file, host::ThreadCount());
  simulation.ForEachCache([&](Cache_OperatorBase& cache) { cache.PersistOldFiles(writer); });
  if (!file.Close()) mWarning = file.Error();
}

void Checkpoints::RestoreStart(Simulation& simulation) {
  for (const auto& scene : simulation.Scenes()) scene->Synchronise(scene->GetDocument());
  HyperFile file;
  CheckpointHeader header;
  if (!file.Open(kCheckpointIdent, StartPath(), HyperFile::Mode::kRead) ||
      !ReadCheckpointHeader(file, header) || header.scene != mScene ||
      !MisfitOf(header, simulation.GetDocument()).empty())
    return;
  StateReader reader(file, host::ThreadCount());
  simulation.ForEachCache([&](Cache_OperatorBase& cache) { cache.PersistOldFiles(reader); });
  if (reader.IsGood())
    simulation.ForEachCache([](Cache_OperatorBase& cache) { cache.DropAllFrames(); });
}

std::optional<RunState> Checkpoints::Restore(Simulation& simulation,
                                             const std::optional<ManifestContent>& manifest,
                                             const Check& check, std::vector<std::string>& notes) {
  // What lies here and isn't of the run that the manifest tells of was left by one before it.
  const bool isSame = manifest && manifest->head.fingerprint == mScene;
  std::vector<fs::path> damaged;
  for (const Found& found : List()) {
    HyperFile file;
    CheckpointHeader header;
    if (!file.Open(kCheckpointIdent, found.path, HyperFile::Mode::kRead)) {
      if (found.isPart) continue;
      // What may be whole isn't passed over: the run would write over all that it stands for.
      if (file.FaultFound() != HyperFile::Fault::kDamaged)
        throw CommandError(kExitFile, "can't go on: " + file.Error());
      notes.push_back(file.Error());
      damaged.push_back(found.path);
      continue;
    }
    const auto refuse = [&](const std::string& why) {
      throw CommandError(kExitFile,
                         fmt::format("{}: can't go on from it: {}; --restart starts over",
                                     found.path.string(), why));
    };
    const bool isRead = ReadCheckpointHeader(file, header);
    if (isSame && (!isRead || header.scene != mScene || !manifest->Covers(header.run.frame)))
      continue;
    if (!isRead) refuse("another build of sulva wrote it");
    if (header.version == SULVA_VERSION && header.scene != mScene)
      refuse(
          "the scene, its meshes, its plug-ins or --set are others than those of the run that "
          "wrote it");
    if (const std::string misfit = MisfitOf(header, simulation.GetDocument()); !misfit.empty())
      refuse(misfit);
    if (manifest && !isSame)
      refuse(fmt::format("{} has run in this folder since", manifest->head.scene));
    if (check) check(header.run);
    StateReader reader(file, host::ThreadCount());
    simulation.Persist(reader, header.run.frame);
    if (!reader.IsGood()) refuse(reader.Problem());
    simulation.ForEachCache([](Cache_OperatorBase& cache) { cache.DropLaterFrames(); });
    std::error_code ignored;
    if (found.isPart) fs::rename(found.path, PathOf(header.run.frame), ignored);
    for (const Found& other : List())
      if (!other.isPart && other.frame <= header.run.frame &&
          (!manifest || manifest->Covers(other.frame)))
        mOwn.insert(other.frame);
    for (const fs::path& path : damaged) fs::remove(path, ignored);
    return header.run;
  }
  RestoreStart(simulation);
  Start(simulation);
  return {};
}

std::optional<RunState> Checkpoints::RestoreUpTo(i32 last, Simulation& simulation) const {
  for (const Found& found : List()) {
    if (found.isPart || found.frame > last) continue;
    HyperFile file;
    CheckpointHeader header;
    if (!file.Open(kCheckpointIdent, found.path, HyperFile::Mode::kRead) ||
        !ReadCheckpointHeader(file, header) || header.scene != mScene)
      continue;
    const auto refuse = [&](const std::string& why) {
      throw CommandError(kExitFile,
                         fmt::format("{}: can't go on from it: {}", found.path.string(), why));
    };
    if (const std::string misfit = MisfitOf(header, simulation.GetDocument()); !misfit.empty())
      refuse(misfit);
    StateReader reader(file, host::ThreadCount());
    simulation.Persist(reader, header.run.frame);
    if (reader.IsGood()) return header.run;
    refuse(reader.Problem());
  }
  return {};
}

void Checkpoints::RestoreBranch(const fs::path& from, i32 frame, Simulation& simulation) {
  const Checkpoints source(from, 0, {});
  HyperFile file;
  CheckpointHeader header;
  const fs::path path = source.PathOf(frame);
  std::error_code failed;
  if (!fs::exists(path, failed)) {
    std::string there;
    for (const Found& found : source.List())
      if (!found.isPart) there += fmt::format("{}{}", there.empty() ? "" : ", ", found.frame);
    throw CommandError(
        kExitFile,
        fmt::format("--from {}: {} has no checkpoint behind that frame; {}", frame, from.string(),
                    there.empty() ? "it has none" : "there are those behind the frames " + there));
  }
  const auto refuse = [&](const std::string& why) {
    throw CommandError(kExitFile, fmt::format("{}: can't go on from it: {}", path.string(), why));
  };
  if (!file.Open(kCheckpointIdent, path, HyperFile::Mode::kRead))
    throw CommandError(kExitFile, file.Error());
  if (!ReadCheckpointHeader(file, header)) refuse("another build of sulva wrote it");
  if (const std::string misfit = MisfitOf(header, simulation.GetDocument()); !misfit.empty())
    refuse(misfit);
  if (header.run.frame != frame)
    refuse(
        fmt::format("it is the state behind frame {}, whatever its name says", header.run.frame));
  StateReader reader(file, host::ThreadCount());
  simulation.Persist(reader, frame);
  if (!reader.IsGood()) refuse(reader.Problem());
}

RunState Checkpoints::StartBranch(i32 frame, Simulation& simulation) {
  simulation.ForEachCache([](Cache_OperatorBase& cache) { cache.ForgetOldFiles(); });
  Start(simulation);
  const RunState state{frame, 0};
  Take(state, simulation);
  Write();
  return state;
}

bool Checkpoints::IsAffordable() const {
  return mPlan.mostShare >= 1 ||
         mSpent + mTakeCost + mWriteCost <= mPlan.mostShare * SecondsSince(mStart);
}

void Checkpoints::FrameDone(const RunState& run, Simulation& simulation) {
  if (mPlan.IsOff()) return;
  ++mFramesSince;
  const bool isWanted = (mPlan.frames > 0 && mFramesSince >= mPlan.frames) ||
                        (mPlan.minutes > 0 && SecondsSince(mWritten) >= 60 * mPlan.minutes);
  // Where an interrupt has come between two frames, nothing is lost.
  const bool isDue = (isWanted && IsAffordable()) || host::MainThread().TestBreak();
  if (!isDue && SecondsSince(mTaken) * kMostShare < mTakeCost) return;
  Take(run, simulation);
  if (isDue) Write();
}

void Checkpoints::Take(const RunState& run, Simulation& simulation) {
  const Clock::time_point start = Clock::now();
  auto file = std::make_unique<HyperFile>();
  if (file->Open(kCheckpointIdent, PathOf(run.frame), HyperFile::Mode::kWrite)) {
    WriteHeader(*file, run, simulation);
    StateWriter writer(*file, host::ThreadCount());
    simulation.Persist(writer, run.frame);
  }
  if (file->Seal()) {
    mNewest = std::move(file);
    mNewestFrame = run.frame;
  } else {
    mWarning = file->Error();
  }
  mTaken = Clock::now();
  mTakeCost = SecondsSince(start);
  mSpent += mTakeCost;
}

void Checkpoints::Write() {
  if (!mNewest) return;
  const Clock::time_point start = Clock::now();
  const std::unique_ptr<HyperFile> newest = std::move(mNewest);
  if (mSync) mSync();
  if (newest->Close()) {
    mOwn.insert(mNewestFrame);
    RemoveOthers();
    mFramesSince = 0;
  } else {
    mWarning = newest->Error();
  }
  mWritten = Clock::now();
  mWriteCost = SecondsSince(start);
  mSpent += mWriteCost;
}

void Checkpoints::RemoveOthers() {
  while (mKept > 0 && mOwn.size() > static_cast<std::size_t>(mKept)) mOwn.erase(mOwn.begin());
  std::error_code ignored;
  for (const Found& found : List()) {
    if (found.isPart) {
      host::RemovePart(found.path);
    } else if (!mOwn.contains(found.frame)) {
      fs::remove(found.path, ignored);
    }
  }
}

std::optional<i32> Checkpoints::WriteNewest() {
  Write();
  if (mOwn.empty()) return {};
  return *mOwn.rbegin();
}

}  // namespace MELDO_GLOBAL::app
