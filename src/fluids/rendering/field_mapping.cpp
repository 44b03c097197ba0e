#include "fluids/rendering/field_mapping.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

double FieldNoise::At(const Vec3d& world, const Vec3d& sim) const {
  if (!on || !noise) return 1;
  const Vec3d q = (inSimulationUnits ? sim : world) * frequency;
  double n = noise->Evaluate(type, q, octaves);
  // Two of the kinds swing about 0; the controls are made for 0 to 1.
  if (type == host::NoiseType::Gradient || type == host::NoiseType::Fbm) n = (n + 1) * 0.5;
  if (n > 0) {
    if (n <= cutLow)
      n = 0;
    else if (n >= cutHigh || cutHigh == cutLow)
      n = 1;
    else
      n = (n - cutLow) / (cutHigh - cutLow);
  }
  n = std::clamp(n + offset, 0.0, 1.0);
  n = (n - 0.5) * contrast + 0.5;
  return hasRemap ? remap(n) : n;
}

void FieldMapping::SetCurve(const host::SplineData& data) {
  hasCurve = !IsIdentity(data);
  curve = MakeRamp(data);
}

FieldNoise ReadNoise(const MELDO_SULVA::InterfaceHandler& interface) {
  FieldNoise noise;
  noise.on = interface.GetBool(2301);
  noise.inSimulationUnits = interface.GetLong(2302) != 0;
  noise.type = host::NoiseTypeOf(interface.GetLong(2305));
  const double scale = interface.GetReal(2306);
  const Vec3d axes = interface.GetVector(2307);
  const auto inverse = [](double v) { return v != 0 ? 1 / v : 0.0; };
  noise.frequency = Vec3d{inverse(axes.x), inverse(axes.y), inverse(axes.z)} * inverse(scale);
  noise.octaves = static_cast<i32>(interface.GetReal(2308));
  noise.cutLow = interface.GetReal(2314);
  noise.cutHigh = interface.GetReal(2315);
  noise.offset = interface.GetReal(2316);
  noise.contrast = interface.GetReal(2317);
  if (const host::SplineData* remap = interface.GetSpline(2303)) {
    noise.hasRemap = !IsIdentity(*remap);
    noise.remap = MakeRamp(*remap);
  }
  noise.noise.emplace(static_cast<u32>(interface.GetLong(2304)));
  return noise;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
