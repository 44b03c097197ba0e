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

/// "512M", "8GB", "1.5T" or plain bytes, in units of 1024; empty where it is not a size above 0.
std::optional<u64> ParseByteCount(const std::string& text);

}  // namespace MELDO_GLOBAL::app
