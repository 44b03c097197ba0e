#include "scene/hint_base.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "cache/cache_folder.h"
#include "cache/cache_rows.h"
#include "cache/mesh_cacher.h"
#include "cache/particle_cacher.h"
#include "framework/server_rows.h"
#include "host/image.h"
#include "host/render_objects.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Recordings and exports.
class OutputHints : public HintBase {
 public:
  using HintBase::HintBase;

  /// What concerns the nodes of one server.
  void LookAt(const BaseNode& server) {
    mNodes.clear();
    Collect(server);
    const bool ownRange = Whole(server, server_row::kUsePreviewRange) == 0;
    CheckNumbers(ownRange ? Whole(server, server_row::kFirstFrame) : mScene.document->previewMin);
  }

  /// What concerns the nodes of all servers together.
  void LookAtAll() {
    mNodes.clear();
    for (const BaseNode* server : mScene.servers) Collect(*server);
    CheckRecordings();
    CheckFolders();
    CheckExports();
    CheckPictures();
    for (BaseNode* server : mScene.servers)
      if (server->IsEnabled()) CheckPlayed(*server);
  }

 private:
  /// What an export names and never works leaves nothing in its files.
  void CheckExports() {
    std::set<NodeId> told;
    for (const ExportSpec& spec : mScene.exports) {
      std::vector<NodeId> named = spec.meshes;
      named.insert(named.end(), spec.particles.begin(), spec.particles.end());
      for (const auto& [name, id] : spec.grids) named.push_back(id);
      for (const NodeId id : named) {
        const BaseNode* node = mScene.document->Find(id);
        const NodeReach* reach = mScene.reach.Of(id);
        if (node && reach && !reach->MayWork() && told.insert(id).second)
          Warn(*node, fmt::format("it is exported, and never works: {}", reach->whyIdle));
      }
    }
  }

  /// Two caches of one name in one folder write over each other's files, frame by frame.
  void CheckRecordings() {
    using Place = std::tuple<i32, std::string, std::string>;
    std::map<Place, const BaseNode*> recorders;
    for (const BaseNode* cache : mNodes) {
      if (!IsCache(*cache) || Whole(*cache, cache_row::kMode) == cache_row::kPlayBack) continue;
      const i32 folder = Whole(*cache, cache_row::kFolder);
      if (folder && Text(*cache, cache_row::kCustomFolder).empty())
        WarnOfSleep(*cache,
                    fmt::format("it writes nothing: its '{}' is 'custom', and '{}' is empty",
                                NameOf(*cache, cache_row::kFolder),
                                NameOf(*cache, cache_row::kCustomFolder)),
                    cache_row::kFolder);
      const Place place = {folder, folder ? FolderOf(*cache) : "", NamesOf(*cache)};
      const auto [found, isNew] = recorders.try_emplace(place, cache);
      if (!isNew)
        Warn(*cache,
             fmt::format("writes over the files of the cache '{}'; give it another '{}'",
                         Shown(found->second->Name()), NameOf(*cache, cache_row::kBaseName)));
    }
  }

  /// The folder of one's own that a cache names, whichever way it is spelt.
  std::string FolderOf(const BaseNode& cache) const {
    const std::filesystem::path named =
        mScene.path.parent_path() / Text(cache, cache_row::kCustomFolder);
    std::error_code failed;
    const auto whole = std::filesystem::weakly_canonical(named, failed);
    const std::filesystem::path folder = failed ? named.lexically_normal() : whole;
    return (folder / "").lexically_normal().string();
  }

  static bool IsCache(const BaseNode& node) {
    const NodeKind* kind = FindKind(node.Type());
    return kind && kind->list == kListCaches;
  }
  /// What the names of a cache's files have in common.
  std::string NamesOf(const BaseNode& cache) const {
    std::string name = Text(cache, cache_row::kBaseName);
    // Those that have no name of their own are told apart by their kind.
    if (name.empty()) name = fmt::format("{}", cache.Type());
    const i32 format = Whole(cache, cache_row::kFormat);
    // Files of grids and of particles end alike, but for those in formats of other tools.
    const bool isOther = IsA<ParticleCacher>(cache) && format != cache_row::kParticles;
    const bool isMesh = IsA<MeshCacher>(cache);
    return fmt::format("{}#.{}", name,
                       isMesh    ? "mcache"
                       : isOther ? fmt::format("format {}", format)
                                 : "cache");
  }

