#include "cli/command_run.h"

#include <fmt/format.h>

#include <chrono>
#include <new>

#include "host/atomic_file.h"
#include "host/exit_codes.h"
#include "host/mesh_files.h"
#include "host/worker_pool.h"
#include "io/exporter.h"
#include "io/measure.h"
#include "io/solver_info.h"
#include "io/statistics.h"
#include "run/checkpoint.h"
#include "run/progress.h"
#include "run/simulation.h"
#include "scene/node_names.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// One run of a scene, from the first frame to the last line of the statistics.
class Run {
 public:
  Run(LoadedScene& scene, const RunOptions& options, const fs::path& out)
      : mOptions(options),
        mOut(out),
        mSimulation(*scene.document, scene.servers,
                    options.memory ? options.memory : MachineMemory()),
        mSelected(SelectFrames(mSimulation.Range(), options.frames)),
        mProgress(mSimulation.Range().first, mSelected.last,
                  options.quiet ? ProgressStyle::Quiet : StyleOfStandardError()),
        mNames(*scene.document, NodeNames::Among::SameList),
        mExporter(scene.exports, out),
        mCheckpoints(out / "checkpoints", scene.fingerprint, options.checkpoint),
        mResumed(Resume()),
        mStatistics(out / "stats.jsonl", mResumed ? mResumed->framesWritten : 0),
        mFramesWritten(mResumed ? mResumed->framesWritten : 0) {
    if (options.trace) mSimulation.PrintTrace();
  }

  int Execute() {
    const Clock::time_point start = Clock::now();
    int code = kExitDone;
    try {
      code = RunFrames();
    } catch (const CommandError& error) {
      mProgress.Error(error.what());
      code = error.code;
    } catch (const host::MeshFileError& error) {
      mProgress.Error(error.what());
      code = kExitFile;
    } catch (const host::FileError& error) {
      mProgress.Error(error.what());
      code = kExitFile;
    } catch (const std::bad_alloc&) {
      mProgress.Error("out of memory; raise cell_size or lower the size of boxes and meshes");
      code = kExitMemory;
    }
    if (code == kExitInterrupted || code == kExitFile || code == kExitMemory) KeepNewestState();
    const std::chrono::duration<double> wall = Clock::now() - start;
    mStatistics.WriteSummary(mFramesWritten, wall.count(), code);
    PrintWarnings();
    if (code == kExitDone)
      mProgress.Note(fmt::format("done: {} frame{} in {}, written to {}", mFramesWritten,
                                 mFramesWritten == 1 ? "" : "s", FormatDuration(wall.count()),
                                 mOut.string()));
    return code;
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// The checkpoint that the run goes on behind; without one it starts at the first frame.
  std::optional<RunState> Resume() {
    if (!mOptions.resume) {
      mCheckpoints.Start(mSimulation);
      return {};
    }
    host::RemoveParts(mOut);
    std::vector<std::string> notes;
    const std::optional<RunState> state = mCheckpoints.Restore(mSimulation, notes);
    for (const std::string& note : notes) mProgress.Note("warning: " + note);
    mProgress.Note(state ? fmt::format("going on behind frame {}", state->frame)
                         : "no checkpoint to go on from: starting at the first frame");
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
          mProgress.Error(mSimulation.FileFailure());
          return kExitFile;
        case FrameOutcome::OutOfMemory:
          mProgress.Error(mSimulation.MemoryRefusal());
          return kExitMemory;
      }
      if (frame == first) DescribeScenes();
      for (const auto& scene : mSimulation.Scenes()) MeasureScene(*scene, mNames, record);
      const std::string broken = FindNonFinite(record);
      if (!broken.empty()) {
        mProgress.Error(fmt::format("frame {}: {} is no longer finite", frame, broken));
        return kExitNonFinite;
      }
      if (mSelected.Contains(frame)) {
        mExporter.Write(frame, mSimulation.Scenes());
        mStatistics.WriteFrame(record);
        ++mFramesWritten;
      }
      mCheckpoints.FrameDone({frame, mFramesWritten}, mSimulation);
      mProgress.EndFrame(record);
    }
    return kExitDone;
  }

  void DescribeScenes() {
    std::string text;
    for (const auto& scene : mSimulation.Scenes()) text += DescribeSolvers(*scene);
    if (text.empty()) return;
    text.pop_back();
    mProgress.Note(text);
  }

  /// What ended the run need not cost more than the frame in work.
  void KeepNewestState() {
    if (const std::optional<i32> kept = mCheckpoints.WriteNewest())
      mProgress.Note(fmt::format("--resume goes on behind frame {}", *kept));
  }

  void PrintWarnings() {
    for (const std::string& warning : mSimulation.Warnings()) mProgress.Note("warning: " + warning);
    for (const std::string& warning : {mStatistics.Warning(), mCheckpoints.Warning()})
      if (!warning.empty()) mProgress.Note("warning: " + warning);
  }

  const RunOptions& mOptions;
  const fs::path mOut;
  Simulation mSimulation;
  const FrameRange mSelected;
  Progress mProgress;
  const NodeNames mNames;
  const Exporter mExporter;
  Checkpoints mCheckpoints;
  const std::optional<RunState> mResumed;
  StatisticsFile mStatistics;
  i32 mFramesWritten = 0;
};

}  // namespace

int RunScene(const RunOptions& options) {
  host::InstallInterruptHandlers();
  if (options.threads > 0) host::SetThreadCount(options.threads);
  Diagnostics diagnostics;
  std::optional<LoadedScene> scene = LoadScene(options.scene, diagnostics, options.overrides);
  if (!options.quiet || !scene) diagnostics.Print();
  if (!scene) return kExitInvalidScene;
  const fs::path out = options.out.empty() ? fs::path("out") / options.scene.stem() : options.out;
  scene->document->folder = CacheFolderOf(out).string();
  return Run(*scene, options, out).Execute();
}

}  // namespace MELDO_GLOBAL::app
