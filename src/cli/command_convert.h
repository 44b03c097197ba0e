// `sulva convert`: particles, meshes and volumes from one format into another.
#pragma once
#include <string>

#include "run/run_arguments.h"

namespace MELDO_GLOBAL::app {

struct ConvertOptions {
  std::string from, to;  ///< files, or with a run of # a file per frame
  FrameSelection frames;
};

/// Writes each file anew in the format of the other name and prints a line for each to standard
/// output. Answers the exit code. Throws CommandError for names that don't fit (kExitUsage) and for
/// files that can't be read or written (kExitFile).
int RunConvert(const ConvertOptions& options);

}  // namespace MELDO_GLOBAL::app
