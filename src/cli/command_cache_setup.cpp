#include "cli/command_cache_setup.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/console.h"
#include "host/exit_codes.h"
#include "scene/cache_setup.h"
#include "scene/command_files.h"
#include "scene/scene_context.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// Whether objects are read from files that are named relative to the scene.
bool HasRelativeFiles(const JsonValue& root) {
  const JsonValue* objects = root.Find("objects");
  if (!objects || !objects->Items()) return false;
  for (const JsonValue& object : *objects->Items())
    for (const char* key : {"file", "frames"}) {
      const JsonValue* file = object.Find(key);
      if (file && file->Text() && fs::path(*file->Text()).is_relative()) return true;
    }
  return false;
}

void AddNames(host::BaseNode& node, NameTable& names) {
  names.Add(node);
  for (host::BaseNode* child : node.Children()) AddNames(*child, names);
}

/// The nodes that the command names, as the parameter of a scene's first server.
std::string ObjectsOverride(const fs::path& path, const std::vector<std::string>& nodes) {
  Diagnostics ignored;
  const auto scene = LoadScene(path, ignored);
  if (!scene) return {};
  NameTable names;
  for (host::BaseNode* root : scene->document->Roots()) AddNames(*root, names);
  for (const std::string& node : nodes)
    if (const auto found = names.Find(node); found.size() == 1) CheckCacheable(*found[0].node);
  return fmt::format("/{}.cache_objects={}", scene->server->Name(), nlohmann::json(nodes).dump());
}

void CheckTarget(const CacheSetupOptions& options, const JsonValue& root) {
  std::error_code failed;
  if (fs::exists(options.out, failed))
    throw CommandError(
        kExitFile, fmt::format("{}: exists already; nothing was written", options.out.string()));
  const auto folder = [](const fs::path& file) {
    return fs::weakly_canonical(fs::absolute(file)).parent_path();
  };
  if (folder(options.out) != folder(options.scene) && HasRelativeFiles(root))
    throw CommandError(kExitUsage, fmt::format("--out: the scene names its files relative to {}; "
                                               "expected a file in that folder",
                                               folder(options.scene).string()));
}

}  // namespace

int RunCacheSetup(const CacheSetupOptions& options) {
  Diagnostics diagnostics;
  std::vector<std::string> overrides = options.overrides;
  if (!options.nodes.empty())
    if (std::string objects = ObjectsOverride(options.scene, options.nodes); !objects.empty())
      overrides.push_back(std::move(objects));
  const auto scene = LoadScene(options.scene, diagnostics, overrides);
  diagnostics.Print();
  if (!scene) return kExitInvalidScene;
  const std::string text = ReadSceneText(options.scene);
  JsonValue root;
  ParseJson(text, options.scene.string(), root, diagnostics);
  const CacheSetup setup = SetUpCaches(text, root, *scene);
  const fs::path target = options.out.empty() ? options.scene : options.out;
  if (options.out.empty()) {
    const fs::path backup = BackupOf(options.scene);
    WriteFileAtomically(backup, text);
    fmt::print(stderr, "{}: the scene as it was\n", host::Escaped(backup.string()));
  } else {
    CheckTarget(options, root);
  }
  WriteFileAtomically(target, setup.text);
  for (const std::string& note : setup.notes) fmt::print(stderr, "{}\n", host::Escaped(note));
  fmt::print("{}\n", host::Escaped(target.string()));
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
