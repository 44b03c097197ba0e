// Particles under deformers.
#pragma once
#include <vector>

#include "fluids/operators/group_operator.h"
#include "fluids/particles/particle_property.h"
#include "host/deformer.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Says, once a frame and behind all substeps, where deformers take each particle: its place goes
/// through them one after the other, and a vector that it carries takes the result or the way
/// there. The particles stay where they are, unless that vector is their position or velocity.
class POP_Deform : public GroupOperator {
 public:
  using GroupOperator::GroupOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kTargetRow = 1001, kModeRow = 1003, kPerSecondRow = 1004, kKindRow = 1005,
                       kStrengthRow = 1006, kDeformersRow = 1007;
  enum Mode : i32 { kAdd = 0, kSet = 1 };
  void CheckDirty() override;

 protected:
  bool PrepareOperator() override;
  void WorkOn(ParticleStore& store, i32 row, double weight, u32 worker) override;
  void FinishOperator() override;
  // What is played may be shown otherwise; its recording stays as it is.
  bool RestsWhilePlayed() const override { return false; }
  bool NeedsTime() const override { return false; }

 private:
  bool Moves() const { return mTarget && mTarget->Key().id == property_id::kPosition; }

  iProperty* mTarget = nullptr;  ///< null for the property `deformed`
  i32 mMode = kSet;
  bool mPerSecond = false;
  double mStrength = 1;
  std::vector<host::BaseNode*> mNodes;

  // For one frame.
  std::vector<host::PlacedDeformer> mDeformers;
  PropertyColumn<Vec3d>* mColumn = nullptr;  ///< null for a field of the particles
  double mScale = 1;                         ///< of every weight
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
