#include "fluids/rendering/black_body.h"

#include <gtest/gtest.h>

#include <cmath>

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

BlackBody Built(double scale, i32 system, bool adapt, bool gamma) {
  BlackBody body;
  body.mTStep = 5;
  body.Build(scale, {1, 1, 1}, system, adapt, gamma);
  return body;
}

Vec3d ColourOf(const BlackBody& body, double temperature) {
  Vec3d colour;
  body.Colour(colour, temperature);
  return colour;
}

// Chromaticities and linear RGB of Rec. 709 primaries of the published tables.
TEST(BlackBody, ChromaticitiesAreThePublishedOnes) {
  const double known[][3] = {
      {1000, 0.65283, 0.34439}, {3000, 0.43694, 0.40408}, {6500, 0.31355, 0.32367}};
  for (const auto& [kelvin, x, y] : known) {
    const Vec3d xyz = BlackBody::Spectrum(kelvin);
    const double sum = xyz.x + xyz.y + xyz.z;
    EXPECT_NEAR(xyz.x / sum, x, 5e-4) << kelvin;
    EXPECT_NEAR(xyz.y / sum, y, 5e-4) << kelvin;
  }
  const BlackBody body = Built(1, 5, false, false);
  const Vec3d warm = ColourOf(body, 3000), white = ColourOf(body, 6500);
  EXPECT_NEAR(warm.x, 1, 1e-12);
  EXPECT_NEAR(warm.y, 0.47681, 2e-3);
  EXPECT_NEAR(warm.z, 0.15366, 2e-3);
  EXPECT_NEAR(white.y, 0.94294, 2e-3);
  EXPECT_NEAR(white.z, 0.99204, 2e-3);
}

TEST(BlackBody, EverySystemTakesItsWhiteToWhite) {
  for (i32 i = 0; i < 6; ++i) {
    const ColourSystem& s = ColourSystem::ByIndex(i);
    const Vec3d white = Vec3d{s.xWhite, s.yWhite, 1 - s.xWhite - s.yWhite} / s.yWhite;
    const Vec3d green = Vec3d{s.xGreen, s.yGreen, 1 - s.xGreen - s.yGreen};
    const auto rows = s.FromXyz();
    for (const Vec3d& row : rows) EXPECT_NEAR(Dot(row, white), 1, 1e-12) << s.name;
    EXPECT_NEAR(Dot(rows[0], green), 0, 1e-12) << s.name;
    EXPECT_NEAR(Dot(rows[2], green), 0, 1e-12) << s.name;
  }
  EXPECT_EQ(ColourSystem::ByIndex(99).name, "CIE");
}

TEST(BlackBody, LookUpOutsideAndAtTheEndsOfTheTable) {
  EXPECT_EQ(ColourOf(BlackBody{}, 1500), Vec3d{});
  BlackBody body;
  body.mTMin = 0;
  body.mTMax = 5000;
  body.mTStep = 5;
  body.Build(1, {1, 1, 1}, 4, false, true);
  ASSERT_EQ(body.mColours.size(), 1001u);
  EXPECT_EQ(ColourOf(body, 0), Vec3d{});  // nothing glows at 0 K
  EXPECT_EQ(ColourOf(body, -10), body.mColours.front());
  EXPECT_EQ(ColourOf(body, 1e9), body.mColours.back());
  EXPECT_EQ(ColourOf(body, 1505), body.mColours[301]);
  const Vec3d between = (body.mColours[301] + body.mColours[302]) * 0.5;
  EXPECT_NEAR(ColourOf(body, 1507.5).y, between.y, 1e-12);
  for (const Vec3d& c : body.mColours)
    for (int a = 0; a < 3; ++a) EXPECT_TRUE(c[a] >= 0 && c[a] <= 1);
}

TEST(BlackBody, AdaptationMakesTheHottestColourWhiteAndScaleShiftsTheTable) {
  const BlackBody adapted = Built(1, 4, true, true);
  for (int a = 0; a < 3; ++a) EXPECT_NEAR(adapted.mColours.back()[a], 1, 2e-3);
  const BlackBody plain = Built(1, 5, false, true), doubled = Built(2, 5, false, true);
  for (int a = 0; a < 3; ++a)
    EXPECT_NEAR(ColourOf(doubled, 1500)[a], ColourOf(plain, 3000)[a], 1e-12);
}

TEST(BlackBody, ARangeWithoutEndIsCut) {
  BlackBody body;
  body.mTMin = 0;
  body.mTMax = 1.7976931348623157e308;
  body.mTStep = 5;
  body.Build(1, {1, 1, 1}, 4, false, false);
  EXPECT_LE(body.mColours.size(), 65537u);
  EXPECT_GT(ColourOf(body, 1500).x, 0.9);
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
