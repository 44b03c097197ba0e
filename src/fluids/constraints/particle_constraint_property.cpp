#include "fluids/constraints/particle_constraint_property.h"

#include <algorithm>
#include <cmath>

#include "fluids/particles/particle_columns.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
template <class T>
T ValueOf(const ConstraintUse& use, const PropertyKey& key, const T& fallback) {
  const PropertyColumn<T>* column = use.particles->FindOf<T>(key, use.particle);
  return column ? column->Get(use.particle, fallback) : fallback;
}
}  // namespace

const NodeKind& ParticleConstraint_Property::Kind() {
  static const NodeKind kind = {
      .id = 1300093,
      .type = "constraint_particle_property",
      .label = "PCS::Property",
      .className = "ParticleConstraint_Property",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work on particles by a property of theirs: old ones, hot ones, fast "
          "ones",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "dust" })",
            R"({ "type": "property_scalar", "name": "age", "parameters": { "property": "age", "value": 20 } })",
            R"({ "type": "particlemesh_emission_setting", "name": "dusting" })",
            R"({ "type": "particlemeshemitter", "name": "duster", "parameters": { "source": "ball mesh", "group": "dust", "settings": "dusting", "kind": "passive", "properties": ["age"] } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "dust", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "constraint_particle_property", "name": "young", "parameters": { "property": "age", "high": 0.5, "invert": true } })",
            R"({ "type": "surface_reconstruction", "name": "shell", "parameters": { "source": "dust", "kind": "passive", "filter": true, "constraints": ["young"] } })",
            R"({ "type": "mesher", "name": "skin", "parameters": { "source": "shell" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleConstraint_Property>,
  };
  return kind;
}

const ParameterTable& ParticleConstraint_Property::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "property",
              "what is measured of a particle; one without it has 1, or a vector of ones; places "
              "that are none of a particle pass always")
          .AcceptsAny({kListParticles, kCategoryProperty})
          .To(&ParticleConstraint_Property::mProperty)
          .Required(),
      RealRow(1002, "low", 0.0, "none",
              "the number that gives 'output_low'; for numbers it takes the place of 'input_low'")
          .To(&ParticleConstraint_Property::mLow),
      RealRow(1003, "high", 1.0, "none",
              "the number that gives 'output_high'; for numbers it takes the place of 'input_high'")
          .To(&ParticleConstraint_Property::mHigh),
      VectorRow(1004, "vector", {1, 1, 1}, "none", "kept with the node; nothing reads it").Kept(),
      BoolRow(1005, "match", true, "how a switch has to stand to let a particle pass")
          .To(&ParticleConstraint_Property::mMatch),
  });
  return table;
}

bool ParticleConstraint_Property::Open() {
  if (!mProperty) return Deactivate("it has no property; name one under 'property'");
  mKey = mProperty->Key();
  if (dynamic_cast<const Property<double>*>(mProperty)) {
    mCase = mKey.id == property_id::kAge ? Case::Age : Case::Scalar;
    SetInput(mLow, mHigh);
  } else {
    mCase = dynamic_cast<const Property<Vec3d>*>(mProperty) ? Case::Vector : Case::Switch;
  }
  return true;
}

bool ParticleConstraint_Property::Test(const Vec3d& position, double& weight,
                                       const ConstraintUse& use) {
  return !use.particles || MeasuredConstraint::Test(position, weight, use);
}

void ParticleConstraint_Property::TestRow(const ConstraintRow& row, const ConstraintUse& use) {
  if (row.particles) MeasuredConstraint::TestRow(row, use);
}

double ParticleConstraint_Property::Measure(const Vec3d&, const ConstraintUse& use) const {
  switch (mCase) {
    case Case::Age: {
      const double left = ValueOf<double>(use, mKey, 1.0);
      const double span = ValueOf<double>(use, PropertyKey(property_id::kLifeSpan), 1.0);
      return span > 0 ? 1 - std::min(left / span, 1.0) : 1.0;
    }
    case Case::Scalar: return ValueOf<double>(use, mKey, 1.0);
    case Case::Vector: {
      const Vec3d v = mKey.id == property_id::kVelocity
                          ? use.particles->Velocities()[static_cast<std::size_t>(use.particle)]
                      : mKey.id == property_id::kPosition
                          ? use.particles->Positions()[static_cast<std::size_t>(use.particle)]
                          : ValueOf<Vec3d>(use, mKey, {1, 1, 1});
      return std::sqrt(Dot(v, v));
    }
    case Case::Switch: return ValueOf<bool>(use, mKey, false) == mMatch ? 1.0 : 0.0;
  }
  return 1;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
