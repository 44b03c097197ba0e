#include <gtest/gtest.h>

#include "fluids/advection/moved_smoke.h"
#include "fluids/volume/mesh_solid.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

TEST(ConservativeAdvection, TheTotalOfAClosedBoxStaysPastObstaclesToo) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack})
    for (const bool obstacle : {false, true}) {
      ConservativeRig rig({18, 18, 18}, 0.1, scheme);
      rig.Begin();
      if (obstacle) rig.Ball({0.8, 1.0, 0.9}, 0.32);
      rig.Puff({0.6, 0.5, 0.7}, 0.35);
      rig.FillVelocity([](const Vec3d& p) { return Stir(p, 1.8) * 3.0; });
      const double total = rig.Total();
      ASSERT_GT(total, 50);
      rig.Move(200);
      const double drift = std::abs(rig.Total() - total) / total;
      RecordProperty("drift", std::to_string(drift));
      EXPECT_LT(drift, 1e-12) << scheme << (obstacle ? " with an obstacle" : "");
      const EGrid<double>& g = *rig.smoke->mGrid;
      const auto [low, high] = std::minmax_element(g.mData, g.mData + g.mCount);
      EXPECT_GE(*low, 0) << scheme;
      EXPECT_LE(*high, scheme == kConservative ? 2.0 : 1.0);
    }
}

TEST(ConservativeAdvection, GasAtRestKeepsEveryBit) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    ConservativeRig rig({10, 9, 8}, 0.1, scheme);
    rig.Begin();
    rig.Puff({0.5, 0.4, 0.4}, 0.3);
    const std::vector<double> before(rig.smoke->mGrid->mData,
                                     rig.smoke->mGrid->mData + rig.smoke->mGrid->mCount);
    rig.Move(3);
    for (size_t i = 0; i < before.size(); ++i) ASSERT_EQ(before[i], (*rig.smoke->mGrid)[i]);
  }
}

TEST(ConservativeAdvection, AConstantStaysConstantWithinItsCleanUp) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    ConservativeRig rig({20, 20, 20}, 0.1, scheme);
    rig.node->Set(1003, i32{3});
    rig.Begin();
    rig.Puff({1, 1, 1}, 100);
    rig.FillVelocity([](const Vec3d& p) { return Stir(p, 2.0) * 0.25; });
    rig.Move(3);
    // Both even out what the traces of one step leave, most of it beside walls.
    ForEachCell({{1, 1, 1}, {21, 21, 21}}, [&](i32 x, i32 y, i32 z) {
      const i32 wall = std::min({x, y, z, 21 - x, 21 - y, 21 - z});
      ASSERT_NEAR((*rig.smoke->mGrid)(x, y, z) / 0.7, 1, wall > 3 ? 1e-2 : 2e-2) << scheme;
    });
  }
}

TEST(ConservativeAdvection, AConstantStaysNearlySoForLong) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack})
    for (const double speed : {0.5, 3.0}) {
      ConservativeRig rig({20, 20, 20}, 0.1, scheme);
      rig.Begin();
      rig.Puff({1, 1, 1}, 100);
      rig.FillVelocity([&](const Vec3d& p) { return Stir(p, 2.0) * speed; });
      rig.Move(100);
      double low = 1, high = 1;
      ForEachCell({{1, 1, 1}, {21, 21, 21}}, [&](i32 x, i32 y, i32 z) {
        low = std::min(low, (*rig.smoke->mGrid)(x, y, z) / 0.7);
        high = std::max(high, (*rig.smoke->mGrid)(x, y, z) / 0.7);
      });
      EXPECT_GT(low, 0.97) << scheme << " at " << speed;
      EXPECT_LT(high, 1.03) << scheme << " at " << speed;
    }
}

