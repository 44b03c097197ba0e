// A force of the user's own on particles.
#pragma once
#include <string>

#include "fluids/forces/force.h"
#include "framework/script_part.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// dv = dt w m, with the step dt, the weight w that constraints and the time window leave of a
/// particle, and the vector m that main(op) of a script gives for it. A run of particles in which
/// it fails gets nothing, and so do all once the force sleeps.
class ParticleForce_Script : public Force {
 public:
  ParticleForce_Script(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kIntensityRow = 1000;

  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override;
  void EvaluateParticles(const ForceParticles& run) override;
  bool ActsOnParticles() const override { return true; }

 private:
  static constexpr std::size_t kRun = 64;

  bool PrepareForce() override;
  void FinishForce() override { mScript.Close(); }

  ScriptPart& mScript;
  std::string mSource;
  double mIntensity = 1;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
