#include "host/deformer.h"

#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL::host {

const ParameterTable& DeformerParameters() {
  constexpr auto number = [](DeformerKind kind) { return static_cast<i32>(kind); };
  constexpr i32 kMove = number(DeformerKind::Move), kBend = number(DeformerKind::Bend),
                kTwist = number(DeformerKind::Twist), kTaper = number(DeformerKind::Taper),
                kWave = number(DeformerKind::Wave);
  static const ParameterTable table = {
      LongRow(kDeformerKind, "kind", kBend, "",
              "what becomes of a column along y: bend leans it towards x in an arc, twist turns it "
              "about itself, taper makes its upper end wider or thinner, wave sways it along x, "
              "move takes it elsewhere")
          .Choices({{kMove, "move"},
                    {kBend, "bend"},
                    {kTwist, "twist"},
                    {kTaper, "taper"},
                    {kWave, "wave"}})
          .To(&DeformerSettings::kind),
      RealRow(kDeformerLength, "length", 100, "host",
              "how far along y it takes until the whole angle or factor is reached")
          .AtLeast(1e-3)
          .OnlyWith(kDeformerKind, {kBend, kTwist, kTaper})
          .To(&DeformerSettings::length),
      RealRow(kDeformerAngle, "angle", 90, "degrees", "how far the upper end is turned")
          .OnlyWith(kDeformerKind, {kBend, kTwist})
          .To(&DeformerSettings::angle),
      RealRow(kDeformerFactor, "factor", 0.5, "none", "how wide the upper end becomes")
          .OnlyWith(kDeformerKind, {kTaper})
          .To(&DeformerSettings::factor),
      VectorRow(kDeformerOffset, "offset", {0, 50, 0}, "host", "where everything goes")
          .OnlyWith(kDeformerKind, {kMove})
          .To(&DeformerSettings::offset),
      RealRow(kDeformerAmplitude, "amplitude", 20, "host", "how far it sways to each side")
          .OnlyWith(kDeformerKind, {kWave})
          .To(&DeformerSettings::amplitude),
      RealRow(kDeformerWavelength, "wavelength", 100, "host", "from crest to crest along y")
          .AtLeast(1e-3)
          .OnlyWith(kDeformerKind, {kWave})
          .To(&DeformerSettings::wavelength),
      RealRow(kDeformerPhase, "phase", 0, "degrees", "how far the crests have come; keys move them")
          .OnlyWith(kDeformerKind, {kWave})
          .To(&DeformerSettings::phase),
  };
  return table;
}

Vec3d DeformerSettings::Deformed(const Vec3d& p) const {
  constexpr double kRadians = std::numbers::pi / 180;
  const double part = std::clamp(p.y / length, 0.0, 1.0);
  const double turn = angle * kRadians * part;
  switch (kind) {
    case DeformerKind::Move: return p + offset;
    case DeformerKind::Twist: {
      const double c = std::cos(turn), s = std::sin(turn);
      return {c * p.x + s * p.z, p.y, c * p.z - s * p.x};
    }
    case DeformerKind::Taper: {
      const double width = 1 + (factor - 1) * part;
      return {p.x * width, p.y, p.z * width};
    }
    case DeformerKind::Wave:
      return p +
             Vec3d{amplitude * std::sin(2 * std::numbers::pi * p.y / wavelength - phase * kRadians),
                   0, 0};
    case DeformerKind::Bend: break;
  }
  // The axis becomes an arc of its own length, sections stay flat, and what lies beyond goes
  // straight on.
  const double whole = angle * kRadians;
  if (whole == 0) return p;
  const double radius = length / whole, c = std::cos(turn), s = std::sin(turn);
  const double half = std::sin(turn / 2), beyond = p.y - part * length;
  // 1 - cos as a square: differences of large radii would leave nothing of a slight bend.
  return {p.x * c + 2 * radius * half * half + beyond * s, (radius - p.x) * s + beyond * c, p.z};
}

PlacedDeformer::PlacedDeformer(const BaseNode& deformer, const Matrix& carrier)
    : mPlace(carrier * deformer.GlobalMatrix()), mToOwn(Inverse(mPlace)) {
  FillMembers(DeformerParameters(), &deformer, mSettings);
}

}  // namespace MELDO_GLOBAL::host
