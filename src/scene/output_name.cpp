#include "scene/output_name.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "cache/cache_rows.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

bool LeadsOut(const fs::path& path) {
  return path.is_absolute() || std::find(path.begin(), path.end(), "..") != path.end();
}

bool HasControls(const std::string& name) {
  return std::any_of(name.begin(), name.end(),
                     [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

/// There are file systems that don't tell large letters from small ones.
std::string Lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

}  // namespace

std::string FaultOfOutputName(const std::string& name) {
  const fs::path path(name);
  if (LeadsOut(path)) return "leads out of the output folder";
  if (HasControls(name)) return "holds control characters";
  constexpr std::string_view kOwn[] = {"checkpoints", "cache", "stats.jsonl", "manifest.jsonl",
                                       ".sulva-lock"};
  const fs::path normal = path.lexically_normal();
  const std::string first = normal.empty() ? std::string() : Lower(normal.begin()->string());
  if (std::find(std::begin(kOwn), std::end(kOwn), first) != std::end(kOwn))
    return fmt::format("begins with '{}', where the run keeps files of its own", first);
  for (const fs::path& part : path) {
    const std::string end = Lower(part.string());
    if (end.ends_with(".sulva-part")) return "ends in '.sulva-part', as files do that aren't whole";
    if (end.ends_with(".sulva-lock")) return "ends in '.sulva-lock', as locks do";
  }
  return {};
}

void CheckCacheNames(SceneContext& context, const std::vector<MadeNode>& nodes) {
  for (const MadeNode& made : nodes) {
    const MELDO_SULVA::NodeKind* kind = MELDO_SULVA::FindKind(made.node->Type());
    if (!kind || kind->list != MELDO_SULVA::kListCaches) continue;
    const host::Value* value = made.node->Get(MELDO_SULVA::cache_row::kBaseName);
    const std::string* name = value ? std::get_if<std::string>(value) : nullptr;
    if (!name || name->empty()) continue;
    const fs::path path(*name);
    const bool leadsOut = LeadsOut(path) || !path.has_filename();
    if (!leadsOut && !HasControls(*name)) continue;
    context.Error(*made.value, made.subject,
                  fmt::format("'base_name': '{}' {}", Shown(*name),
                              leadsOut ? "leads out of the cache's folder; name that with "
                                         "'custom_folder'"
                                       : "holds control characters"));
  }
}

}  // namespace MELDO_GLOBAL::app
