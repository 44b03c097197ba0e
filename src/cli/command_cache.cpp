#include "cli/command_cache.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "cache/cache_operator.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/folder_lock.h"
#include "run/recording_locks.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;
namespace fs = std::filesystem;

namespace {

std::string FolderOf(const Cache_OperatorBase& cache) {
  return host::Escaped(cache.FileNames().GetFolder().string());
}

std::string NameOf(const Cache_OperatorBase& cache) { return host::Escaped(cache.mName); }

std::string Files(i32 count) { return count == 1 ? "1 file" : fmt::format("{} files", count); }

void TellNoFiles(const Cache_OperatorBase& cache) {
  fmt::print("cache \"{}\": no files in {}\n", NameOf(cache), FolderOf(cache));
}

void Scan(Cache_OperatorBase& cache) {
  cache.UpdateStatistics();
  CacheFolderInfo info;
  cache.ScanCacheFolder(info);
  if (!info.found) return TellNoFiles(cache);
  fmt::print("cache \"{}\": {} in {}\n{}{}", NameOf(cache), Files(info.fileCount), FolderOf(cache),
             StatisticsOf(info), cache.FileStatistics());
}

bool AgreesToDelete(const Cache_OperatorBase& cache, const CacheFolderInfo& info) {
  if (!::isatty(STDIN_FILENO))
    throw CommandError(kExitUsage, "cache delete: add --yes where no one can be asked");
  fmt::print(stderr, "cache \"{}\", {} in {}\n", NameOf(cache), Files(info.fileCount),
             FolderOf(cache));
  fmt::print(stderr, "Really? Deletion cannot be undone! Choose wisely.. [y/N] ");
  std::string answer;
  return std::getline(std::cin, answer) && (answer == "y" || answer == "yes");
}

void Delete(Cache_OperatorBase& cache, bool yes) {
  cache.UpdateStatistics();
  CacheFolderInfo info;
  cache.ScanCacheFolder(info);
  if (!info.found) return TellNoFiles(cache);
  if (!yes && !AgreesToDelete(cache, info)) return;
  if (const std::string problem = cache.DeleteCacheFiles(); !problem.empty())
    throw CommandError(kExitFile, problem);
  fmt::print("cache \"{}\": {} deleted\n", NameOf(cache), Files(info.fileCount));
}

/// What a run is about to write or play isn't deleted.
RecordingLocks LockToDelete(const CacheOptions& options, const Simulation& simulation,
                            const fs::path& out) {
  if (options.action != "delete") return {};
  std::error_code failed;
  try {
    RecordingLocks locks = LockRecordings(simulation, out, "cache delete");
    if (fs::is_directory(out, failed))
      locks.push_back(std::make_unique<host::FolderLock>(out, "cache delete"));
    return locks;
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
}

}  // namespace

int RunCache(const CacheOptions& options) {
  Diagnostics diagnostics;
  std::optional<LoadedScene> loaded = LoadScene(options.scene, diagnostics, options.overrides);
  diagnostics.Print();
  if (!loaded) return kExitInvalidScene;
  const fs::path out = options.out.empty() ? fs::path("out") / options.scene.stem() : options.out;
  loaded->document->folder = CacheFolderOf(out).string();
  Simulation simulation(*loaded->document, loaded->servers, MachineMemory());
  for (const auto& scene : simulation.Scenes()) scene->Synchronise(scene->GetDocument());
  const RecordingLocks locks = LockToDelete(options, simulation, out);
  bool any = false;
  for (const auto& scene : simulation.Scenes()) {
    for (const auto& [id, object] : scene->List(kListCaches)) {
      auto* cache = dynamic_cast<Cache_OperatorBase*>(object.get());
      if (!cache || (!options.node.empty() && cache->mName != options.node)) continue;
      any = true;
      options.action == "delete" ? Delete(*cache, options.yes) : Scan(*cache);
    }
  }
  if (!any)
    throw CommandError(kExitUsage, options.node.empty()
                                       ? "the scene has no cache"
                                       : fmt::format("no cache is named '{}'", options.node));
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
