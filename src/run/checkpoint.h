// Checkpoints of a run: what is needed to go on behind a frame and end with the same bytes.
#pragma once
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "run/checkpoint_header.h"
#include "run/manifest.h"
#include "run/run_arguments.h"
#include "run/simulation.h"

namespace MELDO_GLOBAL::app {

/// The name of the file that stands for the time before the first frame.
inline constexpr std::string_view kStartCheckpoint = "start";

/// Writes and restores the checkpoints of one run, in a folder of their own. Those of an earlier
/// run stay until this one has its first.
///
/// Besides those that are due, states are written beside as often as that costs little, so that an
/// interrupt, which cuts a frame short, loses little: that state becomes a checkpoint then. A
/// killed process leaves it beside, where it counts like a checkpoint as long as it is whole.
class Checkpoints {
 public:
  /// Called before a checkpoint gets its name, so that what it stands on is on the disk before it.
  using Sync = std::function<void()>;
  /// Called before anything is changed by a run that goes on, with the state that it goes on from.
  using Check = std::function<void(const RunState&)>;

  /// `kept`: how many checkpoints stay, the newest; 0 keeps all.
  Checkpoints(std::filesystem::path folder, u64 scene, const CheckpointPlan& plan, i32 kept = 2,
              Sync sync = {});

  /// Whether there is a checkpoint, or a state that was written beside, of whatever run.
  bool HasAny() const { return !List().empty(); }

  /// Before the first frame of a run that doesn't go on: notes what a run that goes on without a
  /// checkpoint has to know.
  void Start(Simulation& simulation);
  /// Restores the newest whole state of the run that `manifest`, if there is one, tells of, and
  /// drops what lies behind it; nothing without one, and then what the run had recorded is dropped.
  /// `notes` tell of those that are damaged. Throws CommandError (kExitFile), with all files as
  /// they were, where it is of another scene or version or can't be read.
  std::optional<RunState> Restore(Simulation& simulation,
                                  const std::optional<ManifestContent>& manifest,
                                  const Check& check, std::vector<std::string>& notes);

  /// Restores the newest whole checkpoint of this scene at or before a frame, and leaves all files
  /// as they are; nothing without one. Throws CommandError (kExitFile) where the state in it
  /// doesn't fit: the simulation is then good for nothing.
  std::optional<RunState> RestoreUpTo(i32 last, Simulation& simulation) const;

  /// Restores the checkpoint behind a frame of a run in another folder, of whatever parameters, and
  /// writes nothing. Throws CommandError (kExitFile) where there is none, or its nodes aren't those
  /// of the scene, name by name.
  static void RestoreBranch(const std::filesystem::path& from, i32 frame, Simulation& simulation);
  /// Writes a state of what `RestoreBranch` restored, as the first one of this run.
  RunState StartBranch(i32 frame, Simulation& simulation);

  /// After a frame.
  void FrameDone(const RunState& run, Simulation& simulation);
  /// Makes a checkpoint of the newest state; the frame of the newest checkpoint then.
  std::optional<i32> WriteNewest();
  /// Why a checkpoint couldn't be written, since this was last asked; empty if all were.
  std::string TakeWarning() { return std::exchange(mWarning, {}); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Found {
    i32 frame;
    bool isPart;  ///< written beside
    std::filesystem::path path;
  };
  std::vector<Found> List() const;
  std::filesystem::path PathOf(i32 frame) const;
  std::filesystem::path StartPath() const;
  void WriteHeader(HyperFile& file, const RunState& run, const Simulation& simulation) const;
  void RestoreStart(Simulation& simulation);
  void Take(const RunState& run, Simulation& simulation);
  void Write();
  void RemoveOthers();
  bool IsAffordable() const;

  std::filesystem::path mFolder;
  u64 mScene;
  CheckpointPlan mPlan;
  i32 mKept;
  Sync mSync;
  i32 mFramesSince = 0;                ///< the last one was written
  std::set<i32> mOwn;                  ///< frames of this run's checkpoints
  std::unique_ptr<HyperFile> mNewest;  ///< the newest state, whole beside its place; or none
  i32 mNewestFrame = 0;
  const Clock::time_point mStart = Clock::now();
  Clock::time_point mTaken = mStart, mWritten = mStart;
  double mTakeCost = 0, mWriteCost = 0;  ///< seconds that the last one took
  double mSpent = 0;                     ///< seconds for all
  std::string mWarning;
};

}  // namespace MELDO_GLOBAL::app
