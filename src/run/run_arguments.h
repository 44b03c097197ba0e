// Arguments of the run command that are more than a word or a number.
#pragma once
#include <optional>
#include <string>

#include "host/types.h"

namespace MELDO_GLOBAL::app {

/// The part of a range that "A:B", "A:", ":B" or "A" selects.
struct FrameSelection {
  std::optional<i32> first;
  std::optional<i32> last;
};
/// Empty where the text is none of the four forms, or A is greater than B.
std::optional<FrameSelection> ParseFrames(const std::string& text);

/// Width and height of a picture in pixels.
struct PictureSize {
  i32 width = 0;
  i32 height = 0;
};
/// "640x360"; empty where it isn't two whole numbers from 1 to 16384.
std::optional<PictureSize> ParseSize(const std::string& text);

/// When a run writes checkpoints.
struct CheckpointPlan {
  i32 frames = 10;     ///< from one to the next; 0 doesn't count them
  double minutes = 5;  ///< from one to the next; 0 doesn't look at the clock
  /// Whatever these say, they take no more than this share of the run's time; 1 doesn't care.
  double mostShare = 0.05;
  bool IsOff() const { return frames <= 0 && minutes <= 0; }
};
/// "20", "5m" or both, "20,5m"; "0" takes none. What is asked for is done, whatever it costs.
std::optional<CheckpointPlan> ParseCheckpoints(const std::string& text);

/// "512M", "8GB", "1.5T" or plain bytes, in units of 1024; empty where it is not a size above 0.
std::optional<u64> ParseByteCount(const std::string& text);

}  // namespace MELDO_GLOBAL::app
