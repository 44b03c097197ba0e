#include "cli/command_run.h"

#include <fmt/format.h>

#include <chrono>
#include <new>
#include <set>
#include <sstream>

#include "cache/cache_operator.h"
#include "cli/command_bake.h"
#include "cli/exit_code_of.h"
#include "host/atomic_file.h"
#include "host/exit_codes.h"
#include "host/folder_lock.h"
#include "host/output_guard.h"
#include "host/worker_pool.h"
#include "io/exporter.h"
#include "io/measure.h"
#include "io/solver_info.h"
#include "io/statistics.h"
#include "run/checkpoint.h"
#include "run/manifest.h"
#include "run/progress.h"
#include "run/recorded_frames.h"
#include "run/recording_locks.h"
#include "run/run_history.h"
#include "run/simulation.h"
#include "scene/command_files.h"
#include "scene/node_names.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

fs::path DefaultOut(const RunOptions& options) { return fs::path("out") / options.scene.stem(); }

/// The folder of a run, made and held as long as the run lives.
struct HeldFolder {
  HeldFolder(const fs::path& out, bool allowOutside)
      : isMade((MakeFolder(out), true)), lock(out, "run"), guard(out, allowOutside) {}
  bool isMade;
  host::FolderLock lock;
  host::OutputGuard guard;
};

/// One run of a scene, from the first frame to the last line of the statistics.
class Run {
 public:
  Run(LoadedScene& scene, const RunOptions& options, const fs::path& out)
      : mOptions(options),
        mScene(scene),
        mOut(out),
        mSimulation(*scene.document, scene.servers,
                    options.memory ? options.memory : MachineMemory()),
        mSelected(SelectFrames(mSimulation.Range(), options.frames)),
        mFolder(out, options.allowOutside),
        mProgress(mSimulation.Range().first, mSelected.last,
                  options.quiet ? ProgressStyle::Quiet : StyleOfStandardError()),
        mNames(*scene.document, NodeNames::Among::SameList),
        mExporter(scene.exports, out, scene.simulation),
        mStatistics(out / "stats.jsonl"),
        mManifest(out),
        mCheckpoints(out / "checkpoints", scene.fingerprint, options.checkpoint, options.kept,
                     [this] { SyncLogs(); }) {
    if (!mFolder.lock.Warning().empty()) Warn(mFolder.lock.Warning());
    mSimulation.SetCacheRun({.simulation = scene.simulation});
    if (options.allowOutside) mRecordingLocks = LockRecordings(mSimulation, out, "run");
    mResumed = Begin();
    if (mResumed) mFramesWritten = mResumed->framesWritten;
    if (options.trace) mSimulation.PrintTrace();
    mSimulation.Watch().Silence(scene.Idle());
    mSimulation.Watch().AwaitContent(scene.hasMotion);
  }

  /// `noted` is what was told of the scene before.
  int Execute(const std::vector<std::string>& noted) {
    const Clock::time_point start = Clock::now();
    int code = ExitCodeOf(mProgress,
                          "out of memory; raise cell_size or lower the size of boxes and meshes",
                          [&] { return RunFrames(); });
    if (code == kExitInterrupted || code == kExitFile || code == kExitMemory) KeepNewestState();
    const std::chrono::duration<double> wall = Clock::now() - start;
    std::vector<std::string> warnings = mSimulation.TakeWarnings();
    if (code == kExitDone) AddMixture(warnings);
    for (const std::string& warning : warnings) Warn(warning);
    if (code == kExitDone) ExportBodies(warnings);
    warnings.insert(warnings.begin(), mToldLast.begin(), mToldLast.end());
    warnings.insert(warnings.begin(), noted.begin(), noted.end());
    if (code == kExitDone && mOptions.strict && (mHasWarned || mSimulation.HasWarned())) {
      mProgress.Error("--strict: there are warnings");
      code = kExitInvalidScene;
    }
    mStatistics.WriteSummary(mStatistics.Count(mFramesWritten), wall.count(), code, warnings);
    code = EndManifest(code);
    if (!mStatistics.Warning().empty()) Warn(mStatistics.Warning());
    if (code == kExitDone)
      mProgress.Note(fmt::format("done: {} frame{} in {}, written to {}", mFramesWritten,
                                 mFramesWritten == 1 ? "" : "s", FormatDuration(wall.count()),
                                 mOut.string()));
    return code;
  }

 private:
  using Clock = std::chrono::steady_clock;

  ManifestHead Head() const {
    return {SULVA_VERSION, ScenePathOf(mScene), mScene.fingerprint, mScene.simulation,
            mOptions.from};
  }

  /// The state that the run goes on behind; without one it starts at the first frame.
  std::optional<RunState> Begin() {
    if (mOptions.from) return Branch();
    if (mOptions.resume) return Resume();
    StartOver();
    mCheckpoints.Start(mSimulation);
    TellCheckpoints();
    return {};
  }

