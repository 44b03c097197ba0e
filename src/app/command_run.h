// `sulva run`: simulates a scene.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::app {

/// The part of a range that "A:B", "A:", ":B" or "A" selects.
struct FrameSelection {
  std::optional<i32> first;
  std::optional<i32> last;
};
/// Empty where the text is none of the four forms, or A is greater than B.
std::optional<FrameSelection> ParseFrames(const std::string& text);

/// "512M", "8GB", "1.5T" or plain bytes, in units of 1024; empty where it is not a size above 0.
std::optional<u64> ParseByteCount(const std::string& text);

struct RunOptions {
  std::filesystem::path scene;
  FrameSelection frames;
  i32 threads = 0;            ///< 0 takes as many as the machine offers
  std::filesystem::path out;  ///< empty for out/<name of the scene file>
  std::vector<std::string> overrides;
  bool quiet = false;
  bool trace = false;
  u64 memory = 0;  ///< bytes; 0 takes the machine's
};

/// Runs a scene and answers the exit code. Writes statistics and exports under `out`.
int RunScene(const RunOptions& options);

}  // namespace MELDO_GLOBAL::app
