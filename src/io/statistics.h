// stats.jsonl: one JSON object a frame and a summary at the end.
#pragma once
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "io/frame_record.h"

namespace MELDO_GLOBAL::app {

/// The line of a frame, without the newline.
std::string FormatFrame(const FrameRecord& record);
/// The last line, without the newline.
std::string FormatSummary(i32 frames, double wallSeconds, int exitCode);

/// Appends lines to the statistics file as frames are done, each flushed at once. A file that can't
/// be written is told once, as a warning, and never ends a run.
class StatisticsFile {
 public:
  /// Goes on behind the first `keep` lines of the file, which drops the rest; a file with fewer is
  /// a warning. Makes its folder.
  explicit StatisticsFile(std::filesystem::path path, i32 keep = 0);
  void WriteFrame(const FrameRecord& record) { WriteLine(FormatFrame(record)); }
  void WriteSummary(i32 frames, double wallSeconds, int exitCode) {
    WriteLine(FormatSummary(frames, wallSeconds, exitCode));
  }
  /// What went wrong, as a warning; empty when all was written.
  const std::string& Warning() const { return mWarning; }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  void WriteLine(const std::string& line);
  void Fail();

  std::filesystem::path mPath;
  std::unique_ptr<std::FILE, Close> mFile;
  u64 mWritten = 0;  ///< bytes of whole lines
  std::string mWarning;
};

}  // namespace MELDO_GLOBAL::app
