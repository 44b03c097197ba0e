// The sides of a container inside of the user's box.
#include <gtest/gtest.h>

#include <numbers>

#include "fluids/gas_rig.h"
#include "fluids/volume/mesh_solid.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr i32 kMiddle = 60;  // of the user's box, in cells
constexpr double kCellSize = 0.1;

struct SidesRig : GasRig {
  explicit SidesRig(i32 threads = 1, i32 middle = kMiddle)
      : GasRig({2 * middle, 2 * middle, 2 * middle}, kCellSize, threads) {}
  std::vector<VolumeBase*> obstacles;  ///< that stand in the gas
  /// A step with a source of 1 m^3/s round the middle, `above` cells over the floor, in a container
  /// of the content from -`reach` to `reach` cells round it.
  void Expand(double reach, double above = kMiddle) {
    SetUp();
    const Vec3d middle{kMiddle, above, kMiddle}, r{reach, reach, reach};
    Fit(middle - r, middle + r);
    gas->mFlow.mBoundary.mObstacles = obstacles;
    RunGas(kEmitters);
    EGrid<double>& source = *gas->mFlow.mDivergence.GetGrid(0);
    double volume = 0;
    const auto isInside = [&](const Vec3d& p) { return Length(p - middle * kCellSize) < 0.35; };
    Fill(source, [&](const Vec3d& p) { return isInside(p) ? 1.0 : 0.0; });
    for (i32 i = 0; i < source.mCount; ++i) volume += source[i] * kCellSize * kCellSize * kCellSize;
    for (i32 i = 0; i < source.mCount; ++i) source[i] /= volume;
    RunGas(kPressure);
  }
  /// u at a face `x` cells from the middle along x, `y` and `z` along the others.
  double U(i32 x, double y, double z, double above = kMiddle) const {
    const EGrid<double>& u = *gas->mFlow.mVelocity.GetGrid(0);
    return SampleLinear(
        u, u.ToSamples(Vec3d{kMiddle + double(x), above + y, kMiddle + z} * kCellSize));
  }
  static double Exact(double x, double y, double z) {
    const Vec3d r = Vec3d{x, y, z} * kCellSize;
    return r.x / (4 * std::numbers::pi * std::pow(Length(r), 3));
  }
  /// The largest component at an open face between inner cells.
  double MaxSpeed() const {
    double most = 0;
    const VecInt3D n = gas->mFlow.GetLayout()->dims;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<float>& open = *gas->mFlow.GetOpenFaces(axis);
      const EGrid<double>& v = *gas->mFlow.mVelocity.GetGrid(axis);
      ForEachCell({{1, 1, 1}, n - VecInt3D{1, 1, 1} + ExtraOf(axis)}, [&](i32 x, i32 y, i32 z) {
        if (open(x, y, z) > 0) most = std::max(most, std::fabs(v(x, y, z)));
      });
    }
    return most;
  }
  void AppendVelocity(std::vector<double>& out) const {
    for (i32 a = 0; a < 3; ++a) {
      const EGrid<double>& g = *gas->mFlow.mVelocity.GetGrid(a);
      out.insert(out.end(), g.mData, g.mData + g.mCount);
    }
  }
};

/// How far the centre of a hot ball has risen, m, after a second, in a container that follows it,
/// or with `whole` in the whole of the user's box.
double RiseOfAPuff(i32 sides, bool whole) {
  GasRig rig({40, 60, 40}, kCellSize);
  rig.gasNode->Set(1310, sides);
  const host::BaseNode& heatNode = rig.Add("channel_temp", "heat");
  auto* heat = rig.Object<ScalarField>(heatNode);
  host::BaseNode& lift = rig.Add("force_buoyancy", "lift");
  lift.Set(1000, LinkTo(heatNode));
  lift.Set(1004, 0.03);
  for (const host::BaseNode* target :
       {&heatNode, static_cast<const host::BaseNode*>(rig.gasNode)}) {
    host::BaseNode& move = rig.Add("grid_advection", "move");
    move.Set(1000, LinkTo(*target));
    move.Set(1005, LinkTo(*rig.gasNode));
  }
  const Vec3d start = Vec3d{20, 18, 20} * kCellSize;
  double height = 0;
  for (i32 step = 0; step < 25; ++step) {
    rig.SetUp();
    Vec3d min{kUnbounded, kUnbounded, kUnbounded}, max = -min;
    heat->ExpandBounds(min, max);
    if (step == 0) min = start - Vec3d{0.5, 0.5, 0.5}, max = start + Vec3d{0.5, 0.5, 0.5};
    if (whole)
      rig.Fit();
    else
      rig.Fit(min * (1 / kCellSize), max * (1 / kCellSize));
    EGrid<double>& field = *heat->GetGridForWrite(0);
    if (step == 0)
      GasRig::Fill(field, [&](const Vec3d& p) { return Length(p - start) < 0.5 ? 100.0 : 0.0; });
    rig.RunGas(kEmitters);
    rig.RunOperators();
    for (const i32 stage : {kForcesEmission, kPressure, kFlip}) rig.RunGas(stage);
    heat->UpdateRange();
    double sum = 0, moment = 0;
    const EGrid<double>& moved = *heat->GetGrid(0);
    ForEachCell({{0, 0, 0}, moved.Dims()}, [&](i32 x, i32 y, i32 z) {
      sum += moved(x, y, z);
      moment += moved(x, y, z) * moved.PositionOf(x, y, z).y;
    });
    height = moment / sum - start.y;
  }
  return height;
}

}  // namespace

