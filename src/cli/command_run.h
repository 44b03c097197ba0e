// `sulva run`: simulates a scene.
#pragma once
#include <filesystem>
#include <optional>
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
  u64 memory = 0;  ///< bytes; 0 takes what is free
  CheckpointPlan checkpoint;
  i32 kept = 2;  ///< checkpoints that stay; 0 keeps all
  bool resume = false;
  bool restart = false;
  std::optional<i32> from;     ///< with resume: the frame behind which a run in `base` is left
  std::filesystem::path base;  ///< empty for out/<name of the scene file>
  bool allowOutside = false;   ///< files may be written outside of `out`
  bool strict = false;  ///< a warning makes the exit code 3
};

/// Runs a scene and answers the exit code. Writes statistics and exports under `out`.
int RunScene(const RunOptions& options);

}  // namespace MELDO_GLOBAL::app
