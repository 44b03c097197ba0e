// `sulva cache`: the files of a scene's caches.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::app {

struct CacheOptions {
  std::string action;  ///< "scan" or "delete"
  std::filesystem::path scene;
  std::filesystem::path out;  ///< the run's output folder; empty for out/<name of the scene file>
  std::string node;           ///< one cache of the scene; empty for all
  std::vector<std::string> overrides;
  bool yes = false;  ///< delete without a question
};

/// Scans or deletes the files of caches and answers the exit code.
int RunCache(const CacheOptions& options);

}  // namespace MELDO_GLOBAL::app
