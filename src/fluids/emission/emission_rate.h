// Animatable amounts.
#pragma once
#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// An amount that settings link to in place of a number of their own.
class EmissionRate : public iBase {
 public:
  EmissionRate() = default;
  EmissionRate(host::BaseNode* node, Scene* scene) : iBase(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kRealRow = 5001, kVectorRow = 5002, kWholeRow = 5003;
  bool ReadParameters() override;

  double mReal = 1;
  Vec3d mVector{1, 0, 0};
  i32 mWhole = 100;  ///< of particles
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
