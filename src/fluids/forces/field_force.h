// Forces that are fields: the same push for a cell, a particle and a mere place.
#pragma once
#include <span>

#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Points that a field pushes in one call.
struct FieldPoints {
  u32 worker = 0;
  std::span<const Vec3d> positions;            ///< simulation units
  std::span<const double> weights;             ///< what callers and constraints leave; none is 0
  const ParticleColumns* particles = nullptr;  ///< of particles: the columns that they are in
  std::span<const i32> rows;                   ///< and their rows
  std::span<Vec3d> changes;                    ///< accumulators, simulation units a second
};

/// A force that is asked in runs of points, whether they are cells or particles. Its class says
/// what it adds to each of them by a weight.
class FieldForce : public Force {
 public:
  using Force::Force;
  bool ActsAnywhere() const override { return true; }
  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override;
  void EvaluateRow(const ForceRow& row) override;
  void EvaluateParticles(const ForceParticles& run) override;

 protected:
  static constexpr std::size_t kRun = 64;
  /// Adds what the field gives, times the weight, to each of at most `kRun` points.
  virtual void AddField(const FieldPoints& points) const = 0;
  /// What a caller's weight comes to in this step.
  virtual double Scale(double weight) const { return mTime->stepDuration * weight * mWeight; }
  /// Whether constraints weigh the points; they may be the field itself.
  virtual bool WeighsByConstraints() const { return true; }
  /// Shorthands for a position of simulation units in the units of the host, and back.
  Vec3d ToHost(const Vec3d& p) const;
  Vec3d ToSim(const Vec3d& p) const;

 private:
  /// Points of which those with the weight 0 are left out; of particles their rows follow `first`.
  struct Run {
    u32 worker = 0;
    std::span<const Vec3d> positions;
    std::span<double> weights;
    const ParticleColumns* particles = nullptr;
    i32 first = 0;
    std::span<Vec3d> changes;
  };
  void AddTo(const Run& run) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
