// What a body weighs.
#pragma once
#include "fluids/mesh/obstacle_settings.h"
#include "rigid/body_motion.h"
#include "rigid/body_shape.h"
#include "rigid/mass_properties.h"

class btRigidBody;

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Volume, centre of mass and inertia of a body, and the mass that its settings give it. SI units.
class BodyMass {
 public:
  /// Measures a solid as it stands, then moves its vertices into the frame in which it turns
  /// without wobbling. What is heavy and encloses nothing becomes its hull; false where that
  /// encloses nothing either.
  bool Find(BodyGeometry& solid, const ObstacleSettings& settings, double worldToSim);
  /// Takes the mass that settings tell. While the world is running a body whose mass is taken away
  /// is frozen until it gets one again.
  void Read(const ObstacleSettings& settings, bool isRunning);
  void Restore(const BodyMotion& motion);
  void Keep(BodyMotion& motion) const;
  /// The same body of another volume, as cells have counted it; false where nothing changes.
  bool SetVolume(double volume, const ObstacleSettings& settings);
  void PutOn(btRigidBody& body) const;

  double Mass() const { return mMass; }
  /// With the little that a frozen body keeps.
  double Acting() const;
  bool HasChanged() const { return mMass != mPrevious; }
  bool IsFrozen() const { return mIsFrozen; }
  double Volume() const { return mProperties.volume; }
  double Density(const ObstacleSettings& settings) const;
  const Vec3d& Centre() const { return mProperties.centre; }
  /// Of the frame, at the start; without offset.
  const Matrix& Axes() const { return mAxes; }

 private:
  bool Weigh(BodyGeometry& solid, bool isHeavy);
  double MassBy(const ObstacleSettings& settings) const;
  void ScaleTo(double volume);

  MassProperties mProperties;  ///< of density 1, in the axes of the simulation at the start
  Matrix mAxes;
  Vec3d mInertia{};  ///< about those axes, of density 1
  double mPrevious = 0, mMass = 0;
  bool mIsFrozen = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
