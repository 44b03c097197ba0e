// `sulva bake`: the motion of a run's rigid bodies, to be played again.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::app {

struct BakeOptions {
  std::filesystem::path scene;
  std::filesystem::path out;   ///< the run's output folder; empty for out/<name of the scene file>
  std::filesystem::path file;  ///< to write; empty for bodies.glb in the output folder
  std::vector<std::string> overrides;
};

/// Writes the file and answers the exit code.
int RunBake(const BakeOptions& options);

}  // namespace MELDO_GLOBAL::app