TEST(ConservativeAdvection, AConstantStaysNearlySoRoundAMovingBall) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    ConservativeRig rig({20, 20, 20}, 0.1, scheme);
    rig.Begin();
    const auto place = [&](i32 step) { rig.Ball({0.7 + 0.04 * step, 0.9, 1.13}, 0.33); };
    place(0);
    rig.Puff({1, 1, 1}, 100);
    rig.FillVelocity([](const Vec3d& p) { return Stir(p, 2.0) * 0.15; });
    rig.Move(1);
    const double total = rig.Total();
    for (i32 step = 1; step < 18; ++step) {
      place(step);
      rig.Move(1);
      ASSERT_NEAR(rig.Total() / total, 1, 1e-12);
      ForEachCell({{1, 1, 1}, {21, 21, 21}}, [&](i32 x, i32 y, i32 z) {
        const double value = (*rig.smoke->mGrid)(x, y, z) / 0.7;
        if (rig.IsOpen(x, y, z))
          ASSERT_NEAR(value, 1, 0.01) << scheme << " in step " << step;
        else
          ASSERT_EQ(value, 0);
      });
    }
  }
}

TEST(ConservativeAdvection, NothingPassesAPiston) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    ConservativeRig rig({24, 10, 10}, 0.1, scheme);
    rig.Begin();
    const auto place = [&](i32 step) {
      const double middle = 1.2 - 0.06 * step;
      rig.Solid([&](const Vec3d& p) { return std::abs(p.x - middle) - 0.2; });
    };
    place(0);
    rig.Puff({0.5, 0.5, 0.5}, 0.35);
    rig.FillVelocity([](const Vec3d& p) { return Stir({p.x * 2, p.y, p.z}, 1.0) * 1.5; });
    rig.Move(1);
    const double total = rig.Total();
    ASSERT_GT(total, 40);
    for (i32 step = 1; step < 10; ++step) {
      place(step);
      rig.Move(1);
    }
    double ahead = 0;
    ForEachCell({{1, 1, 1}, {6, 11, 11}},
                [&](i32 x, i32 y, i32 z) { ahead += (*rig.smoke->mGrid)(x, y, z); });
    EXPECT_NEAR(ahead / total, 1, 1e-12) << scheme;
  }
}

TEST(ConservativeAdvection, NothingPassesAThinWall) {
  // Winds that know nothing of the wall, and stir on both of its sides.
  for (const i32 scheme : {kConservative, kConservativeMacCormack})
    for (const double thickness : {0.0, 0.1, 0.5})
      for (const double turn : {0.0, 0.3, 0.785398163397448})
        for (i32 place = 0; place < 5; ++place) {
          ConservativeRig rig({16, 12, 12}, 0.1, scheme);
          rig.SetUp();
          const TurnedBox sheet({8 + 0.2 * place, 6, 6}, {thickness, 40, 40}, turn, 0.4 * turn,
                                rig.scene->mDomain.cellSize);
          MeshSolid solid(sheet.mesh, rig.scene->mDomain.cellSize);
          rig.gas->mFlow.mBoundary.mObstacles = {&solid};
          rig.Fit();
          rig.RunGas(kEmitters);
          ASSERT_TRUE(rig.gas->mFlow.mThinFaces.HasAny());
          const double size = rig.scene->mDomain.cellSize;
          const auto side = [&](const Vec3d& p) { return sheet.Side(p / size); };
          GasRig::Fill(*rig.smoke->mGrid,
                       [&](const Vec3d& p) { return side(p) < -thickness / 2 ? 1.0 : 0.0; });
          rig.FillVelocity([](const Vec3d& p) {
            return Stir({p.x / 1.6, p.y / 1.2, p.z / 1.2}, 1.0) * 4.0 + Vec3d{1.5, 0, 0};
          });
          const double total = rig.Total();
          ASSERT_GT(total, 300);
          // Another set-up would find the obstacles of the scene, of which there are none.
          for (i32 step = 0; step < 8; ++step) rig.RunOperators();
          const EGrid<double>& g = *rig.smoke->mGrid;
          double behind = 0;
          ForEachCell({{1, 1, 1}, {17, 13, 13}}, [&](i32 x, i32 y, i32 z) {
            if (side(g.PositionOf(x, y, z)) > thickness / 2 + 1e-9) behind += g(x, y, z);
          });
          ASSERT_EQ(behind, 0) << scheme << ": " << thickness << " turned by " << turn << " at "
                               << place;
          ASSERT_NEAR(rig.Total() / total, 1, 1e-12);
        }
}

