#include "fluids/emission/channel_value.h"

#include "fluids/emission/channel_kinds.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const ParameterTable& ChannelValue::Parameters() {
  static const ParameterTable table = {
      LinkRow(1000, "channel", "what is filled or read: a field, or a solver's flow", FieldKinds()),
      LongRow(1008, "solver_field", 0, "", "which part of a linked solver is meant")
          .Choices({{0, "pressure"}, {2, "velocity"}}),
      RealRow(1001, "value", 1.0, "", "number for a field of numbers: what a point or cell brings"),
      VectorRow(1002, "vector_value", {1, 1, 1}, "",
                "vector for a field of vectors: a colour, a velocity"),
      RealRow(1003, "second_value", 0.0, "", "a further number for the node that reads this one"),
      LinkRow(1004, "property", "takes the number from each particle instead", {}),
      BoolRow(1007, "property_switch", false, "how a linked property is read"),
  };
  return table;
}

bool ChannelValue::ReadParameters(void* context) {
  mPriority = 0;
  if (!iBase::ReadParameters(context)) return false;
  mValue = mInterface.GetReal(1001);
  mVector = mInterface.GetVector(1002);
  mSecondValue = mInterface.GetReal(1003);
  return true;
}

bool ChannelValue::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  ChannelTarget target;
  target.Resolve(*this, 1000, mInterface.GetLong(1008));
  mScalar = target.scalar;
  mVectorChannel = target.vector;
  const BaseNode* property = mInterface.GetLink(1004);
  const auto find = [&](i32 bit) {
    return mScene->FindObject(property, kListParticles, kBitProperty, bit);
  };
  mScalarProperty = find(kBitScalar);
  mVectorProperty = find(kBitVector);
  mBoolProperty = find(kBitBoolean);
  return !target.IsEmpty();
}

void ChannelValue::ClearLinks() {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  mScalarProperty = mVectorProperty = mBoolProperty = nullptr;
  iBase::ClearLinks();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
