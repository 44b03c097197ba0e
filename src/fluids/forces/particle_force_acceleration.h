// A constant acceleration of particles.
#pragma once
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class AlignmentVector3D;

/// dv = dt w s d, with the weight w of the particle, the strength s and the unit direction d: of
/// the node's own axes, or what an alignment node gives at the particle.
class ParticleForce_Acceleration : public ForceOf<ParticleForce_Acceleration> {
 public:
  using ForceOf::ForceOf;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kAlignmentRow = 1000, kStrengthRow = 1001, kDirectionRow = 1002,
                       kDurationRow = 1003;
  bool ReadParameters() override;
  bool ActsOnParticles() const override { return true; }

  bool ActsOn(const ForceSample& sample) const { return sample.particles; }
  double Scale(double weight) const { return mTime->stepDuration * weight * mWeight; }
  bool IsAlikeInRows() const { return false; }
  void Push(ForceSample& sample, double s) const;
  void Push(const ForceRow& /*row*/, double /*s*/) const {}

 private:
  void Open() override;

  AlignmentVector3D* mAlignment = nullptr;
  double mStrength = -9.81;
  Vec3d mGiven{0, 1, 0};      ///< in the node's own axes
  Vec3d mDirection{0, 1, 0};  ///< of length 1, or 0
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
