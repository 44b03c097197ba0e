// What runs before have left in an output folder.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "run/checkpoint.h"
#include "run/manifest.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

/// How a run takes its folder.
struct FolderUse {
  std::filesystem::path out;
  bool isDefault = false;  ///< nobody named it
  bool restarts = false;   ///< whatever is there
};

/// The scene file's path as a manifest has it.
std::string ScenePathOf(const LoadedScene& scene);

/// Whether another scene than this one has left the manifest; one that was moved is the same.
bool IsOfAnother(const ManifestContent& manifest, const LoadedScene& scene);

/// Before a run that starts over. Throws CommandError (kExitUsage), with one sentence about what to
/// do, where that would lose the states of a run that was cut short, or where the folder that goes
/// by the scene's name is another scene's. A note where the folder was given and is another's.
std::string CheckBeforeStart(const FolderUse& use, const LoadedScene& scene,
                             const Checkpoints& checkpoints);

/// Before a run goes on behind a frame: throws CommandError (kExitFile) where a file of a cache is
/// missing that the run had written, unless that cache goes on after failures. What else is missing
/// becomes a note.
void CheckFiles(const std::filesystem::path& out, const ManifestContent& manifest, i32 frame,
                const Simulation& simulation, std::vector<std::string>& notes);

}  // namespace MELDO_GLOBAL::app