TEST(ContainerSides, APuffRisesAsInTheWholeBox) {
  const double whole = RiseOfAPuff(0, true);
  // Half of its radius at least; as a ball that drags half of its own mass of air along, and loses
  // nothing, it would gain 2 m/s^2 in 24 steps.
  EXPECT_GT(whole, 0.25);
  EXPECT_LT(whole, 0.96);
  EXPECT_NEAR(RiseOfAPuff(0, false) / whole, 1, 0.02);
  EXPECT_LT(RiseOfAPuff(1, false) / whole, 0.95);
}

TEST(ContainerSides, AStrongDraughtThroughThemIsThatOfTheWholeBox) {
  // Of several cells in a step, and of dozens.
  const auto speed = [](double push, double height) {
    GasRig rig({20, 20, 20}, kCellSize);
    rig.Walls(0, 1, 1, 0, 1, 1);
    rig.Add("force_gravity", "draught").Set(1000, Vec3d{0, -push, 0});
    rig.Add("grid_advection", "move").Set(1005, LinkTo(*rig.gasNode));
    for (i32 step = 0; step < 30; ++step) {
      rig.SetUp();
      rig.Fit({0, 0, 0}, {20, height, 20});
      rig.RunGas(kEmitters);
      rig.RunOperators();
      for (const i32 stage : {kForcesEmission, kPressure, kFlip}) rig.RunGas(stage);
    }
    EXPECT_TRUE(rig.gas->TakeWarnings().empty());
    double sum = 0;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(axis);
      ForEachCell({{1, 1, 1}, {21, 13, 21}},
                  [&](i32 x, i32 y, i32 z) { sum += v(x, y, z) * v(x, y, z); });
    }
    return std::sqrt(sum / (20 * 12 * 20));
  };
  const double whole = speed(30, 20);
  EXPECT_GT(whole, 4);
  EXPECT_NEAR(speed(30, 9) / whole, 1, 0.1);
  EXPECT_NEAR(speed(500, 9) / speed(500, 20), 1, 0.4);
}

TEST(ContainerSides, WhatExpandsFlowsOutAlikeOnAllOfThem) {
  SidesRig rig;
  rig.Expand(7);
  ASSERT_EQ(rig.gas->mFlow.GetLayout()->dims.x, 24);
  EXPECT_EQ(rig.gas->mFlow.mBoundary.mWalls, 0);
  // In the middle of a side, at an edge and in a corner.
  EXPECT_NEAR(rig.U(11, 0, 0) / SidesRig::Exact(11, 0, 0), 1, 0.04);
  EXPECT_NEAR(rig.U(11, 10.5, 0) / SidesRig::Exact(11, 10.5, 0), 1, 0.04);
  EXPECT_NEAR(rig.U(11, 10.5, 10.5) / SidesRig::Exact(11, 10.5, 10.5), 1, 0.04);
  EXPECT_NEAR(rig.U(-6, 6, 0) / SidesRig::Exact(-6, 6, 0), 1, 0.03);
  EXPECT_LT(rig.gas->mPressure.DivergenceMax(), 1e-6);
}

TEST(ContainerSides, AsToldTheyAreThoseOfTheBox) {
  SidesRig rig;
  rig.gasNode->Set(1310, i32{1});
  rig.Expand(7);
  EXPECT_EQ(rig.gas->mFlow.mBoundary.mWalls, kWallsAll);
  EXPECT_NEAR(rig.U(11, 0, 0), 0, 1e-6);
  rig.Walls(0, 0, 0, 0, 0, 0);
  rig.Expand(7);
  EXPECT_EQ(rig.gas->mFlow.mBoundary.mWalls, 0);
  EXPECT_LT(rig.U(11, 0, 0) / SidesRig::Exact(11, 0, 0), 0.9);
}

