// Particles that spin the gas round themselves.
#pragma once
#include "fluids/forces/force.h"
#include "fluids/particles/kernel.h"
#include "fluids/particles/particle_group.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Vortex particles: those of the kind "vorticity" of a group each carry a vector of vorticity that
/// the flow stretches and that spins the gas round them.
///
/// Selle, Rasmussen, Fedkiw, "A Vortex Particle Method for Smoke, Water and Explosions" (2005):
/// stretching is their equation 4, the push their section 4.
class Force_GridTurbulence : public ForceOf<Force_GridTurbulence> {
 public:
  using ForceOf::ForceOf;
  Force_GridTurbulence() = default;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kGroupRow = 1000, kStrengthRow = 1002;
  bool ReadParameters() override;

  double Scale(double weight) const { return weight * mWeight * mStrength; }
  /// Cells that no particle reaches are asked nothing.
  bool ActsOn(const ForceSample& sample) const;
  template <class Place>
  void Push(Place& place, double s) const;

 protected:
  bool PrepareForce() override;

 private:
  /// Finds the box that the particles reach.
  void FindReach();
  /// Turns and stretches the vorticity of the particles in the flow by its velocity gradient, and
  /// keeps it within the limits.
  void Stretch();
  Vec3d VelocityAt(const Vec3d& p) const;
  double KernelAt(double distanceSquared) const;
  /// The push at a place by a weight of `s`, of which constraints of particles leave each its own
  /// part.
  Vec3d PushAt(const Vec3d& place, double s, u32 worker) const;

  ParticleGroup* mGroup = nullptr;
  double mStrength = 0.2;
  double mRadiusCells = 4;
  double mRadius = 4;  ///< simulation units
  double mLowest = 0.002, mHighest = 0.01;
  i32 mKernelType = 1;
  double mKernelParameter = 1;
  const host::SplineData* mCurve = nullptr;
  Kernel* mKernelNode = nullptr;  ///< in place of the force's own kernel
  bool mAlongFlow = false;        ///< weigh by the velocity along the vorticity
  KernelBase mKernel;
  Bounds mReach;                                      ///< in this step
  const PropertyColumn<Vec3d>* mVorticity = nullptr;  ///< during a step
  const PropertyColumn<double>* mRadii = nullptr;
  mutable std::vector<NeighbourBuffer> mBuffers;  ///< one for each worker
};

extern template class ForceOf<Force_GridTurbulence>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
