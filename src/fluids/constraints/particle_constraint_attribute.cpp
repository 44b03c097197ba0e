#include "fluids/constraints/particle_constraint_attribute.h"

#include "fluids/particles/particle_columns.h"
#include "fluids/particles/particle_flags.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleConstraint_Attribute::Kind() {
  static const NodeKind kind = {
      .id = 1300092,
      .type = "constraint_particle_collision",
      .label = "PCS::Attribute",
      .className = "ParticleConstraint_Attribute",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work on particles that have hit something, that fly, that are newly "
          "born and the like",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "dust" })",
            R"({ "type": "particlemesh_emission_setting", "name": "dusting" })",
            R"({ "type": "particlemeshemitter", "name": "duster", "parameters": { "source": "ball mesh", "group": "dust", "settings": "dusting", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "dust", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "constraint_particle_collision", "name": "born", "parameters": { "flag": "newborn", "invert": true } })",
            R"({ "type": "surface_reconstruction", "name": "shell", "parameters": { "source": "dust", "kind": "passive", "filter": true, "constraints": ["born"] } })",
            R"({ "type": "mesher", "name": "skin", "parameters": { "source": "shell" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleConstraint_Attribute>,
  };
  return kind;
}

const ParameterTable& ParticleConstraint_Attribute::Parameters() {
  static const ParameterTable table = WithRange({
      LongRow(1000, "flag", 2, "",
              "what lets a particle pass; places that are none of a particle pass always")
          .Choices({{0, "alive"},
                    {1, "sorted"},
                    {2, "collided"},
                    {3, "sheet_filler"},
                    {4, "marked"},
                    {5, "spawned"},
                    {6, "passive"},
                    {7, "liquid"},
                    {8, "vorticity"},
                    {9, "diffuse"},
                    {10, "ballistic"},
                    {11, "bubble"},
                    {12, "newborn"},
                    {13, "spline_approach"},
                    {14, "spline_follow"},
                    {15, "spline_done"}})
          .To(&ParticleConstraint_Attribute::mBit),
  });
  return table;
}

bool ParticleConstraint_Attribute::Test(const Vec3d& position, double& weight,
                                        const ConstraintUse& use) {
  return !use.particles || MeasuredConstraint::Test(position, weight, use);
}

void ParticleConstraint_Attribute::TestRow(const ConstraintRow& row, const ConstraintUse& use) {
  if (row.particles) MeasuredConstraint::TestRow(row, use);
}

double ParticleConstraint_Attribute::Measure(const Vec3d&, const ConstraintUse& use) const {
  const u32 flags = use.particles->Flags()[static_cast<std::size_t>(use.particle)];
  return flags >> (mBit & 31) & 1 ? 1.0 : 0.0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
