#include "fluids/rendering/field_mapping.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

double FieldNoise::At(const Vec3d& world, const Vec3d& sim) const {
  if (!on || !noise) return 1;
  const Vec3d q = (space ? sim : world) * frequency;
  double n = noise->Evaluate(type, q, octaves);
  // Two of the kinds swing about 0; the controls are made for 0 to 1.
  if (host::SwingsAboutZero(type)) n = (n + 1) * 0.5;
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

FieldNoise::FieldNoise(const NoiseSettings& settings) : NoiseSettings(settings) {
  const auto inverse = [](double v) { return v != 0 ? 1 / v : 0.0; };
  frequency = Vec3d{inverse(axes.x), inverse(axes.y), inverse(axes.z)} * inverse(scale);
  if (curve) {
    hasRemap = !IsIdentity(*curve);
    remap = MakeRamp(*curve);
  }
  curve = nullptr;
  type = host::NoiseTypeOf(static_cast<i32>(type));
  noise.emplace(static_cast<u32>(seed));
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
