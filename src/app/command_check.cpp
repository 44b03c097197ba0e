#include "app/command_check.h"

#include <fmt/format.h>

#include <cstdio>

#include "app/diagnostics.h"
#include "app/exit_codes.h"
#include "app/scene_file.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

std::string Count(std::size_t count, const std::string& thing) {
  return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

std::size_t CountNodes(const BaseNode& node) {
  std::size_t count = 1;
  for (const BaseNode* child : node.Children()) count += CountNodes(*child);
  return count;
}

std::string Summary(const LoadedScene& scene) {
  const Document& document = *scene.document;
  std::size_t nodes = 0;
  for (const BaseNode* server : scene.servers) nodes += CountNodes(*server);
  return fmt::format("{}: valid: frames {} to {} at {} fps, {}, {}, {}", scene.path.string(),
                     document.previewMin, document.previewMax, document.fps, Count(nodes, "node"),
                     Count(document.Roots().size() - scene.servers.size(), "object"),
                     Count(scene.exports.size(), "export"));
}

}  // namespace

int RunCheck(const std::filesystem::path& path, const std::vector<std::string>& overrides) {
  Diagnostics diagnostics;
  const auto scene = LoadScene(path, diagnostics, overrides);
  diagnostics.Print();
  if (!scene) return kExitInvalidScene;
  fmt::print("{}\n", Summary(*scene));
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
