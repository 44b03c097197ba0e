#include "fluids/rendering/black_body.h"

#include <cmath>

#include "fluids/rendering/matching_functions.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

namespace {

constexpr double kMaxEntries = 65536;

constexpr ColourSystem kSystems[] = {
    {"NTSC", 0.67, 0.33, 0.21, 0.71, 0.14, 0.08, 0.3101, 0.3162, 0},
    {"EBU (PAL/SECAM)", 0.64, 0.33, 0.29, 0.60, 0.15, 0.06, 0.3127, 0.3291, 0},
    {"SMPTE", 0.63, 0.34, 0.31, 0.595, 0.155, 0.07, 0.3127, 0.3291, 0},
    {"HDTV", 0.67, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3291, 0},
    {"CIE", 0.7355, 0.2645, 0.2658, 0.7243, 0.1669, 0.0085, 1.0 / 3, 1.0 / 3, 0},
    {"CIE REC 709", 0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3291, 0},
};
constexpr i32 kDefaultSystem = 4;

double Sum(const Vec3d& v) { return v.x + v.y + v.z; }
double Smallest(const Vec3d& v) { return std::min({v.x, v.y, v.z}); }

Vec3d Times(const std::array<Vec3d, 3>& rows, const Vec3d& v) {
  return {Dot(rows[0], v), Dot(rows[1], v), Dot(rows[2], v)};
}

// Cone responses of Hunt, Pointer and Estevez for equal energy, and back; Fairchild, "Color
// appearance models", ch. 3.
constexpr std::array<Vec3d, 3> kToCones = {
    {{0.3897, 0.689, -0.0787}, {-0.2298, 1.1834, 0.0464}, {0, 0, 1}}};
constexpr std::array<Vec3d, 3> kFromCones = {
    {{1.9102, -1.1121, 0.2019}, {0.3709, 0.629, 0}, {0, 0, 1}}};

/// Makes one colour, that of the first call, the white of all.
class Adaptation {
 public:
  Vec3d operator()(const Vec3d& xyz) {
    const Vec3d cones = Times(kToCones, xyz);
    if (!mHasWhite) {
      for (int a = 0; a < 3; ++a) mFactors[a] = cones[a] != 0 ? 1 / cones[a] : 1;
      mHasWhite = true;
    }
    return Times(kFromCones, cones * mFactors);
  }

 private:
  bool mHasWhite = false;
  Vec3d mFactors{1, 1, 1};
};

double Displayed(double c, double gamma) {
  if (gamma != 0) return std::pow(c, 1 / gamma);
  // Rec. 709; the slope joins the two parts at 0.018.
  return c >= 0.018 ? 1.099 * std::pow(c, 0.45) - 0.099 : c * 4.513774668618915;
}

}  // namespace

const ColourSystem& ColourSystem::ByIndex(i32 index) {
  const i32 count = std::size(kSystems);
  return kSystems[index >= 0 && index < count ? index : kDefaultSystem];
}

std::array<Vec3d, 3> ColourSystem::FromXyz() const {
  const auto column = [](double x, double y) { return Vec3d{x, y, 1 - x - y}; };
  const Vec3d r = column(xRed, yRed), g = column(xGreen, yGreen), b = column(xBlue, yBlue);
  const Vec3d white = column(xWhite, yWhite) / yWhite;
  // Rows of the inverse of the matrix of primaries, up to a common factor; each is then scaled so
  // that white gives 1.
  std::array<Vec3d, 3> rows = {Cross(g, b), Cross(b, r), Cross(r, g)};
  for (Vec3d& row : rows) row = row / Dot(row, white);
  return rows;
}

Vec3d BlackBody::Spectrum(double temperature) {
  Vec3d sum{};
  if (!(temperature > 0)) return sum;
  constexpr double c1 = 3.74183e-16, c2 = 0.014388;  // W m^2, m K
  double wavelength = kFirstWavelength;
  for (const MatchingRow& row : kMatchingFunctions) {
    const double m = wavelength * 1e-9;
    const double power = c1 / (m * m * m * m * m) / (std::exp(c2 / (temperature * m)) - 1);
    sum += Vec3d{row.x, row.y, row.z} * power;
    wavelength += kWavelengthStep;
  }
  return sum;
}

void BlackBody::Build(double scale, const Vec3d& tint, i32 systemIndex, bool adapt, bool gamma) {
  const ColourSystem& system = ColourSystem::ByIndex(systemIndex);
  const std::array<Vec3d, 3> toRgb = system.FromXyz();
  const double steps = std::max(0.0, (mTMax - mTMin) / mTStep);
  const i32 count = static_cast<i32>(std::min(steps, kMaxEntries)) + 1;
  if (steps > kMaxEntries) mTMax = mTMin + kMaxEntries * mTStep;
  mColours.assign(count, Vec3d{});
  Adaptation adaptation;
  for (i32 i = count - 1; i >= 0; --i) {
    Vec3d xyz = Spectrum((mTMax - (count - 1 - i) * mTStep) * scale);
    const double n = mNormalise ? Largest(xyz) : Sum(xyz);
    if (!(n > 0)) continue;
    xyz = xyz / n * tint;
    if (adapt) xyz = adaptation(xyz);
    Vec3d rgb = Times(toRgb, xyz);
    if (mNormalise) rgb = Max(Min(rgb, Vec3d{1, 1, 1}), Vec3d{});
    const double low = Smallest(rgb);
    if (low < 0) rgb -= Vec3d{low, low, low};
    const double high = Largest(rgb);
    if (high > 0) rgb = rgb / high;
    if (gamma)
      for (int a = 0; a < 3; ++a) rgb[a] = Displayed(rgb[a], system.gamma);
    mColours[i] = rgb;
  }
  mEntriesPerKelvin = mTMax > mTMin ? (count - 1) / (mTMax - mTMin) : 0.0;
  mReady = true;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
