// `sulva render`: pictures of a scene.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/run_arguments.h"

namespace MELDO_GLOBAL::app {

struct RenderOptions {
  std::filesystem::path scene;
  FrameSelection frames;
  i32 threads = 0;            ///< 0 takes as many as the machine offers
  std::filesystem::path out;  ///< empty for out/<name of the scene file>
  std::optional<PictureSize> size;
  std::optional<i32> samples;
  bool exr = false;  ///< an OpenEXR file beside each PNG, where the scene asks for none
  std::vector<std::string> overrides;
  bool quiet = false;
  u64 memory = 0;  ///< bytes; 0 takes the machine's
};

/// Simulates a scene up to each selected frame, draws its picture, and answers the exit code.
int RenderScene(const RenderOptions& options);

}  // namespace MELDO_GLOBAL::app
