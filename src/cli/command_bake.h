// `sulva bake`: the motion of a run's rigid bodies, to be played again.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "cache/hyper_file.h"
#include "scene/loaded_scene.h"

namespace MELDO_GLOBAL::app {

struct BakeOptions {
  std::filesystem::path scene;
  std::filesystem::path out;   ///< the run's output folder; empty for out/<name of the scene file>
  std::filesystem::path file;  ///< to write; empty for bodies.glb in the output folder
  std::vector<std::string> overrides;
};

struct Baked {
  std::string bytes;  ///< of a glTF file
  std::size_t bodies = 0, frames = 0;
  /// Throws CommandError (kExitFile).
  WrittenFile WriteTo(const std::filesystem::path& file) const;
};

/// The motion of the bodies of a run that has ended, whose files lie in `out`. `scene` stands as
/// its file has it, and at its first frame behind this. Throws CommandError: kExitFile where the
/// statistics can't be read or don't begin with the scene's first frame, kExitUsage where there are
/// no bodies.
Baked Bake(LoadedScene& scene, const std::filesystem::path& out);
/// Writes it to a file that isn't another of the run's, and answers the exit code.
int RunBake(const BakeOptions& options);

}  // namespace MELDO_GLOBAL::app
