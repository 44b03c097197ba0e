// The parameters of `ParticleToGridEmitter`.
#include "fluids/emission/particle_to_grid_emitter.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

ParameterRow FalloffRow() {
  ParameterRow row =
      GradientRow(ParticleToGridEmitter::kFalloffRow, "falloff",
                  "how a point fades outwards: red is its strength from the middle to the radius");
  row.creation = Gradient{{{0, {1, 1, 1}}, {1, {0, 0, 0}}}};
  return row.Missing(std::monostate{});
}

}  // namespace

const NodeKind& ParticleToGridEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300008,
      .type = "properties_particles",
      .label = "POP::PointData To Grid",
      .className = "ParticleToGridEmitter",
      .typeId = kTypeParticleToGridEmitter,
      .list = kListEmitters,
      .categories = kCategoryGrid | kCategoryParticle,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "gives particles, or the vertices of a mesh, to a field: a soft blob round each",
      .example =
          {{example::kBall},
           {example::kSmoke, example::kBallMesh,
            R"({ "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke", "value": 0.5 } })",
            R"({ "type": "properties_particles", "name": "dusty", "parameters": { "source": "ball mesh", "values": ["dust"], "radius": 2 } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleToGridEmitter>,
  };
  return kind;
}

const ParameterTable& ParticleToGridEmitter::Parameters() {
  static const ParameterTable table = {
      LinkRow(kSourceRow, "source",
              "the particles, the loose points, or the mesh or group of meshes, whose points "
              "become smoke",
              {Mesh::Kind().id, MultiMesh::Kind().id, ParticleGroup::Kind().id, kPointsObject})
          .To(&ParticleToGridEmitter::mSource)
          .To(&ParticleToGridEmitter::mGroup)
          .To(&ParticleToGridEmitter::mPointsObject)
          .Required(),
      LongRow(kParticleTypeRow, "particle_type", 0, "", "which particles of a linked group count")
          .Choices(ParticleKindChoices())
          .To(&ParticleToGridEmitter::mParticleType),
      LinksRow(1002, "values", "what each point brings, into which field",
               {ChannelValue::Kind().id})
          .To(&ParticleToGridEmitter::mValues)
          .Required(),
      LongRow(kDistanceModeRow, "distance_mode", 0, "",
              "soft or even blobs: how points weigh by their distance")
          .Choices({{0, "none"}, {2, "falloff"}})
          .To(&ParticleToGridEmitter::mDistanceMode),
      FalloffRow()
          .OnlyWith(kDistanceModeRow, {kByGradient})
          .To(&ParticleToGridEmitter::mFalloffGradient),
      RealRow(kMassScaleRow, "mass_scale", 1.0, "none",
              "makes every point count for more or less; times the mass of a particle")
          .To(&ParticleToGridEmitter::mMassScale),
      RealRow(
          kRadiusScaleRow, "radius_scale", 1.0, "none",
          "makes every point count for more or less; times the part of 'radius' that the radius "
          "of a particle comes to")
          .To(&ParticleToGridEmitter::mRadiusScale),
      BoolRow(1007, "per_second", false, "brings its values over a second instead of all in a step")
          .To(&ParticleToGridEmitter::mPerSecond),
      BoolRow(1009, "show_options", false, "a dialog shows what is seldom needed too").Kept(),
      LongRow(
          kConstraintModeRow, "constraint_mode", 0, "",
          "whether constraints thin out points or what they bring; those that look at particles "
          "thin these out in any case")
          .Choices({{0, "cells"}, {1, "points"}})
          .To(&ParticleToGridEmitter::mConstraintMode),
      RealRow(kRadiusRow, "radius", 1.4, "cells",
              "how far a point reaches: larger blobs join into a smooth skin")
          .AtLeast(0)
          .To(&ParticleToGridEmitter::mRadiusCells),
      LinkRow(1016, "duration", "points are gathered only inside this time window",
              {Duration::Kind().id})
          .To(&ParticleToGridEmitter::mDuration),
  };
  return table;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
