#include "run/recorded_frames.h"

#include <algorithm>
#include <functional>

#include "cache/cache_contents.h"
#include "cache/cache_operator.h"
#include "cache/cache_rows.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

/// Calls f(cache) for every enabled cache, which knows its parameters and objects.
template <class F>
void ForEachCache(const Simulation& simulation, F&& f) {
  for (const auto& scene : simulation.Scenes()) {
    scene->Synchronise(scene->GetDocument());
    for (const auto& [id, object] : scene->List(kListCaches)) {
      auto* cache = dynamic_cast<Cache_OperatorBase*>(object.get());
      if (!cache || !cache->Node() || !cache->Node()->IsEnabled()) continue;
      cache->ReadParameters();
      cache->ResolveLinks();
      f(*cache);
      cache->ClearLinks();
    }
  }
}

void DisableBut(host::BaseNode& node, const std::set<host::NodeId>& kept) {
  if (!kept.contains(node.Id())) node.SetEnabled(false);
  for (host::BaseNode* child : node.Children()) DisableBut(*child, kept);
}

/// A node works only where all above it do.
void KeepWithAncestors(const host::BaseNode* node, std::set<host::NodeId>& kept) {
  for (; node; node = node->Parent()) kept.insert(node->Id());
}

}  // namespace

bool PlayRecordedFrames(const Simulation& simulation, const std::set<host::NodeId>& nodes,
                        const FrameRange& frames, bool anyMode) {
  std::set<host::NodeId> played;
  std::vector<host::BaseNode*> caches;
  ForEachCache(simulation, [&](Cache_OperatorBase& cache) {
    if (!(cache.Plays() || anyMode) || !cache.HasFrames(frames.first, frames.last)) return;
    caches.push_back(cache.Node());
    for (const iBase* object : cache.Objects())
      if (object->Node()) played.insert(object->Node()->Id());
  });
  if (nodes.empty() || !std::includes(played.begin(), played.end(), nodes.begin(), nodes.end()))
    return false;

  std::set<host::NodeId> kept;
  for (host::BaseNode* cache : caches) {
    cache->Set(cache_row::kMode, i32{cache_row::kPlayBack});
    KeepWithAncestors(cache, kept);
  }
  for (const auto& scene : simulation.Scenes()) {
    const host::Document& document = *scene->GetDocument();
    for (const host::NodeId node : played) KeepWithAncestors(document.Find(node), kept);
    KeepWithAncestors(scene->Server(), kept);
    DisableBut(*scene->Server(), kept);
  }
  return true;
}

void WakeRenderCaches(host::Document& document) {
  const std::function<void(host::BaseNode&)> wake = [&](host::BaseNode& node) {
    const NodeKind* kind = FindKind(node.Type());
    if (kind && kind->list == kListCaches) node.Set(cache_row::kRenderOnly, 0);
    for (host::BaseNode* child : node.Children()) wake(*child);
  };
  for (host::BaseNode* root : document.Roots()) wake(*root);
}

bool HasRecordingCache(const Simulation& simulation) {
  bool records = false;
  ForEachCache(simulation, [&](Cache_OperatorBase& cache) { records |= cache.Records(); });
  return records;
}

std::filesystem::path ForeignRecording(const Simulation& simulation, u64 own) {
  std::filesystem::path foreign;
  simulation.ForEachCache([&](Cache_OperatorBase& cache) {
    const std::vector<CacheFile> files = ListCache(cache.ReadNames());
    if (files.empty() || !cache.Records() || !cache.Node()->IsEnabled()) return;
    for (const CacheFile* file : {&files.front(), &files.back()}) {
      const u64 other = OriginOf(file->path).simulation;
      if (foreign.empty() && other != 0 && other != own) foreign = file->path;
    }
  });
  return foreign;
}

}  // namespace MELDO_GLOBAL::app
