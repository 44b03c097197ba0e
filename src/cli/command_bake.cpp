#include "cli/command_bake.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "fluids/mesh/multi_mesh.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "io/body_animation.h"
#include "run/manifest.h"
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

/// Each server counts in units of its own: all places are to be in those of the first one.
void ToOneScale(const Simulation& simulation, std::vector<BodyPath>& paths) {
  const Vec3d first = simulation.Scenes().front()->mDomain.worldToSim;
  for (const auto& scene : simulation.Scenes()) {
    const Vec3d own = scene->mDomain.worldToSim;
    if (own == first) continue;
    std::vector<MELDO_SULVA::Mesh*> meshes;
    for (const auto& [id, object] : scene->List(MELDO_SULVA::kListGeometry))
      MELDO_SULVA::CollectMeshes(object.get(), meshes);
    for (BodyPath& path : paths)
      if (std::any_of(meshes.begin(), meshes.end(), [&](const MELDO_SULVA::Mesh* mesh) {
            return mesh->ObjectName() == path.name;
          }))
        for (Vec3d& centre : path.centres) centre = centre * first / own;
  }
}

/// What the manifest of the run in `out` says against writing `baked` to a file of this scene.
void CheckRun(const LoadedScene& scene, const fs::path& out, const fs::path& file,
              const Baked& baked) {
  const std::optional<ManifestContent> manifest = ReadManifest(out);
  if (!manifest) return;
  if (manifest->head.simulation != scene.simulation)
    fmt::print(stderr,
               "{}: warning: it isn't the scene of the run in {} any more; its bodies may have "
               "other shapes\n",
               host::Escaped(scene.path.string()), host::Escaped(out.string()));
  if (!manifest->end) return;
  for (const WrittenFile& listed : manifest->end->files)
    if (fs::weakly_canonical(out / listed.path) == fs::weakly_canonical(file) &&
        listed.sum != ChecksumOf(baked.bytes))
      throw CommandError(kExitUsage, fmt::format("{} belongs to the run, whose bodies moved in "
                                                 "another way; name another one with --file",
                                                 file.string()));
}

}  // namespace

WrittenFile Baked::WriteTo(const fs::path& file) const {
  try {
    host::WriteFileAtomically(file, bytes);
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
  return {file, bytes.size(), ChecksumOf(bytes)};
}

Baked Bake(LoadedScene& loaded, const fs::path& out) {
  const fs::path statistics = out / "stats.jsonl";
  BodyPaths told = ReadBodyPaths(statistics);
  std::vector<BodyPath>& paths = told.paths;
  if (paths.empty())
    throw CommandError(kExitUsage,
                       fmt::format("{} tells of no rigid bodies; an obstacle with a mass is one",
                                   statistics.string()));
  Simulation simulation(*loaded.document, loaded.servers, MachineMemory());
  const i32 first = simulation.Range().first;
  CheckBeginning(told, first, statistics);
  loaded.document->SetFrame(first);
  for (const auto& scene : simulation.Scenes()) scene->LookAtOrder();  // which reads its scale
  ToOneScale(simulation, paths);
  const Vec3d worldToSim = simulation.Scenes().front()->mDomain.worldToSim;
  BeginWithKeys(*loaded.document, first, worldToSim, paths);
  EncodedBodies encoded = EncodeBodies(*loaded.document, paths, worldToSim);
  return {std::move(encoded.bytes), encoded.bodies, paths.front().frames.size()};
}

int RunBake(const BakeOptions& options) {
  Diagnostics diagnostics;
  std::optional<LoadedScene> loaded = LoadScene(options.scene, diagnostics, options.overrides);
  diagnostics.Print();
  if (!loaded) return kExitInvalidScene;
  const fs::path out = options.out.empty() ? fs::path("out") / options.scene.stem() : options.out;
  const fs::path file = options.file.empty() ? out / "bodies.glb" : options.file;
  const Baked baked = Bake(*loaded, out);
  CheckRun(*loaded, out, file, baked);
  baked.WriteTo(file);
  fmt::print("{}: {} bod{}, {} frames\n", host::Escaped(file.string()), baked.bodies,
             baked.bodies == 1 ? "y" : "ies", baked.frames);
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