TEST(ConservativeAdvection, APlateAcrossTheBoxLeavesAUniformFieldAsItIs) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack})
    for (const i32 axis : {1, 2}) {
      ConservativeRig rig({24, 12, 12}, 0.1, scheme);
      rig.SetUp();
      Vec3d middle{12, 6, 6}, size{60, 60, 60};
      size[axis] = 0.2;
      const TurnedBox plate(middle, size, 0, 0, rig.scene->mDomain.cellSize);
      MeshSolid solid(plate.mesh, rig.scene->mDomain.cellSize);
      rig.gas->mFlow.mBoundary.mObstacles = {&solid};
      rig.Fit();
      rig.RunGas(kEmitters);
      ASSERT_TRUE(rig.gas->mFlow.mThinFaces.HasAny());
      GasRig::Fill(*rig.smoke->mGrid, [](const Vec3d&) { return 0.5; });
      // Whirls on both sides of it.
      rig.FillVelocity([](const Vec3d& p) { return Stir(p, 0.6) * 1.5; });
      for (i32 step = 0; step < 50; ++step) rig.RunOperators();
      ForEachCell({{1, 1, 1}, {25, 13, 13}}, [&](i32 x, i32 y, i32 z) {
        ASSERT_NEAR((*rig.smoke->mGrid)(x, y, z), 0.5, 0.01)
            << scheme << " at " << x << " " << y << " " << z;
      });
    }
}

TEST(ConservativeAdvection, MirroredFlowsMoveMirroredFields) {
  struct Case {
    i32 length;
    bool obstacle;
  };
  // In a long box much is empty for long.
  for (const i32 scheme : {kConservative, kConservativeMacCormack})
    for (const auto& [length, obstacle] : {Case{20, false}, Case{20, true}, Case{64, false}}) {
      ConservativeRig rig({length, 20, 20}, 0.1, scheme);
      rig.Begin();
      const EGrid<double>& g = *rig.smoke->mGrid;
      const double middle = 0.05 * g.Dims().x + g.mLayout.simOrigin.x;
      if (obstacle) rig.Ball({middle, 1.2, 0.9}, 0.3);
      rig.Puff({middle, 0.5, 0.7}, 0.45);
      rig.FillVelocity([&](const Vec3d& p) {
        const Vec3d v = Stir(p, 2.0), m = Stir({2 * middle - p.x, p.y, p.z}, 2.0);
        return Vec3d{v.x - m.x, v.y + m.y, v.z + m.z} * 1.5;
      });
      rig.Move(60);
      double top = 0, apart = 0;
      ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
        top = std::max(top, g(x, y, z));
        apart = std::max(apart, std::abs(g(x, y, z) - g(g.Dims().x - 1 - x, y, z)));
      });
      EXPECT_LT(apart, 1e-6 * top)
          << scheme << " in " << length << (obstacle ? " with an obstacle" : "");
      EXPECT_GT(top, 0.1);
    }
}

TEST(ConservativeAdvection, EmptyGasFarOffHardlyMatters) {
  // A speck at the other end has the step look at all that lies between.
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    std::vector<double> results[2];
    for (const bool speck : {false, true}) {
      ConservativeRig rig({72, 16, 16}, 0.1, scheme);
      rig.Begin();
      rig.Puff({0.9, 0.8, 0.8}, 0.4);
      if (speck) (*rig.smoke->mGrid)(70, 8, 8) = 0.01;
      rig.FillVelocity([](const Vec3d& p) { return Stir(p, 1.6) * 1.2; });
      const double total = rig.Total();
      for (i32 step = 0; step < 40; ++step) {
        rig.Move(1);
        ASSERT_NEAR(rig.Total() / total, 1, 1e-12) << scheme << " in step " << step;
      }
      const EGrid<double>& g = *rig.smoke->mGrid;
      ForEachCell({{1, 1, 1}, {36, 17, 17}},
                  [&](i32 x, i32 y, i32 z) { results[speck].push_back(g(x, y, z)); });
    }
    double apart = 0, top = 0;
    for (std::size_t i = 0; i < results[0].size(); ++i) {
      apart = std::max(apart, std::abs(results[0][i] - results[1][i]));
      top = std::max(top, results[0][i]);
    }
    // As even as volumes are.
    EXPECT_LT(apart, 0.02 * top) << scheme;
    EXPECT_GT(top, 0.1);
  }
}

