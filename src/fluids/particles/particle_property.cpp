#include "fluids/particles/particle_property.h"

#include "fluids/particles/particle_group.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// The row of the id: words for what is built in, and a number for the user's own.
ParameterRow IdRow(i32 value, i32 first, i32 last) {
  return LongRow(iProperty::kPropertyRow, "property", value, "",
                 "which one it is: a word, or a number of your own from 75 up")
      .Choices(PropertyChoices(first, last))
      .OrNumbers()
      .AtLeast(first)
      .Missing(i32{property_id::kFirstUser});
}

/// `born` gives the property of the example to what it makes.
KindExample ExampleOf(std::string_view node, std::string_view born) {
  return {
      {example::kBall},
      {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
       R"({ "type": "particlemesh_emission_setting", "name": "rate" })", node, born,
       R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}};
}

}  // namespace

template <>
const NodeKind& Property<double>::Kind() {
  static const NodeKind kind = {
      .id = 1300037,
      .type = "property_scalar",
      .label = "PP::Scalar",
      .className = "Property",
      .typeId = kTypeProperty,
      .list = kListParticles,
      .categories = kCategoryProperty | kCategoryScalar,
      .menu = {"Particles/Properties"},
      .purpose = "a number that each particle has, such as its radius, age or temperature",
      .example = ExampleOf(
          R"({ "type": "property_scalar", "name": "life", "parameters": { "property": "age", "value": 40 } })",
          R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "kind": "passive", "source": "ball mesh", "settings": "rate", "properties": ["life"] } })"),
      .rows = Parameters,
      .make = MakeNode<Property<double>>,
  };
  return kind;
}

template <>
const ParameterTable& Property<double>::Parameters() {
  static const ParameterTable table = {
      IdRow(property_id::kFirstUser, 0, property_id::kFirstVector)
          .To(&Property<double>::mPropertyId),
      RealRow(kValueRow, "value", 1.0, "none",
              "what a new particle gets; a radius in cells, an age in frames")
          .To(&Property<double>::mValue),
  };
  return table;
}

template <>
const NodeKind& Property<Vec3d>::Kind() {
  static const NodeKind kind = {
      .id = 1300038,
      .type = "property_vector",
      .label = "PP::Vector",
      .className = "Property",
      .typeId = kTypeProperty,
      .list = kListParticles,
      .categories = kCategoryProperty | kCategoryVector,
      .menu = {"Particles/Properties"},
      .purpose = "three numbers that each particle has, such as its velocity or colour",
      .example = ExampleOf(
          R"({ "type": "property_vector", "name": "throw", "parameters": { "property": "velocity", "value": [0, 4, 0] } })",
          R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "kind": "passive", "source": "ball mesh", "settings": "rate", "properties": ["throw"] } })"),
      .rows = Parameters,
      .make = MakeNode<Property<Vec3d>>,
  };
  return kind;
}

template <>
const ParameterTable& Property<Vec3d>::Parameters() {
  static const ParameterTable table = {
      IdRow(property_id::kFirstUser + 1, property_id::kFirstVector, property_id::kFirstBool)
          .To(&Property<Vec3d>::mPropertyId),
      VectorRow(kValueRow, "value", {0, 1, 0}, "none", "what a new particle gets")
          .To(&Property<Vec3d>::mValue),
  };
  return table;
}

template <>
const NodeKind& Property<bool>::Kind() {
  static const NodeKind kind = {
      .id = 13000391,
      .type = "property_state",
      .label = "PP::State",
      .className = "Property",
      .typeId = kTypeProperty,
      .list = kListParticles,
      .categories = kCategoryProperty | kCategoryBoolean,
      .menu = {"Particles/Properties"},
      .purpose = "something that is so or not of each particle",
      .example = ExampleOf(
          R"({ "type": "property_state", "name": "wet", "parameters": { "property": 80, "value": true } })",
          R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "kind": "passive", "source": "ball mesh", "settings": "rate", "properties": ["wet"] } })"),
      .rows = Parameters,
      .make = MakeNode<Property<bool>>,
  };
  return kind;
}

template <>
const ParameterTable& Property<bool>::Parameters() {
  static const ParameterTable table = {
      LongRow(kPropertyRow, "property", property_id::kFirstUser, "",
              "its number, of your own choice")
          .AtLeast(property_id::kFirstBool)
          .To(&Property<bool>::mPropertyId),
      BoolRow(kValueRow, "value", false, "what a new particle gets").To(&Property<bool>::mValue),
  };
  return table;
}

template <class T>
bool Property<T>::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  if constexpr (std::is_same_v<T, double>)
    if (mPropertyId == property_id::kRadius && mScene) mValue *= GetDomain().cellSize;
  return true;
}

template class Property<bool>;
template class Property<double>;
template class Property<Vec3d>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
