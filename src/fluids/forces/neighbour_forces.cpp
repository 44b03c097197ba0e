#include "fluids/forces/neighbour_forces.h"

#include "fluids/particles/particle_columns.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// What the kinds of these forces have in common; `force` is the line of the example that makes it,
/// by the name "near".
NodeKind NeighbourKind(std::string_view force) {
  return {
      .list = kListForces,
      .categories = kCategoryParticle,
      .menu = {"Particles/Forces"},
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            force,
            R"({ "type": "particle_forces", "name": "pull", "parameters": { "groups": [{ "node": "sparks", "kinds": ["passive"] }], "forces": ["near"] } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
  };
}

}  // namespace

const NodeKind& Force_Alignment::Kind() {
  static const NodeKind kind = [] {
    NodeKind own = NeighbourKind(
        R"({ "type": "pforce_alignment", "name": "near", "parameters": { "strength": 4, "radius": 3 } })");
    own.id = 1300158;
    own.type = "pforce_alignment";
    own.label = "PF::Steering";
    own.className = "Force_Alignment";
    own.typeId = 123;
    own.purpose = "turns particles to the way that those about them fly";
    own.rows = Parameters;
    own.make = MakeNode<Force_Alignment>;
    return own;
  }();
  return kind;
}

const ParameterTable& Force_Alignment::Parameters() {
  static const ParameterTable table = Rows(
      "1/s",
      "how soon a particle takes on the mean velocity of its neighbours; below 0 it turns away "
      "from it");
  return table;
}

const NodeKind& Force_Cohesion::Kind() {
  static const NodeKind kind = [] {
    NodeKind own = NeighbourKind(
        R"({ "type": "pforce_cohesion", "name": "near", "parameters": { "strength": 20, "radius": 3 } })");
    own.id = 1300157;
    own.type = "pforce_cohesion";
    own.label = "PF::Cohesion";
    own.className = "Force_Cohesion";
    own.typeId = 124;
    own.purpose = "draws particles to the middle of those about them";
    own.rows = Parameters;
    own.make = MakeNode<Force_Cohesion>;
    return own;
  }();
  return kind;
}

const ParameterTable& Force_Cohesion::Parameters() {
  static const ParameterTable table =
      Rows("1/s^2",
           "how hard a particle is drawn to the middle of its neighbours, by its distance from it; "
           "below 0 it is driven away");
  return table;
}

const NodeKind& Force_Separation::Kind() {
  static const NodeKind kind = [] {
    NodeKind own = NeighbourKind(
        R"({ "type": "pforce_separation", "name": "near", "parameters": { "strength": -2, "radius": 2 } })");
    own.id = 1300159;
    own.type = "pforce_separation";
    own.label = "PF::Separation";
    own.className = "Force_Separation";
    own.typeId = 125;
    own.purpose = "keeps particles apart from those about them";
    own.rows = Parameters;
    own.make = MakeNode<Force_Separation>;
    return own;
  }();
  return kind;
}

const ParameterTable& Force_Separation::Parameters() {
  static const ParameterTable table =
      Rows("m/s^2",
           "how hard a particle is pushed in the mean direction to its neighbours, however far "
           "they are: below 0 away from them, above 0 towards them");
  return table;
}

template <class Law>
ParameterTable NeighbourForce<Law>::Rows(std::string_view unit, std::string_view strengthHelp) {
  return {
      RealRow(kStrengthRow, "strength", -9.81, unit, strengthHelp)
          .Missing(80.0)
          .To(&NeighbourForce::mStrength),
      LinkRow(kDurationRow, "duration", "pushes only inside this time window",
              {Duration::Kind().id})
          .To(&NeighbourForce::mDuration),
      RealRow(kRadiusRow, "radius", 1.0, "cells",
              "how far off a particle's neighbours are; of a crowd the nearest 71 count")
          .AtLeast(0)
          .To(&NeighbourForce::mRadiusCells),
  };
}

template <class Law>
bool NeighbourForce<Law>::PrepareForce() {
  mBuffers.resize(kShares);
  return true;
}

template <class Law>
void NeighbourForce<Law>::Push(ForceSample& sample, double s) const {
  NeighbourBuffer& near = mBuffers[sample.worker];
  const std::span<const Vec3d> velocities = sample.around->velocities;
  const std::span<const Vec3d> positions = sample.particles->Positions();
  const std::span<const u16> flags = sample.particles->Flags();
  const Vec3d& own = velocities[sample.particle];
  sample.around->tree->FindNearest(sample.position, mRadiusCells * this->GetDomain().cellSize,
                                   near);
  Vec3d sum{};
  i32 count = 0;
  for (const TreeHit& hit : near.Hits()) {
    if (hit.index == sample.particle || !(flags[hit.index] & PF_ALIVE)) continue;
    sum += Law::Pull({positions[hit.index] - sample.position, velocities[hit.index] - own,
                      std::sqrt(hit.distanceSquared)});
    ++count;
  }
  if (count > 0) sample.force += sum * (s * mStrength / count);
}

template class NeighbourForce<Force_Alignment>;
template class NeighbourForce<Force_Cohesion>;
template class NeighbourForce<Force_Separation>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
