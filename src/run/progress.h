// What a run shows while it works.
#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "io/frame_record.h"

namespace MELDO_GLOBAL::app {

/// How progress is shown, on standard error.
enum class ProgressStyle {
  Bar,    ///< one line that is drawn over: for a terminal
  Lines,  ///< a plain line a frame
  Quiet,  ///< nothing but errors
};

/// Bar on a terminal, lines elsewhere.
ProgressStyle StyleOfStandardError();

/// Seconds as "0:42" or "1:02:03".
std::string FormatDuration(double seconds);
/// A count with three digits: "812", "1.23M".
std::string FormatCount(double count);

/// What a picture took.
struct PictureTime {
  double seconds = 0;
  double setUpSeconds = 0;  ///< part of it: before the first ray
  double samples = 0;       ///< of media, on all rays
};

/// Shows the progress of a run. While it lives it takes the status line and the console messages
/// of the host.
class Progress {
 public:
  Progress(i32 firstFrame, i32 lastFrame, ProgressStyle style);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void BeginFrame(i32 frame);
  void EndFrame(const FrameRecord& record);
  /// Shows what a frame's work is at, in place of the pipeline's stage, and the time left as the
  /// caller reckons it; below 0 if it can't tell yet.
  void ShowWork(std::string_view work, double secondsLeft);
  /// Prints a line for a picture that is written; nothing on a terminal, where the bar tells it.
  void PictureDone(i32 frame, const PictureTime& time, double secondsLeft);
  /// Prints a line for the user; nothing when quiet.
  void Note(std::string_view text);
  /// Prints an error, quiet or not.
  void Error(std::string_view text);

 private:
  void OnStatus(std::string_view text);
  void Draw();
  /// Cells and particles of the last frame, for a line.
  std::string Sizes(bool withCells) const;
  void Erase();
  double SecondsLeft() const;
  void DrawNowAndThen();

  using Clock = std::chrono::steady_clock;
  const i32 mFirst, mLast;
  const ProgressStyle mStyle;
  const Clock::time_point mStart = Clock::now();
  Clock::time_point mDrawn{};
  i32 mFrame;
  i32 mFramesDone = 0;
  std::string mStage;
  std::string mSubstep;
  i64 mCells = 0, mParticles = 0;
  std::optional<double> mSecondsLeft;  ///< as the caller told
  bool mIsDrawn = false;
};

}  // namespace MELDO_GLOBAL::app
