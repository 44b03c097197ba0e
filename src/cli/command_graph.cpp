#include "cli/command_graph.h"

#include <fmt/format.h>

#include <vector>

#include "cli/graph_data.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "scene/command_files.h"
#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

using Json = nlohmann::ordered_json;

namespace {

constexpr std::string_view kPage =
#include "generated/graph_page.inc"
    ;
constexpr std::string_view kTitleMark = "{{title}}";
constexpr std::string_view kDataMark = "{{data}}";

std::string Replaced(std::string_view text, const char* what, std::string_view with) {
  std::string out(text);
  for (std::size_t at = 0; (at = out.find(what, at)) != std::string::npos; at += with.size())
    out.replace(at, 1, with);
  return out;
}

/// `text` between two tags.
std::string HtmlText(std::string_view text) {
  return Replaced(Replaced(Replaced(text, "&", "&amp;"), "<", "&lt;"), ">", "&gt;");
}

std::string Page(const Json& graph) {
  std::string page(kPage);
  // No name can end the script that holds it.
  const std::string data = Replaced(graph.dump(), "<", "\\u003c");
  page.replace(page.find(kDataMark), kDataMark.size(), data);
  page.replace(page.find(kTitleMark), kTitleMark.size(),
               HtmlText(graph["title"].get<std::string>()));
  return page;
}

/// A line for each node: what it is and what it links.
std::vector<std::string> LinesOf(const Json& graph) {
  const Json& nodes = graph["nodes"];
  std::vector<std::string> lines;
  for (const Json& node : nodes)
    lines.push_back(fmt::format("  {:<22} \"{}\"", node["type"].get<std::string>(),
                                Shown(node["name"].get<std::string>())));
  std::vector<bool> hasLinks(nodes.size());
  for (const Json& link : graph["links"]) {
    const std::size_t from = link["from"];
    lines[from] += hasLinks[from] ? ", " : "  <- ";
    lines[from] += Shown(nodes[link["to"].get<std::size_t>()]["name"].get<std::string>());
    hasLinks[from] = true;
  }
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    if (nodes[i].contains("idle"))
      lines[i] += fmt::format("  (never works: {})", nodes[i]["idle"].get<std::string>());
    if (nodes[i].contains("asleep"))
      lines[i] += fmt::format("  ({})", nodes[i]["asleep"].get<std::string>());
    if (nodes[i].contains("unread")) lines[i] += "  (never read)";
  }
  return lines;
}

void PrintGraph(const Json& graph) {
  const Json& nodes = graph["nodes"];
  const std::vector<std::string> lines = LinesOf(graph);
  const auto stagesOf = [&](const Json& node) -> const Json& {
    return graph["kinds"][node["type"].get<std::string>()]["stages"];
  };
  for (const Json& stage : graph["stages"]) {
    bool isOpen = false;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      const Json& stages = stagesOf(nodes[i]);
      if (std::find(stages.begin(), stages.end(), stage["number"]) == stages.end()) continue;
      if (!isOpen)
        fmt::print("stage {}, {}: {}\n", stage["number"].get<int>(),
                   stage["name"].get<std::string>(), stage["work"].get<std::string>());
      isOpen = true;
      fmt::print("{}\n", host::Escaped(lines[i]));
    }
  }
  fmt::print("without a stage of their own\n");
  for (std::size_t i = 0; i < nodes.size(); ++i)
    if (stagesOf(nodes[i]).empty()) fmt::print("{}\n", host::Escaped(lines[i]));
}

}  // namespace

int RunGraph(const std::filesystem::path& path, const std::filesystem::path& page) {
  Diagnostics diagnostics;
  const auto scene = LoadScene(path, diagnostics);
  diagnostics.Print();
  if (!scene) return kExitInvalidScene;
  const Json graph = GraphData(*scene);
  if (page.empty()) {
    PrintGraph(graph);
    return kExitDone;
  }
  if (page.has_parent_path()) MakeFolder(page.parent_path());
  WriteFileAtomically(page, Page(graph));
  fmt::print("{}\n", host::Escaped(page.string()));
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
