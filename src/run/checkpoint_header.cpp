#include "run/checkpoint_header.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/polygon_object.h"
#include "io/field.h"
#include "nodes/catalogue.h"
#include "scene/diagnostics.h"
#include "scene/node_names.h"

namespace MELDO_GLOBAL::app {

namespace {

constexpr i32 kNodesChunk = -1;

/// A node for a message.
std::string Named(const StoredObject& node) {
  return fmt::format("\"{}\"{}", Shown(node.name),
                     node.unit.empty() ? "" : fmt::format(" [{}]", Shown(node.unit)));
}

bool Holds(const std::vector<StoredObject>& nodes, const std::string& name) {
  return std::any_of(nodes.begin(), nodes.end(),
                     [&](const StoredObject& node) { return node.name == name; });
}

/// Fields first: they are what a user knows.
const StoredObject* FirstMissing(const std::vector<StoredObject>& nodes,
                                 const std::vector<StoredObject>& others) {
  const StoredObject* missing = nullptr;
  for (const StoredObject& node : nodes)
    if (!Holds(others, node.name) && (!missing || (missing->unit.empty() && !node.unit.empty())))
      missing = &node;
  return missing;
}

std::string DifferenceOf(const std::vector<StoredObject>& stored,
                         const std::vector<StoredObject>& own) {
  const StoredObject* lost = FirstMissing(stored, own);
  const StoredObject* fresh = FirstMissing(own, stored);
  if (lost && fresh && stored.size() == own.size())
    return fmt::format("it holds {}, which the scene hasn't, and none of {}", Named(*lost),
                       Named(*fresh));
  if (lost) return fmt::format("it holds {}, which the scene hasn't", Named(*lost));
  if (fresh) return fmt::format("it holds no {}, which the scene has", Named(*fresh));
  const std::size_t count = std::min(stored.size(), own.size());
  for (std::size_t i = 0; i < count; ++i)
    if (stored[i].name != own[i].name || stored[i].unit != own[i].unit)
      return fmt::format("it holds {} where the scene has {}", Named(stored[i]), Named(own[i]));
  return stored.size() == own.size() ? "" : "the number of nodes differs";
}

}  // namespace

void WriteCheckpointHeader(HyperFile& file, const CheckpointHeader& header) {
  file.WriteText(header.version);
  file.WriteLLong(static_cast<i64>(header.scene));
  file.WriteLong(header.run.frame);
  file.WriteLong(header.run.framesWritten);
  file.WriteChunkStart(kNodesChunk, header.format);
  for (const StoredObject& node : header.nodes) {
    file.WriteText(node.name);
    file.WriteText(node.unit);
  }
  file.WriteChunkEnd();
}

bool ReadCheckpointHeader(HyperFile& file, CheckpointHeader& header) {
  i64 scene = 0;
  if (!file.ReadText(header.version) || !file.ReadLLong(scene) ||
      !file.ReadLong(header.run.frame) || !file.ReadLong(header.run.framesWritten))
    return false;
  header.scene = static_cast<u64>(scene);
  i32 id = 0;
  header.nodes.clear();
  // In the first format the state begins here, with a block.
  if (!file.ReadChunkStart(id, header.format) || id != kNodesChunk) header.format = 1;
  if (header.format != kCheckpointFormat) return true;
  while (!file.AtEnd()) {
    StoredObject& node = header.nodes.emplace_back();
    if (!file.ReadText(node.name) || !file.ReadText(node.unit)) return false;
  }
  return file.ReadChunkEnd();
}

std::vector<StoredObject> NodesOf(const host::Document& document) {
  const NodeNames names(document);
  std::vector<StoredObject> nodes;
  document.ForEachNode([&](const host::BaseNode& node) {
    const MELDO_SULVA::NodeKind* kind = MELDO_SULVA::FindKind(node.Type());
    const bool isOfSimulation = kind && kind->list != 0;
    if (isOfSimulation || dynamic_cast<const host::PolygonObject*>(&node))
      nodes.push_back({names.Of(node.Id()), UnitOf(node)});
  });
  return nodes;
}

std::string MisfitOf(const CheckpointHeader& header, const host::Document& document) {
  if (header.version != SULVA_VERSION)
    return fmt::format("sulva {} wrote it, this is {}", Shown(header.version), SULVA_VERSION);
  if (header.format != kCheckpointFormat)
    return fmt::format("its format is {}, and this build of sulva goes on from format {} alone",
                       header.format, kCheckpointFormat);
  return DifferenceOf(header.nodes, NodesOf(document));
}

}  // namespace MELDO_GLOBAL::app
