#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "exchange/particles_object.h"
#include "fluids/emission/emission_rate.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/emission/object_particle_mesh_emitter.h"
#include "fluids/operators/mesh_curvature_operator.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"
#include "fluids/volume/multi_volume.h"
#include "fluids/volume/volume_mesh.h"
#include "scene/hint_base.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

using OnMesh = ObjectParticleMeshEmitter;

/// What emitters of particles ask of their settings and sources, and don't find there.
class ParticleEmitterHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAt(const BaseNode& server) {
    Collect(server);
    for (const BaseNode* node : mNodes) {
      if (IsProperty(*node)) LookAtId(*node);
      if (!MayWork(*node)) continue;
      const bool fillsVolume = IsA<ObjectParticleGridEmitter>(*node);
      if (!IsA<OnMesh>(*node) && !fillsVolume) continue;
      LookAtAmount(*node);
      LookAtProperties(*node);
      if (IsA<OnMesh>(*node)) LookAtSurface(*node);
      if (IsA<OnMesh>(*node)) LookAtColumns(*node);
      if (fillsVolume) LookAtInside(*node);
    }
  }

 private:
  static bool IsLoose(const BaseNode* source) {
    return source && (IsA<ParticleGroup>(*source) || source->Type() == kPointsObject);
  }
  /// Settings with which nothing is born.
  void LookAtAmount(const BaseNode& emitter) {
    const bool isOnMesh = IsA<OnMesh>(emitter);
    const bool isEach = isOnMesh && Whole(emitter, OnMesh::kEveryPointRow) == 1 &&
                        (Whole(emitter, OnMesh::kFromRow) != OnMesh::kTriangles ||
                         IsLoose(Linked(emitter, OnMesh::kSourceRow)));
    const BaseNode* settings = nullptr;
    for (const NodeId id : LinksOf(emitter))
      if (const BaseNode* linked = mScene.document->Find(id))
        if (IsA<ParticleEmissionSettings>(*linked)) settings = linked;
    if (!settings || isEach) return;
    const BaseNode* rate = Linked(*settings, ParticleEmissionSettings::kRateRow);
    const bool hasRate = rate && rate->IsEnabled();
    // In a volume the density decides, unless a rate says that there be nothing.
    if (!hasRate && !isOnMesh) return;
    const BaseNode& holder = hasRate ? *rate : *settings;
    const i32 row =
        hasRate ? i32{EmissionRate::kWholeRow} : i32{ParticleEmissionSettings::kAmountRow};
    if (!holder.Tracks().contains(row) && Whole(holder, row) <= 0)
      Warn(holder,
           fmt::format("'{}' is {}: {} makes no particles", NameOf(holder, row), Whole(holder, row),
                       Named(emitter)),
           row);
  }

  static bool IsProperty(const BaseNode& node) {
    return IsA<Property<bool>>(node) || IsA<Property<double>>(node) || IsA<Property<Vec3d>>(node);
  }
  /// Numbers below those of users belong to properties of one sort each.
  void LookAtId(const BaseNode& property) {
    const i32 id = Whole(property, iProperty::kPropertyRow);
    const i32 end = IsA<Property<double>>(property)  ? property_id::kFirstVector
                    : IsA<Property<Vec3d>>(property) ? property_id::kFirstBool
                                                     : property_id::kFirstUser;
    if (id >= end && id < property_id::kFirstUser)
      Warn(property,
           fmt::format("'{}' {} is that of a {}; a number of your own is {} or more",
                       NameOf(property, iProperty::kPropertyRow), id,
                       id < property_id::kFirstBool ? "vector" : "switch",
                       i32{property_id::kFirstUser}),
           iProperty::kPropertyRow);
  }
  /// Of two values for one property the particles get the one that is listed later.
  void LookAtProperties(const BaseNode& emitter) {
    for (const ParameterRow& row : *emitter.Table()) {
      const auto* list = Get<InExcludeData>(emitter, row.id);
      if (!list) continue;
      std::map<i32, const BaseNode*> given;
      for (const auto& entry : list->entries) {
        const BaseNode* node = mScene.document->Find(entry.node);
        if (!node || !node->IsEnabled() || !IsProperty(*node)) continue;
        const i32 property = Whole(*node, iProperty::kPropertyRow);
        // Those of a user's own are told apart by their nodes.
        if (property >= property_id::kFirstUser) continue;
        const BaseNode*& before = given[property];
        if (before && before != node)
          Warn(emitter,
               fmt::format(
                   "{} has no effect: {}, which comes later in '{}', gives the same property",
                   Named(*before), Named(*node), NameOf(emitter, row.id)),
               row.id);
        before = node;
      }
    }
  }

  /// Particles that are born within what is solid.
  void LookAtInside(const BaseNode& emitter) {
    const BaseNode* volume = Linked(emitter, ObjectParticleGridEmitter::kVolumeRow);
    if (volume && volume->Tag(kObstacleTag))
      Warn(emitter,
           fmt::format("{}, which it fills, is an obstacle, and its particles are born in it; emit "
                       "from a shape without an obstacle tag, or from its surface",
                       Named(*volume)),
           ObjectParticleGridEmitter::kVolumeRow);
  }

  /// What an emitter asks of a surface that has none of it.
  void LookAtSurface(const BaseNode& emitter) {
    const BaseNode* source = Linked(emitter, OnMesh::kSourceRow);
    const bool isGroup = source && IsA<ParticleGroup>(*source);
    const bool isLoose = IsLoose(source);
    if (isLoose && Whole(emitter, OnMesh::kFromRow) != OnMesh::kPoints)
      NoteUnread(emitter, OnMesh::kFromRow,
                 Named(*source) + (isGroup ? " is a group" : " is an object of points"));
    if (!isLoose && Whole(emitter, OnMesh::kFromRow) == OnMesh::kPoints &&
        !emitter.Tracks().contains(OnMesh::kFromRow))
      WarnOfSleep(emitter, fmt::format("it never works: {}", OnMesh::kNoPointsReason),
                  OnMesh::kFromRow);
    if (source && IsA<MultiVolume>(*source))
      WarnOfSleep(emitter, fmt::format("it never works: {}", OnMesh::kOfVolumesReason),
                  OnMesh::kSourceRow);
    if (isLoose && !isGroup)
      for (const i32 row : {i32{OnMesh::kWriteNormalRow}, i32{OnMesh::kWriteUvRow}})
        if (Whole(emitter, row) == 1)
          Warn(emitter,
               fmt::format("'{}' gives zeros: the points of {} have none", NameOf(emitter, row),
                           Named(*source)),
               row);
    LookAtImages(emitter);
    if (!StaysAtMost(emitter, OnMesh::kCurvatureRow, 0)) {
      if (isGroup ? !IsBornBent() : isLoose || !source || !IsMeasured(*MeshOf(*source)))
        Warn(emitter,
             fmt::format("'{}' leaves out nothing: no {} that works measures how {} is bent",
                         NameOf(emitter, OnMesh::kCurvatureRow), MeshCurvatureOperator::Kind().type,
                         source ? Named(*source) : "its source"),
             OnMesh::kCurvatureRow);
    } else if (Whole(emitter, OnMesh::kInvertCurvatureRow) == 1) {
      Note(emitter,
           fmt::format("'{}' has no effect while '{}' is 0",
                       NameOf(emitter, OnMesh::kInvertCurvatureRow),
                       NameOf(emitter, OnMesh::kCurvatureRow)),
           OnMesh::kInvertCurvatureRow);
    }
  }

  /// Columns of a file that its particles don't get: those whose property the emitter doesn't name.
  void LookAtColumns(const BaseNode& emitter) {
    const auto* source =
        dynamic_cast<const exchange::ParticlesObject*>(Linked(emitter, OnMesh::kSourceRow));
    if (!source) return;
    std::set<std::string, std::less<>> taken = {"position", "id"};
    for (const NodeId id : LinksOf(emitter)) {
      const BaseNode* node = mScene.document->Find(id);
      if (!node || !IsProperty(*node)) continue;
      const i32 property = Whole(*node, iProperty::kPropertyRow);
      const std::string_view builtIn = NameOfProperty(property);
      taken.insert(builtIn.empty() ? node->Name() : std::string(builtIn));
    }
    std::string left;
    for (const exchange::ParticleColumn& column : source->Table().Columns())
      if (!taken.contains(column.name))
        left += fmt::format("{}'{}'", left.empty() ? "" : ", ", Shown(column.name));
    if (!left.empty())
      Note(emitter,
           fmt::format("of {} it leaves out {}: '{}' names no property of such a name",
                       Named(*source), left, NameOf(emitter, OnMesh::kPointPropertiesRow)),
           OnMesh::kPointPropertiesRow);
  }

  void LookAtImages(const BaseNode& emitter) {
    const bool hasColour = Linked(emitter, OnMesh::kColourImageRow);
    const bool hasDensity = Linked(emitter, OnMesh::kDensityImageRow);
    if (Whole(emitter, OnMesh::kWriteColourRow) == 1 && !hasColour)
      Warn(emitter,
           fmt::format("'{}' gives no colour: it has no '{}'",
                       NameOf(emitter, OnMesh::kWriteColourRow),
                       NameOf(emitter, OnMesh::kColourImageRow)),
           OnMesh::kWriteColourRow);
    if (!hasDensity)
      NoteUnread(emitter, OnMesh::kDensityThresholdRow,
                 fmt::format("it has no '{}'", NameOf(emitter, OnMesh::kDensityImageRow)));
    if (!hasDensity && !hasColour) NoteUnread(emitter, OnMesh::kLookupRow, "it has no image");
    if (Whole(emitter, OnMesh::kWriteNormalRow) == 0)
      NoteUnread(emitter, OnMesh::kVertexNormalsRow,
                 fmt::format("'{}' is off", NameOf(emitter, OnMesh::kWriteNormalRow)));
  }

  /// Whether particles may have a curvature, which their emitter gave them.
  bool IsBornBent() const {
    return std::any_of(mNodes.begin(), mNodes.end(), [](const BaseNode* node) {
      return IsA<Property<double>>(*node) &&
             Whole(*node, iProperty::kPropertyRow) == property_id::kCurvature;
    });
  }
  /// A mesh itself, or that of a volume.
  const BaseNode* MeshOf(const BaseNode& shape) const {
    const BaseNode* mesh = IsA<VolumeMesh>(shape) ? Linked(shape, VolumeMesh::kMeshRow) : nullptr;
    return mesh ? mesh : &shape;
  }
  bool IsMeasured(const BaseNode& mesh) const {
    return std::any_of(mNodes.begin(), mNodes.end(), [&](const BaseNode* node) {
      const BaseNode* target =
          IsA<MeshCurvatureOperator>(*node) ? Linked(*node, MeshOperator::kTargetRow) : nullptr;
      return target && MayWork(*node) && MeshOf(*target) == &mesh;
    });
  }
};

}  // namespace

void AddParticleEmitterHints(const LoadedScene& scene, const ScenePlaces& places,
                             Diagnostics& diagnostics) {
  for (const BaseNode* server : scene.servers)
    if (server->IsEnabled()) ParticleEmitterHints(scene, places, diagnostics).LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
