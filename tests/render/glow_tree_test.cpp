#include "render/glow_tree.h"

#include <gtest/gtest.h>

#include "render/sampler.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

/// Boxes of uneven power and weight, some of them black.
std::vector<host::GlowingBox> Boxes() {
  std::vector<host::GlowingBox> boxes;
  for (i32 i = 0; i < 60; ++i) {
    Sampler sampler(77, static_cast<u32>(i));
    const Vec3d low{200 * sampler.Next1D(), 80 * sampler.Next1D(), 150 * sampler.Next1D()};
    const double power = i % 5 == 0 ? 0.0 : 100 * sampler.Next1D();
    boxes.push_back({low,
                     low + Vec3d{5, 3 + 4 * sampler.Next1D(), 6},
                     {power, 0.5 * power, 0},
                     power * (i % 3 == 0 ? 0.2 : 1.0)});
  }
  return boxes;
}

}  // namespace

// The picks' mean is the sum over all boxes, for points near and far.
TEST(GlowTree, PicksAddUpToAllLight) {
  constexpr i32 kPicks = 4096;
  const std::vector<host::GlowingBox> boxes = Boxes();
  const GlowTree tree(boxes);
  for (const Vec3d& at : {Vec3d{100, -60, 75}, Vec3d{-300, 0, 40}, Vec3d{5000, 2000, 0}}) {
    Vec3d sum, exact;
    double squares = 0;
    for (u32 i = 0; i < kPicks; ++i) {
      Sampler sampler(5, i);
      const double choice = sampler.Next1D(), depth = sampler.Next1D();
      const auto place = sampler.Next2D();
      const auto pick = tree.Choose(at, choice, {place.x, place.y, depth});
      sum += pick.light / kPicks;
      squares += pick.light.x * pick.light.x / kPicks;
    }
    for (const auto& box : boxes) {
      const Vec3d way = (box.min + box.max) * 0.5 - at;
      exact += box.power / Dot(way, way);
    }
    EXPECT_NEAR(sum.x / exact.x, 1, 0.01);
    EXPECT_NEAR(sum.y / exact.y, 1, 0.01);
    EXPECT_EQ(sum.z, 0);
    // Picking boxes blindly gives 3.6 here for the first point.
    EXPECT_LT(std::sqrt(squares) / sum.x, 1.6) << "picks follow what a box sends to the point";
  }
}

TEST(GlowTree, NothingGlows) {
  EXPECT_TRUE(GlowTree().IsEmpty());
  EXPECT_TRUE(GlowTree({{{0, 0, 0}, {1, 1, 1}, {}, 0}}).IsEmpty());
  const GlowTree one({{{0, 0, 0}, {2, 2, 2}, {6, 0, 0}, 1}});
  // From inside the box light stays finite.
  EXPECT_LT(one.Choose({1, 1, 1}, 0.3, {0.5, 0.5, 0.5}).light.x, 6 / 0.25);
}
