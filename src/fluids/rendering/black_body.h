// The colour of hot things.
#pragma once
#include <array>
#include <string_view>
#include <vector>

#include "host/parameter.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Chromaticities of a display's primaries and its white.
struct ColourSystem {
  std::string_view name;
  double xRed, yRed, xGreen, yGreen, xBlue, yBlue, xWhite, yWhite;
  double gamma;  ///< exponent of the display; 0 means the curve of Rec. 709

  /// The system of a parameter's number; "CIE" for a number that is none.
  static const ColourSystem& ByIndex(i32 index);
  /// Rows of the matrix from CIE XYZ to linear RGB; white has Y = 1 and becomes (1, 1, 1).
  std::array<Vec3d, 3> FromXyz() const;
};

/// How heat becomes a colour.
struct BlackBodySettings : host::ParameterHolder {
  double scale = 1;  ///< of every temperature
  Vec3d tint{1, 1, 1};
  i32 system = 4;  ///< the display's
  bool adapt = false;
  bool gamma = true;
};

/// Colours by temperature, in a table that is built once and then only read.
///
/// The spectrum is Planck's, summed over the CIE 1931 matching functions. Colours have no
/// brightness: the largest component is 1.
class BlackBody {
 public:
  std::vector<Vec3d> mColours;  ///< from `mTMin` on, in even steps up to `mTMax`
  bool mReady = false;
  double mTMin = 300;    ///< Kelvin
  double mTMax = 10000;  ///< Kelvin
  double mTStep = 1;     ///< Kelvin
  i32 mNormalise = 0;    ///< 1: scale by the largest of X, Y, Z and cut the result to 0..1

  /// Fills the table for the range. `scale` multiplies every temperature, `tint` the chromaticity
  /// x, y, z; `adapt` makes the colour of `mTMax` the white; `gamma` applies the display's curve.
  /// A range of more than 65536 steps ends there; a temperature of 0 or less is black.
  void Build(double scale, const Vec3d& tint, i32 systemIndex, bool adapt, bool gamma);
  void Build(const BlackBodySettings& s) { Build(s.scale, s.tint, s.system, s.adapt, s.gamma); }
  /// The colour of a temperature (Kelvin), the first or last one's outside the range; black before
  /// `Build`.
  void Colour(Vec3d& out, double temperature) const {
    if (!mReady) {
      out = {};
      return;
    }
    const i32 last = static_cast<i32>(mColours.size()) - 1;
    const double f = (temperature - mTMin) * mEntriesPerKelvin;
    if (!(f > 0)) {
      out = mColours.front();
    } else if (f >= last) {
      out = mColours.back();
    } else {
      const i32 i = static_cast<i32>(f);
      out = mColours[i] + (mColours[i + 1] - mColours[i]) * (f - i);
    }
  }

  /// X, Y, Z of the radiation of a temperature (Kelvin), in units of their own; 0 where nothing of
  /// it is visible.
  static Vec3d Spectrum(double temperature);

 private:
  double mEntriesPerKelvin = 0;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
