// The scenes of a document, run frame by frame.
#pragma once
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/sulva_scene.h"
#include "host/document.h"
#include "io/frame_record.h"
#include "run/idle_watch.h"
#include "run/memory_limit.h"
#include "run/run_arguments.h"

namespace MELDO_GLOBAL {
struct WrittenFile;
namespace MELDO_SULVA {
class Cache_OperatorBase;
struct CacheRun;
}  // namespace MELDO_SULVA
}  // namespace MELDO_GLOBAL

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

enum class FrameOutcome { Done, Interrupted, OutOfMemory, FileFailure };

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

  /// Saves or restores document and scenes as they stand behind `frame`.
  void Persist(MELDO_SULVA::StateArchive& archive, i32 frame);
  /// Calls f(cache) for every cache of the scenes, enabled or not.
  void ForEachCache(const std::function<void(MELDO_SULVA::Cache_OperatorBase&)>& f) const;

  /// Makes the objects of all nodes, and tells the caches of the run that they work in.
  void SetCacheRun(const MELDO_SULVA::CacheRun& run);
  /// The files of caches that stand for the last frame; forgets them.
  std::vector<WrittenFile> TakeWritten();

  /// Prints a line for every object that runs to standard output: frame, substep, stage, name.
  void PrintTrace();

  const host::Document& GetDocument() const { return mDocument; }
  const std::vector<std::unique_ptr<MELDO_SULVA::SulvaScene>>& Scenes() const { return mScenes; }
  /// Why the last evaluation was out of memory.
  const std::string& MemoryRefusal() const { return mGuard.Refusal(); }
  /// Which file couldn't be written or played, and why.
  const std::string& FileFailure() const { return mFileFailure; }
  /// Who worked in the last frame, and who didn't and why.
  IdleWatch& Watch() { return mWatch; }
  const IdleWatch& Watch() const { return mWatch; }
  /// One sentence for each object that never ran, knows why and wasn't told of before, and for each
  /// fault that no frame has told.
  std::vector<std::string> TakeWarnings();
  /// Whether a frame had a warning, in this run or in the one that it goes on from.
  bool HasWarned() const { return mHasWarned; }

 private:
  /// What a frame shows of objects that ought to work and don't, and of steps that are too long;
  /// each is told once.
  void AddWarnings(FrameRecord& record);
  /// Keeps how many cells the flow, as fast as it is now, crosses in the step that begins.
  void NoteCfl(const MELDO_SULVA::SulvaScene& scene);
  bool CheckCaches(const MELDO_SULVA::Scene& scene);

  host::Document& mDocument;
  MemoryGuard mGuard;
  std::string mFileFailure;
  double mCfl = 0;  ///< reached in this frame
  bool mHasWarned = false;
  bool mHasToldStep = false;  ///< of steps that are too long
  IdleWatch mWatch;
  std::vector<std::unique_ptr<MELDO_SULVA::SulvaScene>> mScenes;
};

/// Where a run into the folder `out` has the caches that name no folder of their own.
std::filesystem::path CacheFolderOf(const std::filesystem::path& out);

/// Largest resident memory of this process so far, bytes.
u64 PeakMemory();

}  // namespace MELDO_GLOBAL::app
