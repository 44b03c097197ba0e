// stats.jsonl: one JSON object a frame and a summary at the end.
#pragma once
#include <filesystem>
#include <string>

#include "io/frame_log.h"
#include "io/frame_record.h"

namespace MELDO_GLOBAL::app {

/// The line of a frame, without the newline.
std::string FormatFrame(const FrameRecord& record);
/// The last line, without the newline.
std::string FormatSummary(i32 frames, double wallSeconds, int exitCode,
                          const std::vector<std::string>& warnings = {});

/// The statistics file, to which lines are added as frames are done, each at once. A file that
/// can't be written is told once, as a warning, and never ends a run. What an earlier run left
/// stays until there is a frame to write.
class StatisticsFile {
 public:
  explicit StatisticsFile(std::filesystem::path path) : mLog(std::move(path)) {}
  /// Goes on behind a frame, up to which the run wrote `expected` lines; fewer are a warning. Lines
  /// of later frames stay, since those frames would give the same ones.
  void GoOn(i32 frame, i32 expected);
  void WriteFrame(const FrameRecord& record);
  /// Ends the file with all that its frames warned of, and `warnings`, which belong to none.
  void WriteSummary(i32 frames, double wallSeconds, int exitCode,
                    const std::vector<std::string>& warnings = {});
  /// Flushes it to the disk.
  void Sync();
  /// The frames that the file tells of, as long as it could be written; else `frames`.
  i32 Count(i32 frames) const { return mWarning.empty() && mIsOurs ? mLog.Count() : frames; }
  /// What went wrong, as a warning; empty when all was written.
  const std::string& Warning() const { return mWarning; }

 private:
  /// Runs what may throw a FileError; nothing behind a failure.
  template <class Work>
  void Try(Work&& work);
  void StartIfNew();

  FrameLog mLog;
  bool mIsOurs = false;  ///< no longer an earlier run's
  bool mHasFailed = false;
  std::string mWarning;
};

}  // namespace MELDO_GLOBAL::app
