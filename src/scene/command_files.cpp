#include "scene/command_files.h"

#include <fmt/format.h>

#include "host/atomic_file.h"
#include "host/exit_codes.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {
template <class F>
void Try(F&& f) {
  try {
    f();
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
}
}  // namespace

void WriteFileAtomically(const fs::path& path, std::string_view bytes) {
  Try([&] { host::WriteFileAtomically(path, bytes); });
}

void MakeFolder(const fs::path& path) {
  Try([&] { host::MakeFolder(path); });
}

std::filesystem::path BackupOf(const std::filesystem::path& path) {
  std::filesystem::path backup = path.string() + ".bak";
  for (int i = 2; std::filesystem::exists(backup); ++i)
    backup = fmt::format("{}.bak{}", path.string(), i);
  return backup;
}

}  // namespace MELDO_GLOBAL::app
