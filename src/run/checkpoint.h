// Checkpoints of a run: what is needed to go on behind a frame and end with the same bytes.
#pragma once
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cache/hyper_file.h"
#include "run/simulation.h"

namespace MELDO_GLOBAL::app {

inline constexpr u32 kCheckpointIdent = IdentOf("svcp");

/// The name of the file that stands for the time before the first frame.
inline constexpr std::string_view kStartCheckpoint = "start";

/// Where a run stands after a frame.
struct RunState {
  i32 frame = 0;
  i32 framesWritten = 0;  ///< lines of the statistics
};

/// What precedes the state in a checkpoint.
struct CheckpointHeader {
  std::string version;  ///< of the program
  u64 scene = 0;        ///< fingerprint of the scene
  RunState run;
};
void WriteCheckpointHeader(HyperFile& file, const CheckpointHeader& header);
bool ReadCheckpointHeader(HyperFile& file, CheckpointHeader& header);

/// Writes and restores the checkpoints of one run, in a folder of their own; the newest two are
/// kept.
///
/// Besides those that are due, states are written beside as often as that costs little, so that an
/// interrupt, which cuts a frame short, loses little: that state becomes a checkpoint then.
class Checkpoints {
 public:
  /// `every`: frames from one checkpoint to the next; 0 takes none.
  Checkpoints(std::filesystem::path folder, u64 scene, i32 every);

  /// Before the first frame of a run that doesn't go on: removes the checkpoints of another run,
  /// and notes what a run that goes on without a checkpoint has to know.
  void Start(Simulation& simulation);
  /// Restores the newest whole checkpoint and drops what lies behind it; nothing without one, and
  /// then what the run had recorded is dropped.
  /// `notes` tell of those that are damaged. Throws CommandError (kExitFile), with all files as
  /// they were, where it is of another scene or version or can't be read.
  std::optional<RunState> Restore(Simulation& simulation, std::vector<std::string>& notes);

  /// Restores the newest whole checkpoint of this scene at or before a frame, and leaves all files
  /// as they are; nothing without one. Throws CommandError (kExitFile) where the state in it
  /// doesn't fit: the simulation is then good for nothing.
  std::optional<RunState> RestoreUpTo(i32 last, Simulation& simulation) const;

  /// After a frame. A checkpoint that can't be written is a warning, told once.
  void FrameDone(const RunState& run, Simulation& simulation);
  /// Makes a checkpoint of the newest state; the frame of the newest checkpoint then.
  std::optional<i32> WriteNewest();
  const std::string& Warning() const { return mWarning; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Found {
    i32 frame;
    std::filesystem::path path;
  };
  std::vector<Found> List() const;
  std::filesystem::path PathOf(i32 frame) const;
  std::filesystem::path StartPath() const;
  void RestoreStart(Simulation& simulation);
  void Take(const RunState& run, Simulation& simulation);
  void Write();

  std::filesystem::path mFolder;
  u64 mScene;
  i32 mEvery;
  i32 mFramesSince = 0;  ///< the last one was written
  std::optional<i32> mWrittenFrame;
  std::unique_ptr<HyperFile> mNewest;  ///< the newest state, whole beside its place; or none
  i32 mNewestFrame = 0;
  Clock::time_point mTaken = Clock::now();
  double mCost = 0;  ///< seconds to take the last state
  std::string mWarning;
};

}  // namespace MELDO_GLOBAL::app
