// `sulva why`: tells frame by frame why a node ran or slept.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "run/run_arguments.h"

namespace MELDO_GLOBAL::app {

struct WhyOptions {
  std::filesystem::path scene;
  std::string node;  ///< name or path
  FrameSelection frames;
  i32 threads = 0;  ///< 0 takes as many as the machine offers
  u64 memory = 0;   ///< bytes; 0 takes the machine's
  std::vector<std::string> overrides;
};

/// Simulates a scene without writing a file and prints a line a frame to standard output. Answers
/// the exit code. Throws CommandError (kExitUsage) for a node that isn't there.
int RunWhy(const WhyOptions& options);

}  // namespace MELDO_GLOBAL::app
