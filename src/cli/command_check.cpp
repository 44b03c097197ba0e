#include "cli/command_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "host/console.h"
#include "host/exit_codes.h"
#include "nodes/catalogue.h"
#include "scene/command_files.h"
#include "scene/diagnostics.h"
#include "scene/scene_file.h"
#include "scene/scene_fix.h"

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

/// The objects of a scene.
std::size_t CountObjects(const Document& document) {
  std::size_t count = 0;
  document.ForEachNode([&](const BaseNode& node) {
    count += node.Type() >= kMeshObject && node.Type() <= kCameraObject;
  });
  return count;
}

std::string Summary(const LoadedScene& scene) {
  const Document& document = *scene.document;
  std::size_t nodes = 0;
  i32 first = document.previewMin, last = document.previewMax;
  for (const BaseNode* server : scene.servers) nodes += CountNodes(*server);
  for (BaseNode* server : scene.servers) {
    i32 from = 0, to = 0;
    MELDO_SULVA::CreateScene(*server)->GetFrameRange(from, to);
    first = server == scene.servers.front() ? from : std::min(first, from);
    last = server == scene.servers.front() ? to : std::max(last, to);
  }
  return fmt::format("{}: valid: frames {} to {} at {} fps, {}, {}, {}", scene.path.string(), first,
                     last, document.fps, Count(nodes, "node"),
                     Count(CountObjects(document), "object"),
                     Count(scene.exports.size(), "export"));
}

void Fix(const std::filesystem::path& path) {
  const std::string text = ReadSceneText(path);
  Diagnostics problems;
  JsonValue root;
  // What is no JSON is told by the check.
  if (!ParseJson(text, path.string(), root, problems) || problems.HasErrors()) return;
  const SceneFix fix = FixVolumes(text, root);
  for (const std::string& note : fix.notes)
    fmt::print(stderr, "{}\n", host::Escaped(fmt::format("{}: fixed: {}", path.string(), note)));
  if (fix.notes.empty()) return;
  const std::filesystem::path backup = BackupOf(path);
  WriteFileAtomically(backup, text);
  WriteFileAtomically(path, fix.text);
  fmt::print(stderr, "{}: the scene as it was\n", host::Escaped(backup.string()));
}

}  // namespace

int RunCheck(const std::filesystem::path& path, bool fix, bool strict) {
  if (fix) Fix(path);
  Diagnostics diagnostics;
  const auto scene = LoadScene(path, diagnostics);
  diagnostics.Print();
  if (!scene || (strict && diagnostics.HasWarnings())) return kExitInvalidScene;
  fmt::print("{}\n", host::Escaped(Summary(*scene)));
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
