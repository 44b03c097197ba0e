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
void CheckBeginning(const std::vector<BodyPath>& paths, i32 first, const fs::path& statistics) {
  for (const BodyPath& path : paths)
    if (path.frames.front() != first)
      throw CommandError(kExitFile,
                         fmt::format("{}: the body \"{}\" first stands in frame {}, not in the "
                                     "scene's first one, {}; bake a run of all frames",
                                     statistics.string(), path.name, path.frames.front(), first));
}

}  // namespace

int RunBake(const BakeOptions& options) {
  Diagnostics diagnostics;
  std::optional<LoadedScene> loaded = LoadScene(options.scene, diagnostics, options.overrides);
  diagnostics.Print();
  if (!loaded) return kExitInvalidScene;
  const fs::path out = options.out.empty() ? fs::path("out") / options.scene.stem() : options.out;
  const fs::path statistics = out / "stats.jsonl";
  const std::vector<BodyPath> paths = ReadBodyPaths(statistics);
  if (paths.empty())
    throw CommandError(kExitUsage,
                       fmt::format("{} tells of no rigid bodies; an obstacle with a mass is one",
                                   statistics.string()));
  Simulation simulation(*loaded->document, loaded->servers, MachineMemory());
  CheckBeginning(paths, simulation.Range().first, statistics);
  loaded->document->SetFrame(simulation.Range().first);
  MELDO_SULVA::SulvaScene& scene = *simulation.Scenes().front();
  scene.LookAtOrder();  // which reads its scale
  const fs::path file = options.file.empty() ? out / "bodies.glb" : options.file;
  try {
    host::WriteFileAtomically(file,
                              EncodeBodies(*loaded->document, paths, scene.mDomain.worldToSim));
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
  fmt::print("{}: {} bod{}, {} frames\n", file.string(), paths.size(),
             paths.size() == 1 ? "y" : "ies", paths.front().frames.size());
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