  void StartOver() {
    const FolderUse use{mOut, mOptions.out.empty(), mOptions.restart};
    if (const std::string note = CheckBeforeStart(use, mScene, mCheckpoints); !note.empty())
      mProgress.Note("note: " + note);
    // States that were written beside stay until this run has its own.
    host::RemoveParts(mOut, "checkpoints");
    mManifest.Start(Head());
  }

  std::optional<RunState> Resume() {
    const std::optional<ManifestContent> manifest = ReadManifest(mOut);
    std::vector<std::string> notes;
    const auto check = [&](const RunState& state) {
      if (manifest) CheckFiles(mOut, *manifest, state.frame, mSimulation, notes);
    };
    const std::optional<RunState> state = mCheckpoints.Restore(mSimulation, manifest, check, notes);
    // The first frames of a branch are those of another run.
    if (!state && manifest && manifest->head.branchedAt)
      throw CommandError(kExitFile,
                         fmt::format("{}: a branch that was cut short before it had a state of its "
                                     "own; branch off again with --from {}, or start over with "
                                     "--restart",
                                     mOut.string(), *manifest->head.branchedAt));
    host::RemoveParts(mOut);
    if (state) {
      mManifest.GoOn(Head(), state->frame);
      mStatistics.GoOn(state->frame, state->framesWritten);
    } else {
      mManifest.Start(Head());
    }
    for (const std::string& note : notes) Warn(note);
    mProgress.Note(state ? fmt::format("going on behind frame {}", state->frame)
                         : "no checkpoint to go on from: starting at the first frame");
    return state;
  }

  RunState Branch() {
    const fs::path base = mOptions.base.empty() ? DefaultOut(mOptions) : mOptions.base;
    std::error_code failed;
    if (fs::equivalent(base, mOut, failed))
      throw CommandError(kExitUsage,
                         "--from: a run branches into another folder than its own; "
                         "name it with --out");
    if (mSelected.last <= *mOptions.from)
      throw CommandError(kExitUsage, fmt::format("--frames ends at frame {}, and the branch begins "
                                                 "behind frame {}",
                                                 mSelected.last, *mOptions.from));
    // What is in the folder stays where there is nothing to go on from.
    Checkpoints::RestoreBranch(base / "checkpoints", *mOptions.from, mSimulation);
    StartOver();
    const RunState state = mCheckpoints.StartBranch(*mOptions.from, mSimulation);
    TellCheckpoints();
    mProgress.Note(
        fmt::format("going on behind frame {} of the run in {}", state.frame, base.string()));
    return state;
  }

  /// A later start still simulates from the first frame on: there is no other way to its state.
  int RunFrames() {
    FrameRecord record;
    const i32 first = mResumed ? mResumed->frame + 1 : mSimulation.Range().first;
    for (i32 frame = first; frame <= mSelected.last; ++frame) {
      mProgress.BeginFrame(frame);
      switch (mSimulation.Evaluate(frame, record)) {
        case FrameOutcome::Done: break;
        case FrameOutcome::Interrupted:
          mProgress.Note(fmt::format("interrupted in frame {}", frame));
          return kExitInterrupted;
        case FrameOutcome::FileFailure:
          mFolder.guard.CheckSame();
          mProgress.Error(mSimulation.FileFailure());
          return kExitFile;
        case FrameOutcome::OutOfMemory:
          mProgress.Error(mSimulation.MemoryRefusal());
          return kExitMemory;
      }
      if (frame == first) DescribeScenes();
      for (const auto& scene : mSimulation.Scenes()) MeasureScene(*scene, mNames, record);
      std::vector<std::string> told = record.warnings;
      if (frame == mSelected.last) {
        mToldLast = mSimulation.TakeWarnings();
        told.insert(told.end(), mToldLast.begin(), mToldLast.end());
        // Frames that are added later may show that nothing was amiss.
        if (frame == mSimulation.Range().last) record.warnings = told;
      }
      // What else a frame tells in which a flow blows up follows from that.
      const std::string broken = FindNonFinite(record);
      if (!broken.empty()) mProgress.Error(fmt::format("frame {}: {}", frame, broken));
      for (const std::string& warning : told) Warn(fmt::format("frame {}: {}", frame, warning));
      if (!broken.empty()) return kExitNonFinite;
      FinishFrame(frame, record);
    }
    return kExitDone;
  }

  std::vector<WrittenFile> Export(i32 frame) {
    try {
      return mExporter.Write(frame, mSimulation.Scenes());
    } catch (const std::bad_alloc&) {
      throw CommandError(kExitMemory,
                         fmt::format("out of memory: the system gives no more to the exports of "
                                     "frame {}; raise cell_size, or export fewer grids",
                                     frame));
    }
  }

  void FinishFrame(i32 frame, FrameRecord& record) {
    // Without exports nothing else would notice.
    mFolder.guard.CheckSame();
    std::vector<WrittenFile> files = mSimulation.TakeWritten();
    if (mSelected.Contains(frame)) {
      for (WrittenFile& file : Export(frame)) files.push_back(std::move(file));
      for (std::string& warning : mExporter.TakeWarnings()) {
        Warn(fmt::format("frame {}: {}", frame, warning));
        record.warnings.push_back(std::move(warning));
      }
      mStatistics.WriteFrame(record);
      ++mFramesWritten;
    }
    mManifest.Add(frame, files);
    mCheckpoints.FrameDone({frame, mFramesWritten}, mSimulation);
    TellCheckpoints();
    mProgress.EndFrame(record);
  }

