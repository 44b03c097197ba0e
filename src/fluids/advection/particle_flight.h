// The flight of a particle between its collisions in a substep.
#pragma once
#include <algorithm>

#include "fluids/advection/particle_contact.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Velocity and even acceleration of what flies, and how much of its substep is left. A velocity
/// that belongs to a substep as a whole is that of its middle: there it is on the parabola through
/// the positions at the ends.
class ParticleFlight {
 public:
  /// At the start of a substep of `time` seconds with the velocity `middle`.
  ParticleFlight(const Vec3d& middle, const Vec3d& acceleration, double time)
      : mV(middle - acceleration * (0.5 * time)), mA(acceleration), mTime(time), mLeft(time) {}

  /// The velocity at a share of what is left.
  Vec3d VelocityAt(double share) const { return mV + mA * (share * mLeft); }
  void Push(const Vec3d& change) { mV += change; }

  /// Goes up to a contact and changes the velocity there: of the speed that leads into a surface
  /// with the velocity `surface` the part `restitution` comes back. Where that would return within
  /// a substep the particle lies on the surface from then on. What leaves it doesn't slide.
  void Meet(ParticleContact& contact, double restitution, const Vec3d& surface) {
    mV = VelocityAt(contact.share);
    mLeft -= contact.share * mLeft;
    const Vec3d& n = contact.normal;
    const double into = -Dot(n, mV - surface), pressed = std::max(-Dot(n, mA), 0.0);
    const double back = restitution * into;
    const bool leaves = into < -kAlong * Length(mV);
    if (leaves || 2 * back > pressed * mTime) {
      if (!leaves) mV += n * (into + back);
      contact.slides = false;
    } else {
      mV += n * into;
      mA += n * pressed;
    }
  }
  /// The way that is left.
  Vec3d Way() const { return mV * mLeft + mA * (0.5 * mLeft * mLeft); }
  /// The velocity of the substep, of which the next one makes its own.
  Vec3d Middle() const { return mV + mA * (mLeft - 0.5 * mTime); }

 private:
  // The part of a speed that may come of rounding.
  static constexpr double kAlong = 1e-9;

  Vec3d mV, mA;
  double mTime, mLeft;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
