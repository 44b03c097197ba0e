#include "fluids/emission/channel_value.h"

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ChannelValue::Kind() {
  static const NodeKind kind = {
      .id = 1300013,
      .type = "channelvalue",
      .label = "Container::Channel/Value",
      .className = "ChannelValue",
      .typeId = kTypeChannelValue,
      .list = kListSettings,
      .categories = kCategoryGrid | kCategoryProperty,
      .menu = {"Particles/Emitters"},
      .purpose = "a value for a field, as points carry it into the grid",
      .example =
          {{example::kBall},
           {example::kHeat, example::kBallMesh,
            R"({ "type": "channelvalue", "name": "warm", "parameters": { "channel": "heat", "value": 300 } })",
            R"({ "type": "properties_particles", "name": "warm skin", "parameters": { "source": "ball mesh", "values": ["warm"] } })"}},
      .rows = Parameters,
      .make = MakeNode<ChannelValue>,
  };
  return kind;
}

const ParameterTable& ChannelValue::Parameters() {
  static const ParameterTable table = {
      LinkRow(kChannelRow, "channel", "what is filled or read: a field, or a solver's flow")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&ChannelValue::mTarget)
          .Writes()
          .Required(),
      LongRow(kSolverFieldRow, "solver_field", 0, "", "which part of a linked solver is meant")
          .Choices({{0, "pressure"}, {2, "velocity"}})
          .To(&ChannelValue::mSolverField),
      RealRow(kValueRow, "value", 1.0, "field",
              "number for a field of numbers: what a point or cell brings")
          .To(&ChannelValue::mValue),
      VectorRow(kVectorRow, "vector_value", {1, 1, 1}, "field",
                "vector for a field of vectors: a colour, a velocity")
          .To(&ChannelValue::mVector),
      RealRow(1003, "second_value", 0.0, "field",
              "a further number for the node that reads this one")
          .Kept(),
      LinkRow(kPropertyRow, "property", "takes the number from each particle instead")
          .AcceptsAny({kListParticles, kCategoryProperty})
          .To(&ChannelValue::mProperty),
      BoolRow(1007, "property_switch", false, "how a linked property is read").Kept(),
  };
  return table;
}

bool ChannelValue::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  mTarget.ChooseField(mSolverField);
  mScalar = mTarget.scalar;
  mVectorChannel = mTarget.vector;
  const auto find = [&](i32 bit) {
    return mScene->FindObject(mProperty, kListParticles, kBitProperty, bit);
  };
  mScalarProperty = find(kBitScalar);
  mVectorProperty = find(kBitVector);
  mBoolProperty = find(kBitBoolean);
  return !mTarget.IsEmpty();
}

void ChannelValue::ClearLinks() {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  mScalarProperty = mVectorProperty = mBoolProperty = nullptr;
  iBase::ClearLinks();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
