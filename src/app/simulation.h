// The scenes of a document, run frame by frame.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/frame_record.h"
#include "app/memory_limit.h"
#include "app/run_arguments.h"
#include "framework/scene.h"
#include "host/document.h"

namespace MELDO_GLOBAL::app {

/// First and last frame, both included.
struct FrameRange {
  i32 first = 0;
  i32 last = 0;
  bool Contains(i32 frame) const { return first <= frame && frame <= last; }
};

/// The selected part of a range. Throws CommandError (kExitUsage) where it is reversed or leads out
/// of the range.
FrameRange SelectFrames(const FrameRange& range, const FrameSelection& selection);

enum class FrameOutcome { Done, Interrupted, OutOfMemory };

/// Owns one scene for every server node of a document.
class Simulation {
 public:
  /// `memoryLimit` in bytes.
  Simulation(host::Document& document, const std::vector<host::BaseNode*>& servers,
             u64 memoryLimit);

  /// The frames that are simulated: of a server that follows the preview range that range, else its
  /// own first and last frame; of several servers all frames that one of them simulates.
  FrameRange Range() const;

  /// Evaluates a frame, which comes right after the last one, and fills what the clocks say of it.
  FrameOutcome Evaluate(i32 frame, FrameRecord& record);

  /// Prints a line for every object that runs to standard output: frame, substep, stage, name.
  void PrintTrace();

  const std::vector<std::unique_ptr<MELDO_SULVA::Scene>>& Scenes() const { return mScenes; }
  /// Why the last evaluation was out of memory.
  const std::string& MemoryRefusal() const { return mGuard.Refusal(); }
  /// One sentence for each object that never ran and knows why.
  std::vector<std::string> InactiveWarnings() const;

 private:
  host::Document& mDocument;
  MemoryGuard mGuard;
  std::vector<std::unique_ptr<MELDO_SULVA::Scene>> mScenes;
};

/// Largest resident memory of this process so far, bytes.
u64 PeakMemory();

}  // namespace MELDO_GLOBAL::app
