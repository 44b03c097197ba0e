#include "cli/command_bake.h"

#include <fmt/format.h>

#include "host/atomic_file.h"
#include "host/exit_codes.h"
#include "io/body_animation.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// The bodies' shapes are those of the frame in which they began.
void CheckBeginning(const BodyPaths& told, i32 first, const fs::path& statistics) {
  if (told.firstFrame != first)
    throw CommandError(kExitFile,
                       fmt::format("{}: it begins with frame {}, not with the scene's first one, "
                                   "{}; bake a run of all frames",
                                   statistics.string(), told.firstFrame, first));
}

}  // namespace

Baked Bake(LoadedScene& loaded, const BakeOptions& options) {
  const fs::path out = options.out.empty() ? fs::path("out") / options.scene.stem() : options.out;
  const fs::path statistics = out / "stats.jsonl";
  BodyPaths told = ReadBodyPaths(statistics);
  std::vector<BodyPath>& paths = told.paths;
  if (paths.empty())
    throw CommandError(kExitUsage,
                       fmt::format("{} tells of no rigid bodies; an obstacle with a mass is one",
                                   statistics.string()));
  Simulation simulation(*loaded.document, loaded.servers, MachineMemory());
  CheckBeginning(told, simulation.Range().first, statistics);
  loaded.document->SetFrame(simulation.Range().first);
  MELDO_SULVA::SulvaScene& scene = *simulation.Scenes().front();
  scene.LookAtOrder();  // which reads its scale
  BeginWithKeys(*loaded.document, simulation.Range().first, scene.mDomain.worldToSim, paths);
  const fs::path file = options.file.empty() ? out / "bodies.glb" : options.file;
  try {
    const std::string bytes = EncodeBodies(*loaded.document, paths, scene.mDomain.worldToSim);
    host::WriteFileAtomically(file, bytes);
    return {{file, bytes.size(), ChecksumOf(bytes)}, paths.size(), paths.front().frames.size()};
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
}

int RunBake(const BakeOptions& options) {
  Diagnostics diagnostics;
  std::optional<LoadedScene> loaded = LoadScene(options.scene, diagnostics, options.overrides);
  diagnostics.Print();
  if (!loaded) return kExitInvalidScene;
  const Baked baked = Bake(*loaded, options);
  fmt::print("{}: {} bod{}, {} frames\n", baked.file.path.string(), baked.bodies,
             baked.bodies == 1 ? "y" : "ies", baked.frames);
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
