#include "run/checkpoint.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

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
constexpr std::size_t kKept = 2;
// States are taken into memory for at most this share of a run's time.
constexpr double kMostShare = 0.02;

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

void WriteCheckpointHeader(HyperFile& file, const CheckpointHeader& header) {
  file.WriteText(header.version);
  file.WriteLLong(static_cast<i64>(header.scene));
  file.WriteLong(header.run.frame);
  file.WriteLong(header.run.framesWritten);
}

bool ReadCheckpointHeader(HyperFile& file, CheckpointHeader& header) {
  i64 scene = 0;
  if (!file.ReadText(header.version) || !file.ReadLLong(scene) ||
      !file.ReadLong(header.run.frame) || !file.ReadLong(header.run.framesWritten))
    return false;
  header.scene = static_cast<u64>(scene);
  return true;
}

Checkpoints::Checkpoints(fs::path folder, u64 scene, i32 every)
    : mFolder(std::move(folder)), mScene(scene), mEvery(every) {}

std::vector<Checkpoints::Found> Checkpoints::List() const {
  std::vector<Found> found;
  std::error_code failed;
  for (fs::directory_iterator entry(mFolder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    if (entry->path().extension() != kSuffix) continue;
    const std::string stem = entry->path().stem().string();
    i32 frame = 0;
    const auto [rest, error] = std::from_chars(stem.data(), stem.data() + stem.size(), frame);
    if (error == std::errc() && rest == stem.data() + stem.size())
      found.push_back({frame, entry->path()});
  }
  std::sort(found.begin(), found.end(),
            [](const Found& a, const Found& b) { return a.frame > b.frame; });
  return found;
}

fs::path Checkpoints::StartPath() const {
  return mFolder / fmt::format("{}{}", kStartCheckpoint, kSuffix);
}

void Checkpoints::Start(Simulation& simulation) {
  host::RemoveParts(mFolder);
  std::error_code ignored;
  for (const Found& found : List()) fs::remove(found.path, ignored);
  fs::remove(StartPath(), ignored);
  bool any = false;
  for (const auto& scene : simulation.Scenes()) scene->Synchronise(scene->GetDocument());
  simulation.ForEachCache([&](Cache_OperatorBase& cache) {
    cache.ReadParameters();
    any = cache.NoteOldFiles() || any;
  });
  if (!any || mEvery <= 0) return;
  HyperFile file;
  file.Open(kCheckpointIdent, StartPath(), HyperFile::Mode::kWrite);
  WriteCheckpointHeader(file, {SULVA_VERSION, mScene, {simulation.Range().first - 1, 0}});
  StateWriter writer(file, host::ThreadCount());
  simulation.ForEachCache([&](Cache_OperatorBase& cache) { cache.PersistOldFiles(writer); });
  if (!file.Close()) mWarning = file.Error();
}

void Checkpoints::RestoreStart(Simulation& simulation) {
  for (const auto& scene : simulation.Scenes()) scene->Synchronise(scene->GetDocument());
  HyperFile file;
  CheckpointHeader header;
  if (!file.Open(kCheckpointIdent, StartPath(), HyperFile::Mode::kRead) ||
      !ReadCheckpointHeader(file, header) || header.version != SULVA_VERSION ||
      header.scene != mScene)
    return;
  StateReader reader(file, host::ThreadCount());
  simulation.ForEachCache([&](Cache_OperatorBase& cache) { cache.PersistOldFiles(reader); });
  if (reader.IsGood())
    simulation.ForEachCache([](Cache_OperatorBase& cache) { cache.DropAllFrames(); });
}

std::optional<RunState> Checkpoints::Restore(Simulation& simulation,
                                             std::vector<std::string>& notes) {
  host::RemoveParts(mFolder);
  std::vector<fs::path> damaged;
  for (const Found& found : List()) {
    HyperFile file;
    CheckpointHeader header;
    if (!file.Open(kCheckpointIdent, found.path, HyperFile::Mode::kRead)) {
      // What may be whole isn't passed over: the run would write over all that it stands for.
      if (file.FaultFound() != HyperFile::Fault::kDamaged)
        throw CommandError(kExitFile, "can't go on: " + file.Error());
      notes.push_back(file.Error());
      damaged.push_back(found.path);
      continue;
    }
    const auto refuse = [&](const std::string& why) {
      throw CommandError(kExitFile,
                         fmt::format("{}: can't go on from it: {}", found.path.string(), why));
    };
    if (!ReadCheckpointHeader(file, header)) refuse("another build of sulva wrote it");
    if (header.version != SULVA_VERSION)
      refuse(fmt::format("sulva {} wrote it, this is {}", header.version, SULVA_VERSION));
    if (header.scene != mScene)
      refuse("the scene, its meshes or --set are others than those of the run that wrote it");
    StateReader reader(file, host::ThreadCount());
    simulation.Persist(reader, header.run.frame);
    if (!reader.IsGood()) refuse(reader.Problem());
    simulation.ForEachCache([](Cache_OperatorBase& cache) { cache.DropLaterFrames(); });
    mWrittenFrame = header.run.frame;
    std::error_code ignored;
    for (const fs::path& path : damaged) fs::remove(path, ignored);
    return header.run;
  }
  RestoreStart(simulation);
  Start(simulation);
  return {};
}

std::optional<RunState> Checkpoints::RestoreUpTo(i32 last, Simulation& simulation) const {
  for (const Found& found : List()) {
    if (found.frame > last) continue;
    HyperFile file;
    CheckpointHeader header;
    if (!file.Open(kCheckpointIdent, found.path, HyperFile::Mode::kRead) ||
        !ReadCheckpointHeader(file, header) || header.version != SULVA_VERSION ||
        header.scene != mScene)
      continue;
    StateReader reader(file, host::ThreadCount());
    simulation.Persist(reader, header.run.frame);
    if (reader.IsGood()) return header.run;
    throw CommandError(kExitFile, fmt::format("{}: can't go on from it: {}", found.path.string(),
                                              reader.Problem()));
  }
  return {};
}

void Checkpoints::FrameDone(const RunState& run, Simulation& simulation) {
  if (mEvery <= 0) return;
  ++mFramesSince;
  // Where an interrupt has come between two frames, nothing is lost.
  const bool isDue = mFramesSince >= mEvery || host::MainThread().TestBreak();
  if (!isDue && SecondsSince(mTaken) * kMostShare < mCost) return;
  Take(run, simulation);
  if (!isDue) return;
  mFramesSince = 0;
  Write();
}

void Checkpoints::Take(const RunState& run, Simulation& simulation) {
  const Clock::time_point start = Clock::now();
  auto file = std::make_unique<HyperFile>();
  if (file->Open(kCheckpointIdent, PathOf(run.frame), HyperFile::Mode::kWrite)) {
    WriteCheckpointHeader(*file, {SULVA_VERSION, mScene, run});
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
  mCost = SecondsSince(start);
}

void Checkpoints::Write() {
  if (!mNewest) return;
  const std::unique_ptr<HyperFile> newest = std::move(mNewest);
  if (!newest->Close()) {
    mWarning = newest->Error();
    return;
  }
  mWrittenFrame = mNewestFrame;
  const std::vector<Found> all = List();
  std::error_code ignored;
  for (std::size_t i = kKept; i < all.size(); ++i) fs::remove(all[i].path, ignored);
}

fs::path Checkpoints::PathOf(i32 frame) const {
  return mFolder / fmt::format("{:05}{}", frame, kSuffix);
}

std::optional<i32> Checkpoints::WriteNewest() {
  Write();
  return mWrittenFrame;
}

}  // namespace MELDO_GLOBAL::app
