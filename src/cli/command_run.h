// `sulva run`: simulates a scene.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "run/run_arguments.h"

namespace MELDO_GLOBAL::app {

struct RunOptions {
  std::filesystem::path scene;
  FrameSelection frames;
  i32 threads = 0;            ///< 0 takes as many as the machine offers
  std::filesystem::path out;  ///< empty for out/<name of the scene file>
  std::vector<std::string> overrides;
  bool quiet = false;
  bool trace = false;
  u64 memory = 0;       ///< bytes; 0 takes the machine's
  i32 checkpoint = 10;  ///< frames from one checkpoint to the next; 0 takes none
  bool resume = false;
};

/// Runs a scene and answers the exit code. Writes statistics and exports under `out`.
int RunScene(const RunOptions& options);

}  // namespace MELDO_GLOBAL::app