  /// Before a checkpoint gets its name.
  void SyncLogs() {
    mStatistics.Sync();
    try {
      mManifest.Sync();
    } catch (const host::FileError& error) {
      Warn(error.what());
    }
  }

  /// A checkpoint that can't be written costs time, not results.
  void TellCheckpoints() {
    const std::string warning = mCheckpoints.TakeWarning();
    if (!warning.empty() && mToldWarnings.insert(warning).second) Warn("no checkpoint: " + warning);
  }

  /// A run that wrote nothing leaves the list of what was there as it was.
  int EndManifest(int code) {
    try {
      mFolder.guard.CheckSame();
      if (code != kExitDone && mFramesWritten == 0 && mSimulation.TakeWritten().empty() &&
          mManifest.GiveBack())
        return code;
      mManifest.End({mSelected.first, mSelected.last, code, mWholeRun});
    } catch (const host::FileError& error) {
      if (code == kExitDone) {
        mProgress.Error(error.what());
        return kExitFile;
      }
    }
    return code;
  }

  /// Frames that an earlier run recorded and this one didn't write over.
  void AddMixture(std::vector<std::string>& warnings) {
    const fs::path foreign = ForeignRecording(mSimulation, mScene.simulation);
    if (!foreign.empty())
      warnings.push_back(
          fmt::format("{} is left of another simulation, whose frames don't go with "
                      "those of this run; delete it before the recording is played",
                      foreign.string()));
  }

  /// Behind all frames: the ways of the bodies.
  void ExportBodies(std::vector<std::string>& warnings) {
    for (const ExportSpec& spec : mScene.exports) {
      if (!spec.IsOfWholeRun()) continue;
      // Bodies have moved their objects.
      Diagnostics told;
      std::optional<LoadedScene> fresh = LoadScene(mOptions.scene, told, mOptions.overrides);
      try {
        if (!fresh || fresh->fingerprint != mScene.fingerprint)
          throw CommandError(kExitInvalidScene, "the scene file is another by now");
        mWholeRun.push_back(Bake(*fresh, mOut).WriteTo(mOut / spec.file));
      } catch (const CommandError& error) {
        // Frames that weren't asked for are missing, or there is no body.
        warnings.push_back(fmt::format("no {}: {}", spec.file, error.what()));
        Warn(warnings.back());
      }
    }
  }

  void DescribeScenes() {
    std::string text;
    for (const auto& scene : mSimulation.Scenes()) text += DescribeSolvers(*scene);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) mProgress.Note(line);
  }

  /// What ended the run need not cost more than the frame in work.
  void KeepNewestState() {
    if (const std::optional<i32> kept = mCheckpoints.WriteNewest())
      mProgress.Note(fmt::format("--resume goes on behind frame {}", *kept));
    TellCheckpoints();
  }

  void Warn(const std::string& warning) {
    mHasWarned = true;
    mProgress.Note("warning: " + warning);
  }

  const RunOptions& mOptions;
  const LoadedScene& mScene;
  const fs::path mOut;
  Simulation mSimulation;
  const FrameRange mSelected;
  const HeldFolder mFolder;
  RecordingLocks mRecordingLocks;
  Progress mProgress;
  const NodeNames mNames;
  Exporter mExporter;
  StatisticsFile mStatistics;
  Manifest mManifest;
  Checkpoints mCheckpoints;
  std::optional<RunState> mResumed;
  std::set<std::string> mToldWarnings;
  std::vector<std::string> mToldLast;  ///< with the last frame: what never ran
  std::vector<WrittenFile> mWholeRun;  ///< files that stand for no frame
  i32 mFramesWritten = 0;
  bool mHasWarned = false;
};

std::vector<std::string> WarningsOf(const Diagnostics& diagnostics) {
  std::vector<std::string> texts;
  for (const Message& message : diagnostics.Messages())
    if (message.severity == Message::Severity::Warning) texts.push_back(message.text);
  return texts;
}

}  // namespace

int RunScene(const RunOptions& options) {
  host::InstallInterruptHandlers();
  if (options.threads > 0) host::SetThreadCount(options.threads);
  Diagnostics diagnostics;
  std::optional<LoadedScene> scene = LoadScene(options.scene, diagnostics, options.overrides);
  const bool isRefused = !scene || (options.strict && diagnostics.HasWarnings());
  if (!options.quiet || isRefused) diagnostics.Print();
  if (isRefused) return kExitInvalidScene;
  const fs::path out = options.out.empty() ? DefaultOut(options) : options.out;
  scene->document->folder = CacheFolderOf(out).string();
  try {
    return Run(*scene, options, out).Execute(WarningsOf(diagnostics));
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
}

}  // namespace MELDO_GLOBAL::app
