#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "fluids/advection/particle_advection.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/emission/object_particle_mesh_emitter.h"
#include "scene/hint_base.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

class ParticleHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAt(const BaseNode& server) {
    mNodes.clear();
    Collect(server);
    for (const BaseNode* node : mNodes) {
      const NodeKind* kind = FindKind(node->Type());
      mHasSolver = mHasSolver || (kind && kind->list == kListSolvers);
    }
    for (const BaseNode* node : mNodes) {
      if (node->Type() == ParticleGroup::kNodeType) LookAtGroup(*node);
      if (IsA<ParticleAdvection>(*node) && MayWork(*node)) LookAtMotion(*node);
    }
  }

 private:
  /// Emitters and advections of a group by the kind of particles that they work on.
  using ByKind = std::map<i32, std::vector<const BaseNode*>>;

  static bool IsEmitter(const BaseNode& node) {
    return IsA<ObjectParticleGridEmitter>(node) || IsA<ObjectParticleMeshEmitter>(node);
  }
  static std::string_view NameOfKind(i32 kind) {
    return IsParticleKind(kind) ? kParticleKindRows[kind].name : "unknown";
  }

  /// Whether one of the emitters gives what it makes an age.
  bool AnyHasAge(const std::vector<const BaseNode*>& emitters) const {
    return std::any_of(emitters.begin(), emitters.end(), [&](const BaseNode* emitter) {
      const std::set<NodeId> links = LinksOf(*emitter);
      return std::any_of(mNodes.begin(), mNodes.end(), [&](const BaseNode* node) {
        return IsA<Property<double>>(*node) && links.contains(node->Id()) &&
               Whole(*node, iProperty::kPropertyRow) == property_id::kAge;
      });
    });
  }

  void LookAtGroup(const BaseNode& group) {
    ByKind filled, moved;
    bool mayBeFilled = false, isRead = false;
    for (const BaseNode* reader : ReadersOf(group)) {
      if (reader->Type() == kServerNode || !MayWork(*reader)) continue;
      const NodeKind* kind = FindKind(reader->Type());
      if (IsEmitter(*reader)) {
        // Another group may come of this one.
        if (Linked(*reader, ParticleEmitter::kGroupRow) != &group) {
          isRead = true;
          continue;
        }
        filled[Whole(*reader, ParticleEmitter::kKindRow)].push_back(reader);
      } else if (IsA<ParticleAdvection>(*reader)) {
        moved[Whole(*reader, ParticleAdvection::kKindRow)].push_back(reader);
      } else {
        // Caches and operators may bring particles too.
        mayBeFilled = mayBeFilled || !kind || kind->list == kListCaches ||
                      kind->list == kListOperators || kind->list == kListSolvers;
      }
      isRead = true;
    }
    if (filled.empty() && !mayBeFilled && isRead)
      return Warn(group, "no emitter that works fills it: it stays empty");
    for (const auto& [kind, movers] : moved) TellMovers(group, kind, movers, filled, mayBeFilled);
    if (mayBeFilled) return;
    for (const auto& [kind, emitters] : filled)
      if (!moved.contains(kind))
        Warn(group, fmt::format("nothing moves {}the {} particles that {} makes; add a {} for them",
                                AnyHasAge(emitters) ? "or ages " : "", NameOfKind(kind),
                                Named(*emitters.front()), ParticleAdvection::Kind().type));
  }

  void TellMovers(const BaseNode& group, i32 kind, const std::vector<const BaseNode*>& movers,
                  const ByKind& filled, bool mayBeFilled) {
    if (!filled.contains(kind) && !filled.empty() && !mayBeFilled)
      Warn(*movers.front(),
           fmt::format("it moves {} particles, and {} gets none: {} makes {} ones",
                       NameOfKind(kind), Named(group), Named(*filled.begin()->second.front()),
                       NameOfKind(filled.begin()->first)),
           ParticleAdvection::kKindRow);
    for (std::size_t i = 1; i < movers.size(); ++i)
      Warn(*movers[i],
           fmt::format("it moves the {} particles of {}, which {} moves already: both together "
                       "carry them twice as far",
                       NameOfKind(kind), Named(group), Named(*movers.front())));
  }

  void LookAtMotion(const BaseNode& advection) {
    if (mHasSolver || advection.Tracks().contains(ParticleAdvection::kMotionRow)) return;
    const i32 motion = Whole(advection, ParticleAdvection::kMotionRow);
    if (motion != ParticleAdvection::kGrid) return;
    Warn(advection,
         fmt::format("no flow carries its particles: its server has no solver that is switched on; "
                     "'{}' ballistic lets them fly",
                     NameOf(advection, ParticleAdvection::kMotionRow)),
         ParticleAdvection::kMotionRow);
  }

  bool mHasSolver = false;
};

}  // namespace

void AddParticleHints(const LoadedScene& scene, const ScenePlaces& places,
                      Diagnostics& diagnostics) {
  for (const BaseNode* server : scene.servers)
    if (server->IsEnabled()) ParticleHints(scene, places, diagnostics).LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