TEST(ConservativeAdvection, WhatLeavesThroughOpenSidesIsGone) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    ConservativeRig rig({24, 12, 12}, 0.1, scheme);
    rig.Walls(0, 0, 0, 0, 0, 0);
    rig.Begin();
    rig.Puff({1.2, 0.6, 0.6}, 0.4);
    rig.FillVelocity([](const Vec3d&) { return Vec3d{2.3, 0.2, 0}; });
    const double total = rig.Total();
    rig.Move(60);
    EXPECT_LT(rig.Total(), 1e-3 * total) << scheme;
  }
}

TEST(ConservativeAdvection, InOpenFlowItMovesLikeItsPlainTwin) {
  // A smooth bump carried by a steady wind: the plain scheme is of first order, the corrected one
  // keeps much more of it.
  double errors[2][2];
  for (const i32 scheme : {kConservative, kConservativeMacCormack})
    for (const i32 fine : {0, 1}) {
      const i32 n = fine ? 48 : 24;
      ConservativeRig rig({n, n, 4}, 2.4 / n, scheme);
      rig.Walls(0, 0, 0, 0, 0, 0);
      rig.scene->mTime.stepDuration = 1.0 / n;
      rig.Begin();
      const auto bell = [](const Vec3d& p, const Vec3d& c) {
        const double dx = p.x - c.x, dy = p.y - c.y;
        return std::exp(-(dx * dx + dy * dy) / 0.16);
      };
      GasRig::Fill(*rig.smoke->mGrid, [&](const Vec3d& p) { return bell(p, {0.9, 0.9, 0}); });
      rig.FillVelocity([](const Vec3d&) { return Vec3d{0.7, 0.45, 0}; });
      rig.Move(n);
      double sum = 0;
      const EGrid<double>& moved = *rig.smoke->mGrid;
      ForEachCell({{3, 3, 2}, {n - 3, n - 3, 3}}, [&](i32 x, i32 y, i32 z) {
        sum += std::abs(moved(x, y, z) - bell(moved.PositionOf(x, y, z), {1.6, 1.35, 0}));
      });
      errors[scheme - 2][fine] = sum / (n * n);
    }
  EXPECT_NEAR(std::log2(errors[0][0] / errors[0][1]), 1, 0.4);
  EXPECT_GT(std::log2(errors[1][0] / errors[1][1]), 1.4);
  EXPECT_LT(errors[1][1], 0.3 * errors[0][1]);
}

TEST(ConservativeAdvection, TheNumberOfThreadsDoesNotShow) {
  for (const i32 scheme : {kConservative, kConservativeMacCormack}) {
    std::vector<double> results[3];
    for (const i32 threads : {1, 2, 3}) {
      ConservativeRig rig({14, 12, 15}, 0.1, scheme, threads);
      rig.Begin();
      rig.Ball({0.7, 0.6, 0.8}, 0.25);
      rig.Puff({0.4, 0.5, 0.6}, 0.35);
      rig.FillVelocity([](const Vec3d& p) { return Stir(p, 1.4) * 4.0; });
      rig.Move(4);
      results[threads - 1].assign(rig.smoke->mGrid->mData,
                                  rig.smoke->mGrid->mData + rig.smoke->mGrid->mCount);
    }
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(results[0], results[2]);
  }
}
