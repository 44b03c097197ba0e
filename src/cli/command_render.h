// `sulva render`: pictures of a scene.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "run/run_arguments.h"

namespace MELDO_GLOBAL::app {

struct RenderOptions {
  std::filesystem::path scene;
  FrameSelection frames;
  i32 threads = 0;            ///< 0 takes as many as the machine offers
  std::filesystem::path out;  ///< empty for out/<name of the scene file>
  std::optional<PictureSize> size;
  std::optional<i32> samples;
  bool exr = false;           ///< an OpenEXR file beside each PNG, where the scene asks for none
  bool cached = false;        ///< play caches, whatever their mode, and simulate nothing
  bool record = false;        ///< caches that record do so
  bool allowOutside = false;  ///< files may be written outside of `out`
  std::vector<std::string> overrides;
  bool quiet = false;
  u64 memory = 0;  ///< bytes; 0 takes the machine's
};

/// Draws the selected frames of a scene and answers the exit code. Frames whose fields all play
/// from caches aren't simulated; otherwise the simulation starts at the scene's first frame, or
/// behind a checkpoint. Nothing but pictures is written, unless `record` asks for it.
int RenderScene(const RenderOptions& options);

}  // namespace MELDO_GLOBAL::app
