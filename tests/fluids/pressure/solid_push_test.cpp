// What moving solids push beside resting ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using projection::Box;
using projection::FormulaVolume;
using projection::MakeLayout;

namespace {

constexpr f32 kWide = 0.1f;

/// The exact distance to a box between `low` and `high`, all in cells of a unit grid.
double DistanceTo(const Vec3d& low, const Vec3d& high, const Vec3d& p) {
  Vec3d outside;
  double inside = -1e9;
  for (int a = 0; a < 3; ++a) {
    const double d = std::max(low[a] - p[a], p[a] - high[a]);
    outside[a] = std::max(d, 0.0);
    inside = std::max(inside, d);
  }
  return inside > 0 ? Length(outside) : inside;
}

FormulaVolume Block(const VecInt3D& cells, const Vec3d& low, const Vec3d& high) {
  return {MakeLayout(cells, kWide),
          [=](const Vec3d& p) { return kWide * DistanceTo(low, high, p / kWide); }};
}

/// All that isn't in a tube along x between `low` and `high` of y and z.
FormulaVolume Tube(const VecInt3D& cells, const Vec3d& low, const Vec3d& high) {
  const Vec3d far{1e6, 0, 0};
  return {MakeLayout(cells, kWide),
          [=](const Vec3d& p) { return -kWide * DistanceTo(low - far, high + far, p / kWide); }};
}

}  // namespace

// A piston pushes what its tube leaves open times its speed, wherever the two stand to the grid,
// and whether it fills the tube or reaches into its walls.
TEST(SolidPush, APistonPushesTheOpenPartOfItsTube) {
  const VecInt3D cells{26, 16, 16};
  const double speed = 0.5;
  for (const auto& [low, high] : {std::pair{Vec3d{0, 5.4, 4.2}, Vec3d{0, 10.9, 8.9}},
                                  {Vec3d{0, 5.5, 4.5}, Vec3d{0, 10.5, 9.5}},
                                  {Vec3d{0, 5, 4}, Vec3d{0, 11, 9}}})
    for (const double overlap : {0.0, 0.6, 3.0})
      for (const double front : {11.0, 11.15, 11.5, 11.9}) {
        const FormulaVolume tube = Tube(cells, low, high);
        const Vec3d wider{0, overlap, overlap}, length{3, 0, 0}, end{front, 0, 0};
        FormulaVolume piston = Block(cells, low - wider - length + end, high + wider + end);
        Box box(cells, kWide, u8(kWallsAll & ~kWallLowX & ~kWallHighX),
                {const_cast<FormulaVolume*>(&tube), &piston});
        box.projection.mCG.mAccuracy.tolerance = 1e-10;
        box.projection.moving = {{&piston, {}, {speed, 0, 0}, {}}};
        box.projection.resting = {&tube};
        box.Project();
        double area = 0;
        ForEachCell({{20, 1, 1}, {21, 15, 15}},
                    [&](i32 i, i32 j, i32 k) { area += (*box.fractions.GetRead(0, 1))(i, j, k); });
        ASSERT_NEAR(area, (high.y - low.y) * (high.z - low.z), 0.06 * area)
            << "as four corners tell";
        for (const i32 x : {4, 18}) {
          double flow = 0;
          ForEachCell({{x, 1, 1}, {x + 1, 15, 15}}, [&](i32 i, i32 j, i32 k) {
            flow += (*box.fractions.GetRead(0, 1))(i, j, k) * (*box.velocity[0])(i, j, k);
          });
          EXPECT_NEAR(flow, speed * area, 0.002 * speed * area)
              << low.y << " " << overlap << " " << front << " " << x;
        }
      }
}

// A block that slides half sunk in a floor takes no room from a sealed box. One that rises out of
// the floor, or sinks into it, pushes or leaves what shows of it.
TEST(SolidPush, ABlockComesOutOfAFloor) {
  const VecInt3D cells{18, 18, 18};
  const double speed = 0.4;
  for (const double floor : {3.0, 3.4, 3.85})
    for (const Vec3d& way :
         {Vec3d{1, 0, 0}, Vec3d{0.8, 0, -0.6}, Vec3d{0, 1, 0}, Vec3d{0, -1, 0}}) {
      FormulaVolume ground = Block(cells, {-9, -9, -9}, {30, floor, 30});
      FormulaVolume block = Block(cells, {6.3, 1.1, 6.8}, {11.6, 7.3, 10.9});
      Box box(cells, kWide, u8(way.y == 0 ? kWallsAll : kWallsAll & ~kWallHighY),
              {&ground, &block});
      box.projection.moving = {{&block, {}, way * speed, {}}};
      box.projection.resting = {&ground};
      box.Project();
      const double push = way.y * speed * 5.3 * 4.1 * kWide * kWide * 0.02;
      const VolumeLedger ledger = box.projection.TakeLedger();
      EXPECT_NEAR(ledger.left, push, 0.1 * std::fabs(push) + 1e-9) << floor << " " << way.y;
      EXPECT_NEAR(ledger.squeezed, 0, 1e-9) << floor;
      EXPECT_TRUE(box.projection.TakeWarnings().empty()) << floor;
    }
}
