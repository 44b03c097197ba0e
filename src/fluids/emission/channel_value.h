// Channels joined to values.
#pragma once
#include "fluids/emission/channel_pair.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Joins a channel to a value, or to a property of particles with the value as its default.
class ChannelValue : public iBase {
 public:
  using iBase::iBase;
  ChannelValue() = default;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kChannelRow = 1000, kValueRow = 1001, kVectorRow = 1002,
                       kPropertyRow = 1004, kSolverFieldRow = 1008;
  bool ResolveLinks() override;
  void ClearLinks() override;

  double mValue = 1;
  Vec3d mVector{1, 1, 1};
  ChannelTarget mTarget;
  i32 mSolverField = ChannelTarget::kPressure;  ///< of a linked solver
  host::BaseNode* mProperty = nullptr;          ///< node of the property of particles
  ScalarField* mScalar = nullptr;
  VectorField* mVectorChannel = nullptr;
  iBase* mScalarProperty = nullptr;
  iBase* mVectorProperty = nullptr;
  iBase* mBoolProperty = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