TEST(ContainerSides, WhereTheyTouchTheBoxItsWallsHold) {
  SidesRig rig;
  rig.Expand(7, 7);
  EXPECT_EQ(rig.gas->mFlow.GetLayout()->originCell.y, -1);
  EXPECT_EQ(rig.gas->mFlow.mBoundary.mWalls, kWallLowY);
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  for (i32 z = 1; z < v.mNz - 1; ++z)
    for (i32 x = 1; x < v.mNx - 1; ++x) ASSERT_EQ(v(x, 1, z), 0);
  // The floor mirrors the source.
  const auto exact = [](double x, double y) {
    return SidesRig::Exact(x, y, 0) + SidesRig::Exact(x, y + 14, 0);
  };
  EXPECT_NEAR(rig.U(11, 0, 0, 7) / exact(11, 0), 1, 0.05);
  EXPECT_NEAR(rig.U(11, -6.5, 0, 7) / exact(11, -6.5), 1, 0.05);
  EXPECT_NEAR(rig.U(11, 10, 0, 7) / exact(11, 10), 1, 0.05);
  // A gap that is too narrow for a flow of its own is part of the container.
  rig.Expand(2, 9);
  EXPECT_EQ(rig.gas->mFlow.GetLayout()->originCell.y, -1);
}

// A wall across the gas outside, at some places between the lines of the lattice: thick, thin and
// without any thickness.
TEST(ContainerSides, WallsOutsideOfThemTurnTheFlowBack) {
  for (const double thickness : {0.0, 0.4, 2.5, 6.0})
    for (const double away : {15.0, 16.6, 18.3}) {
      const Vec3d centre{kMiddle + away + thickness / 2, kMiddle, kMiddle};
      MeshSolid wall(TurnedBox(centre, {thickness, 130, 130}, 0, 0, kCellSize).mesh, kCellSize);
      SidesRig rig;
      rig.obstacles = {&wall};
      rig.Expand(7);
      ASSERT_EQ(rig.gas->mFlow.GetLayout()->dims.x, 24);
      // It mirrors the source.
      const auto exact = [&](double x) {
        return SidesRig::Exact(x, 0, 0) - SidesRig::Exact(2 * away - x, 0, 0);
      };
      EXPECT_NEAR(rig.U(11, 0, 0) / exact(11), 1, 0.15) << thickness << " " << away;
      EXPECT_NEAR(rig.U(-11, 0, 0) / exact(-11), 1, 0.06) << thickness << " " << away;
    }
}

// Walls that part the container and all of the user's box in two, askew to every lattice.
TEST(ContainerSides, WallsThatCrossThemPartTheGas) {
  constexpr std::pair<double, double> kWalls[] = {{0, 0}, {0, 0.7}, {0.4, 0.2}, {3, 0.5}};
  for (const auto& [thickness, angle] : kWalls) {
    const TurnedBox box(Vec3d{kMiddle, kMiddle, kMiddle} -
                            Vec3d{std::cos(angle), std::sin(angle), 0} * (6.3 + thickness / 2),
                        {thickness, 170, 124}, angle, 0, kCellSize);
    MeshSolid wall(box.mesh, kCellSize);
    SidesRig rig;
    rig.obstacles = {&wall};
    rig.Walls(0, 0, 0, 0, 0, 0);
    rig.Expand(7);
    // It mirrors the source, and what is behind it rests.
    const auto exact = [&](const Vec3d& p) {
      const Vec3d mirror = box.axis[0] * (2 * 6.3);
      return SidesRig::Exact(p.x, p.y, p.z) +
             SidesRig::Exact(p.x + mirror.x, p.y + mirror.y, p.z + mirror.z);
    };
    for (const Vec3d& p : {Vec3d{11, 0.5, 0.5}, Vec3d{8, -3.5, 4.5}, Vec3d{5, 8.5, 0.5}})
      EXPECT_NEAR(rig.U(static_cast<i32>(p.x), p.y, p.z) / exact(p), 1, 0.1)
          << thickness << " " << angle << " " << p.x;
    const Vec3d behind = box.axis[0] * -(9.5 + thickness);
    EXPECT_NEAR(rig.U(static_cast<i32>(behind.x), behind.y, 0.5) / exact(-behind), 0, 0.05)
        << thickness << " " << angle;
  }
}

TEST(ContainerSides, FreeOnesStandTwoCellsOffWhatMoves) {
  for (const i32 sides : {0, 1})
    for (const i32 padding : {0, 1, 2, 3}) {
      SidesRig rig;
      rig.gasNode->Set(FluidSolver::kPaddingRow, padding);
      rig.gasNode->Set(FluidSolver::kSidesRow, sides);
      rig.SetUp();
      rig.Fit({50, 50, 50}, {60, 60, 60});
      const i32 cells = sides == 0 ? std::max(padding, 2) : padding;
      EXPECT_EQ(rig.gas->mFlow.GetLayout()->dims.x, 10 + 2 * cells) << padding << " " << sides;
    }
}