  /// A folder that is named and not taken.
  void CheckFolders() {
    for (const BaseNode* cache : mNodes)
      if (IsCache(*cache) && Whole(*cache, cache_row::kFolder) == 0 &&
          !Text(*cache, cache_row::kCustomFolder).empty())
        Warn(*cache,
             fmt::format("'{}' isn't used, since '{}' is 'output'",
                         NameOf(*cache, cache_row::kCustomFolder),
                         NameOf(*cache, cache_row::kFolder)),
             cache_row::kCustomFolder);
  }

  /// Caches that only play, from a folder of their own in which nothing of theirs lies.
  void CheckPlayed(BaseNode& server) {
    const auto scene = CreateScene(server);
    scene->Synchronise(scene->GetDocument());
    for (const auto& [id, object] : scene->List(kListCaches)) {
      auto* cache = dynamic_cast<Cache_OperatorBase*>(object.get());
      if (!cache || !cache->Node()->IsEnabled()) continue;
      const BaseNode& node = *cache->Node();
      if (Whole(node, cache_row::kMode) != cache_row::kPlayBack || !HasOwnFolder(node) ||
          node.Tracks().contains(cache_row::kMode) || IsRecordedHere(node) ||
          ScanCache(cache->ReadNames()).found)
        continue;
      Note(node,
           fmt::format("it has nothing to play: there are no files of its '{}' in {}",
                       NameOf(node, cache_row::kBaseName),
                       Shown(cache->ReadNames().GetFolder().string())),
           cache_row::kCustomFolder);
    }
  }
  static bool HasOwnFolder(const BaseNode& cache) {
    return Whole(cache, cache_row::kFolder) != 0 && !Text(cache, cache_row::kCustomFolder).empty();
  }
  /// Another cache of the scene writes what this one plays.
  bool IsRecordedHere(const BaseNode& player) const {
    return std::any_of(mNodes.begin(), mNodes.end(), [&](const BaseNode* cache) {
      return IsCache(*cache) && HasOwnFolder(*cache) &&
             Whole(*cache, cache_row::kMode) != cache_row::kPlayBack &&
             Text(*cache, cache_row::kCustomFolder) == Text(player, cache_row::kCustomFolder) &&
             NamesOf(*cache) == NamesOf(player);
    });
  }

  /// What a picture shows of a field that never works is nothing.
  void CheckPictures() {
    if (!mScene.render) return;
    CheckEnvironment();
    for (const BaseNode* server : mScene.servers) LookForPainters(*server);
  }
  /// Turns go round and heights from pole to pole: half as many steps.
  void CheckEnvironment() {
    const auto* image =
        dynamic_cast<const ImageObject*>(Linked(*mScene.render->settings, kRenderEnvironmentImage));
    if (!image || image->picture.IsEmpty()) return;
    const Image& picture = image->picture;
    if (picture.width != 2 * picture.height)
      Warn(*image,
           fmt::format("as an 'environment_image' it goes round the whole scene, twice as wide as "
                       "high; this one has {} x {} pixels and comes out stretched",
                       picture.width, picture.height));
  }
  void LookForPainters(const BaseNode& node) {
    for (const BaseNode* child : node.Children()) {
      LookForPainters(*child);
      if (MayWork(*child)) continue;
      for (const BaseNode* reader : ReadersOf(*child))
        if (mScene.render->Holds(*reader))
          Warn(*child, fmt::format("{} shows it, and it never works: {}", Named(*reader),
                                   mScene.reach.Of(child->Id())->whyIdle));
    }
  }

  /// Files are played by their count from the first frame, unless the cache goes on with them.
  void CheckNumbers(i32 first) {
    for (const BaseNode* cache : mNodes) {
      if (!IsCache(*cache) || Whole(*cache, cache_row::kMode) == cache_row::kRecord ||
          Whole(*cache, cache_row::kNumbering) == 0 || Whole(*cache, cache_row::kShowFrame) != -1)
        continue;
      const i32 offset = Whole(*cache, cache_row::kFrameOffset);
      const std::string_view row = NameOf(*cache, cache_row::kFrameOffset);
      const bool plays = Whole(*cache, cache_row::kMode) == cache_row::kPlayBack;
      if (plays && offset != first)
        Warn(*cache,
             fmt::format("it plays its files counted from the first frame, {}, and their numbers "
                         "are those of the scene; to bring both together, set '{}' to {}",
                         first, row, first));
      else if (!plays && first != 0 && offset == first)
        Warn(*cache, fmt::format("it finds its files by the scene's frames: '{}' {} plays in frame "
                                 "{} what was recorded of frame {}; leave it out",
                                 row, offset, first, first + offset));
    }
  }
};

}  // namespace

void AddOutputHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  OutputHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) hints.LookAt(*server);
  hints.LookAtAll();
}

}  // namespace MELDO_GLOBAL::app
