#include "fluids/particles/particle_property_ids.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

const std::vector<BuiltInProperty>& BuiltInProperties() {
  using enum property_id::Id;
  static const std::vector<BuiltInProperty> properties = {
      {kSlopeU, "slope_u", ""},
      {kSlopeV, "slope_v", ""},
      {kSlopeW, "slope_w", ""},
      {kRadius, "radius", "PP::Radius"},
      {kLifeSpan, "life_span", ""},
      {kAge, "age", "PP::Age"},
      {kDensity, "density", "PP::Density"},
      {kViscosity, "viscosity", "PP::Viscosity"},
      {kPressure, "pressure", "PP::Pressure"},
      {kTemperature, "temperature", "PP::Temperature"},
      {kFire, "fire", "PP::Fire"},
      {kFuel, "fuel", "PP::Fuel"},
      {kMass, "mass", "PP::Mass"},
      {kKernelSum, "kernel_sum", ""},
      {kScratch, "scratch", ""},
      {kAnisotropy, "anisotropy", "PP::Anisotropy"},
      {kCurvature, "curvature", "PP::Curvature"},
      {kColor, "color", "PP::Color"},
      {kSortedVelocity, "sorted_velocity", ""},
      {kPositionBefore, "position_before", ""},
      {kSteering, "steering", ""},
      {kEllipsoidCentre, "ellipsoid_centre", ""},
      {kEllipsoidX, "ellipsoid_x", ""},
      {kEllipsoidY, "ellipsoid_y", ""},
      {kEllipsoidZ, "ellipsoid_z", ""},
      {kEllipsoidScales, "ellipsoid_scales", ""},
      {kNormal, "normal", "PP::Normal"},
      {kSurfaceNormal, "surface_normal", ""},
      {kOldPosition, "old_position", "PP::Old Position"},
      {kVelocity, "velocity", "PP::Velocity"},
      {kVorticity, "vorticity", "PP::Vorticity"},
      {kBallisticForces, "ballistic_forces", "PP::Ballistic Forces"},
      {kPosition, "position", "PP::Position"},
      {kFrameStart, "frame_start", ""},
      {kSplineStateA, "spline_state_a", ""},
      {kSplineStateB, "spline_state_b", ""},
      {kSplineStateC, "spline_state_c", ""},
      {kUv, "uv", "PP::UV"},
      {kRandomScale, "random_scale", ""},
      {kRandomRotation, "random_rotation", ""},
      {kDeformed, "deformed", ""},
  };
  return properties;
}

std::string_view NameOfProperty(i32 id) {
  for (const BuiltInProperty& property : BuiltInProperties())
    if (property.id == id) return property.name;
  return {};
}

bool IsDeclaredProperty(i32 id) {
  if (id >= property_id::kFirstBool || id == property_id::kLifeSpan) return true;
  const std::vector<BuiltInProperty>& known = BuiltInProperties();
  return std::any_of(known.begin(), known.end(), [&](const BuiltInProperty& property) {
    return property.id == id && !property.label.empty();
  });
}

std::vector<host::Choice> PropertyChoices(i32 first, i32 last) {
  std::vector<host::Choice> choices;
  for (const BuiltInProperty& property : BuiltInProperties())
    if (property.id >= first && property.id < last && !property.label.empty())
      choices.push_back({property.id, property.name});
  return choices;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
