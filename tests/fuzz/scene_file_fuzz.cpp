// Any bytes as a scene file.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/exit_codes.h"
#include "scene/scene_file.h"

using namespace MELDO_GLOBAL;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  static const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("sulva_fuzz_" + std::to_string(getpid()) + ".json");
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  app::Diagnostics diagnostics;
  try {
    const auto scene = app::LoadScene(path, diagnostics);
    if (!scene && !diagnostics.HasErrors()) __builtin_trap();
  } catch (const app::CommandError&) {
  }
  return 0;
}
