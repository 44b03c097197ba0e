// The parameters of the obstacle tag: how the tagged object acts as a body.
#include "fluids/mesh/obstacle_rows.h"
#include "fluids/mesh/obstacle_settings.h"

#include "fluids/emission/alignment_vector.h"
#include "nodes/catalogue.h"
#include "nodes/with_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// What weighs a value at a place.
constexpr KindGroup kConstraints{kListAuxiliary, kCategoryConstraint};

constexpr double kFiveDegrees = 0.08726646259971647;

const ParameterTable& Rows() {
  static const ParameterTable table = {
      LongRow(2000, "body_option", 0, "", "kept with the scene; nothing reads it").Kept(),
      LongRow(2001, "body_mode", 1, "", "kept with the scene; nothing reads it").Kept(),
      RealRow(obstacle_row::kMass, "mass", 0.0, "kg",
              "how hard the body is to push; 0 keeps it where it is")
          .OnlyWith(obstacle_row::kMassMode, {i32(MassMode::Given)})
          .AtLeast(0)
          .To(&ObstacleSettings::mass),
      RealRow(obstacle_row::kDensity, "density", 100.0, "kg/m^3",
              "weight of its material: a light one is blown away")
          .OnlyWith(obstacle_row::kMassMode, {i32(MassMode::FromDensity)})
          .AtLeast(0)
          .To(&ObstacleSettings::density),
      RealRow(2004, "linear_velocity_transfer", 1.0, "none",
              "how much a moving obstacle pushes the fluid: 0 lets it pass like a ghost's wall")
          .To(&ObstacleSettings::linearTransfer),
      RealRow(2005, "angular_velocity_transfer", 1.0, "none",
              "how much a turning obstacle stirs the fluid")
          .To(&ObstacleSettings::angularTransfer),
      BoolRow(2006, "ghost", false, "other bodies pass through it").To(&ObstacleSettings::isGhost),
      RealRow(2007, "linear_sleep_speed", 0.1, "m/s",
              "what stays slower than this for 2 s sleeps until something wakes it")
          .Missing(0.0)
          .AtLeast(0)
          .To(&ObstacleSettings::linearSleep),
      LongRow(obstacle_row::kMassMode, "mass_mode", 0, "",
              "whether its weight is given or follows from its size")
          .Choices({{0, "given"}, {1, "from_density"}})
          .To(&ObstacleSettings::massMode),
      RealRow(obstacle_row::kLinearDamping, "linear_damping", 0.0, "none",
              "how soon a flying body slows down")
          .Range(0, 1)
          .To(&ObstacleSettings::linearDamping),
      RealRow(obstacle_row::kAngularDamping, "angular_damping", 0.0, "none",
              "how soon a spinning body slows down")
          .Range(0, 1)
          .To(&ObstacleSettings::angularDamping),
      RealRow(2011, "collision_margin", 0.04, "host",
              "how far off its polygons a body touches others; boxes, balls and hulls keep their "
              "size; negative leaves the choice to the rigid world")
          .Missing(-0.01)
          .To(&ObstacleSettings::margin),
      RealRow(obstacle_row::kRestitution, "restitution", 0.4, "none",
              "how high it bounces: 0 stays down, 1 comes all the way back")
          .Missing(0.1)
          .AtLeast(0)
          .To(&ObstacleSettings::restitution),
      RealRow(obstacle_row::kFriction, "friction", 0.3, "none", "how soon it stops when it slides")
          .Missing(0.1)
          .AtLeast(0)
          .To(&ObstacleSettings::friction),
      RealRow(obstacle_row::kRollingFriction, "rolling_friction", 0.3, "none",
              "how soon it stops when it rolls")
          .Missing(0.1)
          .AtLeast(0)
          .To(&ObstacleSettings::rollingFriction),
      LongRow(2015, "direction_mode", 0, "", "kept with the scene; nothing reads it").Kept(),
      VectorRow(2016, "direction", {1, 0, 0}, "none", "kept with the scene; nothing reads it")
          .Kept(),
      BoolRow(2017, "direction_option", true, "kept with the scene; nothing reads it").Kept(),
      LongRow(2018, "direction_space", 0, "", "kept with the scene; nothing reads it").Kept(),
      LinkRow(2019, "centre_object", "an object that marks the point round which the body turns",
              {kMeshObject, kSplineObject, kPointsObject, kLightObject, kCameraObject})
          .To(&ObstacleSettings::centre),
      RealRow(2020, "angular_sleep_speed", kFiveDegrees, "rad/s",
              "and what stays slower than this as it turns")
          .Missing(0.0)
          .AtLeast(0)
          .To(&ObstacleSettings::angularSleep),
      VectorRow(2021, "linear_factor", {1, 1, 1}, "none",
                "0 holds it in place along an axis, 1 lets it move there")
          .Missing(Vec3d{})
          .To(&ObstacleSettings::linearFactor),
      VectorRow(2022, "angular_factor", {1, 1, 1}, "none",
                "0 keeps it from turning about an axis, 1 lets it turn")
          .Missing(Vec3d{})
          .To(&ObstacleSettings::angularFactor),
      LinkRow(obstacle_row::kStartDirection, "start_direction",
              "node that says which way it flies off", {AlignmentVector3D::Kind().id})
          .To(&ObstacleSettings::startDirection),
      RealRow(obstacle_row::kStartSpeed, "start_speed", 1.0, "m/s",
              "how fast it flies off, along start_direction")
          .To(&ObstacleSettings::startSpeed),
      LinksRow(obstacle_row::kLinearDampingLimits.constraints, "linear_damping_constraints",
               "where linear_damping counts, and how much")
          .AcceptsAny(kConstraints)
          .To(&ObstacleSettings::linearDampingLimits),
      LinksRow(obstacle_row::kAngularDampingLimits.constraints, "angular_damping_constraints",
               "where angular_damping counts, and how much")
          .AcceptsAny(kConstraints)
          .To(&ObstacleSettings::angularDampingLimits),
      LinksRow(obstacle_row::kFrictionLimits.constraints, "friction_constraints",
               "where friction counts, and how much")
          .AcceptsAny(kConstraints)
          .To(&ObstacleSettings::frictionLimits),
      LinksRow(obstacle_row::kRollingFrictionLimits.constraints, "rolling_friction_constraints",
               "where rolling_friction counts, and how much")
          .AcceptsAny(kConstraints)
          .To(&ObstacleSettings::rollingFrictionLimits),
      LinksRow(obstacle_row::kRestitutionLimits.constraints, "restitution_constraints",
               "where restitution counts, and how much")
          .AcceptsAny(kConstraints)
          .To(&ObstacleSettings::restitutionLimits),
      RealRow(2030, "force_transfer", 1.0, "none", "how much the fluid can push the body along")
          .To(&ObstacleSettings::forceTransfer),
      RealRow(2031, "torque_transfer", 1.0, "none", "how much the fluid can make the body spin")
          .To(&ObstacleSettings::torqueTransfer),
      BoolRow(obstacle_row::kWakeOnContact, "wake_on_contact", false,
              "hangs still until a body or a particle touches it")
          .To(&ObstacleSettings::wakesOnContact),
      BoolRow(2033, "write_back", true,
              "the picture shows the object where the simulated body went")
          .Missing(i32{0})
          .To(&ObstacleSettings::writesBack),
      BoolRow(obstacle_row::kWakeOnForce, "wake_on_force", false,
              "hangs still until a force above wake_force acts on it")
          .To(&ObstacleSettings::wakesOnForce),
      RealRow(2035, "wake_force", 10.0, "N", "how strong a gust has to be to set it off")
          .AtLeast(0)
          .To(&ObstacleSettings::wakeForce),
      BoolRow(obstacle_row::kBaked, "baked", false,
              "plays a stored motion instead of simulating one")
          .To(&ObstacleSettings::baked),
      ButtonRow(2037, "bake", "does nothing here; 'sulva bake' stores the motion of a run"),
      BoolRow(2038, "bake_option", false, "kept with the scene; nothing reads it").Kept(),
      ButtonRow(2039, "clear_bake", "does nothing here; what stores a motion is a file"),
      BoolRow(obstacle_row::kFollowBake, "follow_bake", true,
              "the stored motion is what moves the body")
          .OnlyWith(obstacle_row::kBaked, {1})
          .Missing(i32{0})
          .To(&ObstacleSettings::followsBake),
      RealRow(2041, "bake_offset", 0.0, "frames", "plays the stored motion earlier or later")
          .OnlyWith(obstacle_row::kFollowBake, {1})
          .To(&ObstacleSettings::bakeOffset),
      LongRow(2042, "shape", 0, "",
              "how it meets other bodies: automatic takes the simplest that fits its polygons")
          .Choices({{0, "automatic"}, {1, "box"}, {2, "ball"}, {3, "hull"}, {4, "polygons"}})
          .To(&ObstacleSettings::form),
  };
  return table;
}

}  // namespace

const ParameterTable& ObstacleParameters() { return TableWithKinds(kObstacleTag, Rows); }

const NodeKind& ObstacleKind() {
  static const NodeKind kind = {
      .id = kObstacleTag,
      .type = "obstacle",
      .label = "Obstacle",
      .menu = {"Bodies"},
      .purpose =
          "makes a volume solid for the fluids, and with a mass a rigid body that they push (the "
          "key "
          "\"obstacle\" of a node, no node itself)",
      .example =
          {{example::kBall},
           {example::kBallMesh,
            R"({ "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" },)",
            R"(  "obstacle": {} })", example::kGas}},
      .rows = ObstacleParameters,
  };
  return kind;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
