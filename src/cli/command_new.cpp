#include "cli/command_new.h"

#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "host/console.h"
#include "host/exit_codes.h"
#include "nodes/presets.h"
#include "scene/command_files.h"
#include "scene/diagnostics.h"
#include "scene/json_tree.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// The folder of ready-made scenes: installed under the binary's prefix, or, in a build folder,
/// that of the sources round it.
std::optional<fs::path> SceneFolder() {
  std::error_code failed;
  const fs::path binary = fs::read_symlink("/proc/self/exe", failed);
  for (const fs::path& folder :
       {binary.parent_path() / "../share/sulva/scenes", binary.parent_path() / "../scenes"})
    if (fs::is_directory(folder, failed)) return folder.lexically_normal();
  return {};
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw CommandError(kExitFile, fmt::format("{}: can't be read", path.string()));
  return text;
}

/// What a scene shows: the first sentence of its first comment.
std::string Description(const std::string& text) {
  std::string words;
  std::size_t at = text.find("//");
  while (at != std::string::npos) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    if (!words.empty()) words += ' ';
    const std::size_t start = std::min(at + 3, end);
    words.append(text, start, end - start);
    const std::size_t next = text.find_first_not_of(" \t", std::min(end + 1, text.size()));
    at = next != std::string::npos && text.compare(next, 2, "//") == 0 ? next : std::string::npos;
  }
  return words.substr(0, words.find(". "));
}

/// A scene of `folder` with the schema's place as it is seen from the file `target`.
std::string WithSchema(std::string text, const fs::path& folder, const fs::path& target) {
  const std::string relative = "../docs/sulva.schema.json", quoted = '"' + relative + '"';
  const std::size_t at = text.find(quoted);
  std::error_code failed;
  fs::path schema = fs::canonical(folder / relative, failed);
  if (at == std::string::npos || failed) return text;
  const fs::path home = fs::weakly_canonical(fs::absolute(target)).parent_path();
  schema = schema.lexically_relative(home);
  return text.replace(at, quoted.size(), nlohmann::json(schema.generic_string()).dump());
}

std::set<std::string> SceneNames(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().extension() == ".json") names.insert(entry.path().stem().string());
  return names;
}

/// Relative paths of the files that a scene's objects are read from.
std::set<fs::path> AssetsOf(const std::string& text, const fs::path& scene) {
  std::set<fs::path> assets;
  JsonValue root;
  Diagnostics unused;
  const JsonValue* objects =
      ParseJson(text, scene.string(), root, unused) ? root.Find("objects") : nullptr;
  if (!objects || !objects->Items()) return assets;
  for (const JsonValue& object : *objects->Items()) {
    const JsonValue* file = object.Find("file");
    if (file && file->Text() && fs::path(*file->Text()).is_relative()) assets.insert(*file->Text());
    const JsonValue* frames = object.Find("frames");
    if (!frames || !frames->Text() || fs::path(*frames->Text()).is_absolute()) continue;
    const fs::path pattern(*frames->Text());
    const std::string stem = pattern.filename().string();
    const std::string head = stem.substr(0, stem.find('#'));
    const std::string tail = stem.substr(stem.find_last_of('#') + 1);
    for (const auto& entry : fs::directory_iterator(scene.parent_path() / pattern.parent_path())) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with(head) && name.ends_with(tail))
        assets.insert(pattern.parent_path() / name);
    }
  }
  return assets;
}

void PrintScenes(const fs::path& folder, const std::set<std::string>& names) {
  std::size_t width = 0;
  for (const std::string& name : names) width = std::max(width, name.size());
  for (const std::string& name : names) {
    std::string shown = Description(ReadFile(folder / (name + ".json")));
    if (shown.ends_with('.')) shown.pop_back();
    fmt::print("{:<{}}  {}\n", name, width, shown);
  }
}

/// The name of the scene that a word means: its name, or the label or id of a preset.
std::string SceneOf(const std::string& word) {
  for (const MELDO_SULVA::Preset& preset : MELDO_SULVA::Presets())
    if (word == preset.label || word == std::to_string(preset.id)) return std::string(preset.name);
  return word;
}

struct Copy {
  fs::path to;
  std::string bytes;
};

/// Refuses to write over a file, unless it holds the same bytes already.
void CheckTarget(const Copy& copy) {
  std::error_code failed;
  if (!fs::exists(copy.to, failed)) return;
  if (fs::is_regular_file(copy.to, failed) && ReadFile(copy.to) == copy.bytes) return;
  throw CommandError(kExitFile,
                     fmt::format("{}: exists already; nothing was written", copy.to.string()));
}

}  // namespace

int RunNew(const std::string& word, const fs::path& file) {
  const auto folder = SceneFolder();
  if (!folder) throw CommandError(kExitFile, "the folder of ready-made scenes isn't there");
  const std::set<std::string> names = SceneNames(*folder);
  if (word.empty()) {
    PrintScenes(*folder, names);
    return kExitDone;
  }
  const std::string name = SceneOf(word);
  if (!names.contains(name))
    throw CommandError(kExitUsage, fmt::format("no ready-made scene is named '{}'{}", Shown(name),
                                               Suggestion(name, {names.begin(), names.end()})));
  const fs::path source = *folder / (name + ".json");
  std::error_code failed;
  fs::path target = file.empty() ? fs::path(name + ".json") : file;
  if (fs::is_directory(target, failed)) target /= name + ".json";

  std::vector<Copy> copies = {{target, WithSchema(ReadFile(source), *folder, target)}};
  for (const fs::path& asset : AssetsOf(copies.front().bytes, source))
    copies.push_back({target.parent_path() / asset, ReadFile(folder.value() / asset)});
  for (const Copy& copy : copies) CheckTarget(copy);
  for (const Copy& copy : copies) {
    if (!copy.to.parent_path().empty()) MakeFolder(copy.to.parent_path());
    WriteFileAtomically(copy.to, copy.bytes);
  }
  fmt::print("{}\n", host::Escaped(target.string()));
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
