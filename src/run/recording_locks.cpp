#include "run/recording_locks.h"

#include <fmt/format.h>

#include <set>

#include "cache/cache_operator.h"
#include "host/atomic_file.h"
#include "host/output_guard.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

RecordingLocks LockRecordings(const Simulation& simulation, const fs::path& out,
                              const std::string& purpose) {
  // Two caches of one scene may share their names: it was told that they overwrite each other.
  std::set<fs::path> places;
  std::error_code failed;
  const fs::path own = fs::weakly_canonical(fs::absolute(out), failed);
  simulation.ForEachCache([&](MELDO_SULVA::Cache_OperatorBase& cache) {
    const CacheName& names = cache.ReadNames();
    if (!cache.Records() || names.GetFolder().empty()) return;
    std::string stem;
    names.FileStem(stem, 0, false);
    const fs::path place = fs::weakly_canonical(fs::absolute(names.GetFolder() / stem), failed);
    if (!failed && !host::IsBelow(place, own)) places.insert(place);
  });
  RecordingLocks locks;
  for (const fs::path& place : places) {
    host::MakeFolder(place.parent_path());
    locks.push_back(std::make_unique<host::FolderLock>(
        place.parent_path(), purpose, fmt::format(".{}.sulva-lock", place.filename().string())));
  }
  return locks;
}

}  // namespace MELDO_GLOBAL::app
