// From what a grid holds to what a ray sees.
#pragma once
#include <optional>

#include "fluids/rendering/field_view.h"
#include "fluids/rendering/gas_look.h"
#include "fluids/rendering/ramp.h"
#include "host/noise.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Noise that multiplies a field.
struct FieldNoise : NoiseSettings {
  FieldNoise() = default;
  /// Keeps nothing of the curve but its ramp.
  explicit FieldNoise(const NoiseSettings& settings);

  Vec3d frequency{1, 1, 1};  ///< per unit of length
  bool hasRemap = false;
  Ramp<double> remap;
  std::optional<host::Noise> noise;

  /// The factor at a place given both ways; 1 when off.
  double At(const Vec3d& world, const Vec3d& sim) const;
};

/// What becomes of a field's value before it counts. A value at or below the threshold is empty.
struct FieldMapping {
  bool bypass = false;  ///< the grid's value counts as it is
  double threshold = 0;
  double valueMin = 0, valueMax = 1;  ///< range of the channel
  bool hasCurve = false;
  Ramp<double> curve;  ///< over value / valueMax
  FieldNoise noise;

  void SetCurve(const host::SplineData& data);
  /// Applies threshold and curve to a value read from a grid; false for an empty sample. Noise is
  /// the caller's.
  bool Map(double& value) const {
    if (!(value > threshold)) return false;
    if (bypass) return true;
    value = std::min(value, valueMax);
    if (!hasCurve) return value > threshold;
    value = curve(value / valueMax) * valueMax;
    return value > threshold;
  }
  /// The same for temperatures, which the threshold (Kelvin) sees 273.5 warmer.
  bool MapFire(double& value) const {
    if (!(value + kCelsius > threshold)) return false;
    if (bypass) return true;
    const double top = valueMax + valueMin;
    value = std::min(value, top);
    if (!hasCurve) return value + kCelsius > threshold;
    value = curve((value - valueMin) / valueMax) * valueMax + valueMin;
    return value + kCelsius > threshold;
  }

  static constexpr double kCelsius = 273.5;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
