// Objects that bend the space about them.
#pragma once
#include "host/node.h"

namespace MELDO_GLOBAL::host {

/// Type of host nodes beside those of `HostType`.
inline constexpr i32 kDeformerObject = 5110;

enum DeformerParameter : i32 {
  kDeformerKind = 1000,
  kDeformerLength = 1001,
  kDeformerAngle = 1002,
  kDeformerFactor = 1003,
  kDeformerOffset = 1004,
  kDeformerAmplitude = 1005,
  kDeformerWavelength = 1006,
  kDeformerPhase = 1007,
};
enum class DeformerKind : i32 { Move, Bend, Twist, Taper, Wave };
struct DeformerSettings : ParameterHolder {
  DeformerKind kind = DeformerKind::Bend;
  double length = 100;
  double angle = 90;  ///< degrees
  double factor = 0.5;
  Vec3d offset{0, 50, 0};
  double amplitude = 20, wavelength = 100;
  double phase = 0;  ///< degrees

  /// Where a place of the deformer's own axes goes, host units. What it does grows from nothing at
  /// y = 0 to the whole at y = `length`, and beyond both it goes on as it is there; moves and
  /// waves are the same everywhere.
  Vec3d Deformed(const Vec3d& p) const;
};
const ParameterTable& DeformerParameters();

/// A deformer as it stands in a frame.
class PlacedDeformer {
 public:
  /// Moved by `carrier`, a placement that its own one is relative to.
  PlacedDeformer(const BaseNode& deformer, const Matrix& carrier);
  /// Where a place of the world goes, host units.
  Vec3d At(const Vec3d& world) const { return mPlace * mSettings.Deformed(mToOwn * world); }

 private:
  DeformerSettings mSettings;
  Matrix mPlace, mToOwn;
};

}  // namespace MELDO_GLOBAL::host
