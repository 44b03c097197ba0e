#include "run/run_history.h"

#include <fmt/format.h>

#include "cache/cache_contents.h"
#include "cache/cache_operator.h"
#include "host/exit_codes.h"
#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;
namespace fs = std::filesystem;

std::string ScenePathOf(const LoadedScene& scene) {
  std::error_code failed;
  const fs::path whole = fs::weakly_canonical(fs::absolute(scene.path), failed);
  return (failed ? scene.path : whole).string();
}

bool IsOfAnother(const ManifestContent& manifest, const LoadedScene& scene) {
  return manifest.head.fingerprint != scene.fingerprint &&
         manifest.head.scene != ScenePathOf(scene);
}

std::string CheckBeforeStart(const FolderUse& use, const LoadedScene& scene,
                             const Checkpoints& checkpoints) {
  if (use.restarts) return {};
  const std::string out = use.out.string();
  const std::optional<ManifestContent> manifest = ReadManifest(use.out);
  const bool isOther = manifest && IsOfAnother(*manifest, scene);
  const std::string other = manifest ? Shown(manifest->head.scene, 200) : std::string();
  if (isOther && use.isDefault)
    throw CommandError(kExitUsage, fmt::format("{} holds what {} made, another scene of this name; "
                                               "name another folder with --out, or write over it "
                                               "with --restart",
                                               out, other));
  if (checkpoints.HasAny() && !(manifest && manifest->end && manifest->end->IsWhole())) {
    const std::string place = manifest && !manifest->frames.empty()
                                  ? fmt::format(" behind frame {}", manifest->frames.back().frame)
                                  : std::string();
    throw CommandError(kExitUsage, fmt::format("{} holds a run that was cut short{}: go on with it "
                                               "by --resume, or start over by --restart",
                                               out, place));
  }
  return isOther ? fmt::format("{} held what {} made", out, other) : std::string();
}

void CheckFiles(const fs::path& out, const ManifestContent& manifest, i32 frame,
                const Simulation& simulation, std::vector<std::string>& notes) {
  const auto isBorne = [&](const fs::path& path) {
    bool borne = false;
    simulation.ForEachCache(
        [&](Cache_OperatorBase& cache) { borne = borne || cache.CanDoWithout(path); });
    return borne;
  };
  std::size_t missing = 0;
  std::string first;
  for (const ManifestFrame& line : manifest.frames) {
    if (line.frame > frame) break;
    for (const WrittenFile& file : line.files) {
      std::error_code failed;
      const fs::path path = out / file.path;
      if (fs::file_size(path, failed) == file.bytes && !failed) continue;
      const std::string what = fmt::format(
          "{} {}", path.string(), failed ? "is missing" : "has another size than the run gave it");
      if (HasCacheSuffix(path) && !isBorne(path))
        throw CommandError(kExitFile,
                           fmt::format("can't go on: {}; put it back, start over with --restart, "
                                       "or set go_on_after_failure of its cache",
                                       what));
      if (missing++ == 0) first = what;
    }
  }
  if (missing > 0)
    notes.push_back(missing == 1 ? first : fmt::format("{}, and {} more", first, missing - 1));
}

}  // namespace MELDO_GLOBAL::app
