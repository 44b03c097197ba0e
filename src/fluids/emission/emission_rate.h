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
  static constexpr i32 kRealRow = 5001, kVectorRow = 5002;
  void GetCategories(u32& mask) const override {
    mask |= mType == kReal ? 0x1u : u32{kCategoryVector};
  }
  bool ReadParameters() override;

  enum Type : i32 { kReal = 0, kVector = 1, kWhole = 2 };
  i32 mType = kReal;
  double mReal = 1;
  Vec3d mVector{1, 0, 0};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
