// `sulva cache-setup`: a scene that records itself.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::app {

struct CacheSetupOptions {
  std::filesystem::path scene;
  std::vector<std::string> nodes;      ///< what is cached; empty for all that is simulated
  std::vector<std::string> overrides;  ///< `--set`
  std::filesystem::path out;           ///< empty writes the scene itself, with a copy beside it
};

/// Writes a scene with cachers, and the file's name to standard output; answers the exit code.
int RunCacheSetup(const CacheSetupOptions& options);

}  // namespace MELDO_GLOBAL::app
