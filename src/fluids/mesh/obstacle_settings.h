// What an obstacle tag says of the mesh that has it.
#pragma once
#include <vector>

#include "framework/constraint.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What an obstacle weighs by.
enum class MassMode : i32 { Given = 0, FromDensity = 1 };
/// How a body that moves meets others.
enum class BodyForm : i32 { Automatic = 0, Box = 1, Ball = 2, Hull = 3, Mesh = 4 };

/// The parameters of an obstacle tag. Those that a body of the rigid world has; see the rows of the
/// tag for what they do.
struct ObstacleSettings : host::ParameterHolder {
  double mass = 0;             ///< kg
  double density = 100;        ///< kg/m^3
  double linearTransfer = 1;   ///< of velocity to the fluid
  double angularTransfer = 1;  ///< of velocity to the fluid
  bool isGhost = false;
  double linearSleep = 0;  ///< m/s
  MassMode massMode = MassMode::Given;
  double linearDamping = 0;
  double angularDamping = 0;
  double margin = -0.01;  ///< host units; below 0 that of the world
  double restitution = 0.1;
  double friction = 0.1;
  double rollingFriction = 0.1;
  host::BaseNode* centre = nullptr;  ///< its place is the centre of mass
  double angularSleep = 0;           ///< radians per second
  Vec3d linearFactor{};
  Vec3d angularFactor{};
  host::BaseNode* startDirection = nullptr;
  double startSpeed = 1;     ///< m/s
  double forceTransfer = 1;  ///< of the fluid to the body
  double torqueTransfer = 1;
  bool wakesOnContact = false;
  bool writesBack = false;
  bool wakesOnForce = false;
  double wakeForce = 10;  ///< N
  bool baked = false;
  bool followsBake = false;
  double bakeOffset = 0;  ///< frames
  BodyForm form = BodyForm::Automatic;
  /// Where what they are named after counts, and how much.
  std::vector<Constraint*> linearDampingLimits, angularDampingLimits, frictionLimits,
      rollingFrictionLimits, restitutionLimits;

  /// Forces are to move it.
  bool IsHeavy() const {
    return !(baked && followsBake) && (massMode == MassMode::Given ? mass > 0 : density > 0);
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