TEST(ContainerSides, CellsThatAreGainedGoOnWithTheFlow) {
  SidesRig rig;
  rig.Expand(7);
  rig.SetUp();
  const Vec3d middle{kMiddle, kMiddle, kMiddle};
  rig.Fit(middle - Vec3d{10, 7, 7}, middle + Vec3d{12, 9, 7});
  // Where the container was, and in the first and the last layer of what it gained.
  for (const i32 x : {-14, -13, -6, 11, 12, 13, 16})
    EXPECT_NEAR(rig.U(x, 1.5, 0.5) / SidesRig::Exact(x, 1.5, 0.5), 1, 0.06) << x;
}

TEST(ContainerSides, WhatPushesAllOfTheGasLeavesAClosedBoxAtRest) {
  // In mid air, and on the floor, where the pressure goes on rising into the wall.
  for (const double floor : {40, 0}) {
    SidesRig rig;
    rig.Add("force_gravity", "gravity");
    for (i32 i = 0; i < 3; ++i) {
      rig.SetUp();
      const double up = 2 * i;
      rig.Fit({50, floor + (floor > 0 ? up : 0), 50}, {64, floor + 20 + up, 70});
      for (const i32 stage : {kEmitters, kForcesEmission, kPressure, kFlip}) rig.RunGas(stage);
    }
    // Without the gas outside it would fall by 0.4 m/s in each of the steps.
    EXPECT_LT(std::sqrt(rig.gas->mFlow.MeasureMaxSpeedSq()), 1e-3) << floor;
  }
}

// Whatever stands in the container, in its sides and beyond them, and however it is turned.
TEST(ContainerSides, GasRestsBesideSolidsThatCrossThem) {
  constexpr i32 kHalf = 20;
  const Vec3d middle{kHalf, kHalf, kHalf};
  const auto solid = [&](const Vec3d& at, const Vec3d& size, double aboutZ, double aboutY) {
    return std::make_unique<MeshSolid>(TurnedBox(middle + at, size, aboutZ, aboutY, kCellSize).mesh,
                                       kCellSize);
  };
  constexpr double kQuarter = std::numbers::pi / 2;
  std::vector<std::vector<std::unique_ptr<MeshSolid>>> cases(6);
  cases[0].push_back(solid({0, -4.3, 0}, {0, 70, 70}, kQuarter, 0));         // a sheet, level
  cases[1].push_back(solid({0, -5.5, 0}, {0, 70, 70}, kQuarter + 0.09, 0));  // and not quite
  cases[2].push_back(solid({0, -8, 0}, {0, 70, 70}, 1.1, 0.4));
  cases[3].push_back(solid({8, 0, 0}, {12, 3, 9}, 0.35, 0.2));    // a block in a side
  cases[4].push_back(solid({0, -10, 0}, {70, 6, 70}, 0.2, 0.3));  // a floor on the slant
  cases[5].push_back(solid({9, 2, 0}, {12, 3, 9}, 0.6, 0));       // all kinds
  cases[5].push_back(solid({-9, 3, 2}, {0, 12, 12}, 1.2, 0.3));
  cases[5].push_back(solid({0, -9, 0}, {70, 5, 70}, 0.14, 0.2));
  for (const i32 openTop : {0, 1})
    for (std::size_t i = 0; i < cases.size(); ++i) {
      SidesRig rig(1, kHalf);
      rig.Walls(1, 1, 1, 1 - openTop, 1, 1);
      rig.Add("force_gravity", "gravity");
      for (i32 step = 0; step < 3; ++step) {
        rig.SetUp();
        rig.Fit(middle - Vec3d{5, 3, 5}, middle + Vec3d{5.0 + step, 5, 5});
        rig.gas->mFlow.mBoundary.mObstacles.clear();
        for (const auto& one : cases[i]) rig.gas->mFlow.mBoundary.mObstacles.push_back(one.get());
        for (const i32 stage : {kEmitters, kForcesEmission, kPressure, kFlip}) rig.RunGas(stage);
      }
      EXPECT_LT(rig.MaxSpeed(), 1e-6) << i << " " << openTop;
    }
}

TEST(ContainerSides, NothingDependsOnTheNumberOfWorkers) {
  std::vector<double> first;
  for (const i32 threads : {1, 2, 5}) {
    SidesRig rig(threads);
    rig.Add("grid_advection", "move").Set(1005, LinkTo(*rig.gasNode));
    rig.Expand(6);
    rig.RunOperators();
    rig.Expand(8);
    std::vector<double> state;
    rig.AppendVelocity(state);
    if (first.empty()) first = state;
    EXPECT_EQ(state, first) << threads;
  }
}
