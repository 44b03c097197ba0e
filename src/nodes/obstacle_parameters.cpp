// The parameters of the obstacle tag: how the tagged object acts as a body.
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr i32 kAlignmentNode = 1300010;

/// The kinds that weigh a value at a place.
std::vector<i32> Constraints() {
  return {1300018, 1300019, 1300020, 1300021, 1300022, 1300023, 1300057, 1300090,
          1300091, 1300092, 1300093, 1300139, 1300147, 1300148, 1300149, 1300156};
}

constexpr double kFiveDegrees = 0.08726646259971647;

}  // namespace

const ParameterTable& ObstacleParameters() {
  static const ParameterTable table = {
      LongRow(2000, "body_option", 0, "", "kept with the scene; nothing reads it"),
      LongRow(2001, "body_mode", 1, "", "kept with the scene; nothing reads it"),
      RealRow(2002, "mass", 0.0, "kg", "mass with mass_mode given; 0 keeps the body where it is")
          .AtLeast(0),
      RealRow(2003, "density", 100.0, "kg/m^3", "mass per volume with mass_mode from_density")
          .AtLeast(0),
      RealRow(2004, "linear_velocity_transfer", 1.0, "",
              "share of the body's velocity that the fluid feels"),
      RealRow(2005, "angular_velocity_transfer", 1.0, "",
              "share of the body's rotation that the fluid feels"),
      BoolRow(2006, "ghost", false, "other bodies pass through"),
      RealRow(2007, "linear_sleep_speed", 0.1, "m/s", "a body slower than this falls asleep")
          .Missing(0.0)
          .AtLeast(0),
      LongRow(2008, "mass_mode", 0, "", "where the mass comes from")
          .Choices({{0, "given"}, {1, "from_density"}}),
      RealRow(2009, "linear_damping", 0.0, "", "share of the velocity lost in a second")
          .Range(0, 1),
      RealRow(2010, "angular_damping", 0.0, "", "share of the rotation lost in a second")
          .Range(0, 1),
      RealRow(2011, "collision_margin", 0.04, "host",
              "distance at which contacts begin; negative leaves the choice to the rigid world")
          .Missing(-0.01),
      RealRow(2012, "restitution", 0.4, "", "share of the speed kept when bouncing")
          .Missing(0.1)
          .AtLeast(0),
      RealRow(2013, "friction", 0.3, "", "sliding friction").Missing(0.1).AtLeast(0),
      RealRow(2014, "rolling_friction", 0.3, "", "friction against rolling")
          .Missing(0.1)
          .AtLeast(0),
      LongRow(2015, "direction_mode", 0, "", "kept with the scene; nothing reads it"),
      VectorRow(2016, "direction", {1, 0, 0}, "", "kept with the scene; nothing reads it"),
      BoolRow(2017, "direction_option", true, "kept with the scene; nothing reads it"),
      LongRow(2018, "direction_space", 0, "", "kept with the scene; nothing reads it"),
      LinkRow(2019, "centre_object", "object that marks the body's centre", {}),
      RealRow(2020, "angular_sleep_speed", kFiveDegrees, "rad/s",
              "a body that turns slower than this falls asleep")
          .Missing(0.0)
          .AtLeast(0),
      VectorRow(2021, "linear_factor", {1, 1, 1}, "", "freedom to move along each axis")
          .Missing(Vec3d{}),
      VectorRow(2022, "angular_factor", {1, 1, 1}, "", "freedom to turn about each axis")
          .Missing(Vec3d{}),
      LinkRow(2023, "start_direction", "node that gives the direction of the start velocity",
              {kAlignmentNode}),
      RealRow(2024, "start_speed", 1.0, "m/s", "speed along start_direction"),
      LinksRow(2025, "linear_damping_constraints", "constraints that scale linear_damping",
               Constraints()),
      LinksRow(2026, "angular_damping_constraints", "constraints that scale angular_damping",
               Constraints()),
      LinksRow(2027, "friction_constraints", "constraints that scale friction", Constraints()),
      LinksRow(2028, "rolling_friction_constraints", "constraints that scale rolling_friction",
               Constraints()),
      LinksRow(2029, "restitution_constraints", "constraints that scale restitution",
               Constraints()),
      RealRow(2030, "force_transfer", 1.0, "", "share of the fluid's force that the body feels"),
      RealRow(2031, "torque_transfer", 1.0, "", "share of the fluid's torque that the body feels"),
      BoolRow(2032, "wake_on_contact", false, "start asleep and wake at the first contact"),
      BoolRow(2033, "write_back", true, "the body's motion moves the object").Missing(i32{0}),
      BoolRow(2034, "wake_on_force", false, "start asleep and wake at a force above wake_force"),
      RealRow(2035, "wake_force", 10.0, "N", "force that wakes the body").AtLeast(0),
      BoolRow(2036, "baked", false, "play a stored motion"),
      ButtonRow(2037, "bake", "store the motion"),
      BoolRow(2038, "bake_option", false, "kept with the scene; nothing reads it"),
      ButtonRow(2039, "clear_bake", "forget the stored motion"),
      BoolRow(2040, "follow_bake", true, "the stored motion moves the body").Missing(i32{0}),
      RealRow(2041, "bake_offset", 0.0, "frames", "offset of the stored motion"),
  };
  return table;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
