#include "nodes/guide.h"

#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

const NodeKind* KindOrTag(i32 id) {
  return id == host::kObstacleTag ? &ObstacleKind() : FindKind(id);
}

/// Entries of a list, a line each. A line that goes on in the next has no comma behind it.
std::string Lines(const std::vector<std::string_view>& entries, std::string_view indent) {
  std::string text;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    text.append(indent).append(entries[i]);
    const bool ends = entries[i].ends_with(" }");
    const bool isLast = i + 1 == entries.size();
    const bool goesOn = !isLast && entries[i + 1].starts_with("  ");
    text.append(ends && !isLast && !goesOn ? ",\n" : "\n");
  }
  return text;
}

}  // namespace

std::string_view PurposeOf(i32 id) {
  const NodeKind* kind = KindOrTag(id);
  return kind ? kind->purpose : std::string_view();
}

std::string ExampleOf(i32 id) {
  const NodeKind* kind = KindOrTag(id);
  if (!kind) return {};
  std::string text = "{ \"sulva\": 1,\n";
  if (!kind->example.objects.empty())
    text += "  \"objects\": [\n" + Lines(kind->example.objects, "    ") + "  ],\n";
  text +=
      R"(  "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.05 }, "children": [)"
      "\n" +
      Lines(kind->example.nodes, "    ") + "  ] } ] }\n";
  return text;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
