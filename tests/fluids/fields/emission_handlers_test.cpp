#include <gtest/gtest.h>

#include "fluids/fields/fire_grid_channel.h"
#include "fluids/test_scene.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

class EmissionHandlers : public testing::Test {
 protected:
  EmissionHandlers() {
    channel.Rebind(nullptr, s.scene.get());
    fire.Rebind(nullptr, s.scene.get());
    velocity.Rebind(nullptr, s.scene.get());
    const double h = s.scene->mDomain.cellSize;
    for (iBase* object : {static_cast<iBase*>(&channel), static_cast<iBase*>(&fire),
                          static_cast<iBase*>(&velocity)})
      EXPECT_TRUE(object->ApplyBounds({0, 0, 0}, {8 * h, 8 * h, 8 * h}));
  }
  double Emit(double value, const EmissionWrite& write) {
    channel.mEmissionHandler->Emit(value, p, write);
    return (*channel.mGrid)(2, 3, 4);
  }
  double Sum() const {
    double sum = 0;
    for (i32 i = 0; i < channel.mGrid->mCount; ++i) sum += (*channel.mGrid)[i];
    return sum;
  }

  TestScene s;
  ScalarField channel;
  FireField fire;
  VelocityField velocity;
  const Vec3d p{0.26, 0.35, 0.44};  // in cell (2, 3, 4), off its centre
};

TEST_F(EmissionHandlers, CellModesKeepToTheirLimits) {
  EXPECT_EQ(Emit(0.25, {.mode = 0}), 0.25);
  EXPECT_EQ(Emit(0.5, {.mode = 0}), 0.75);
  EXPECT_EQ(Emit(0.5, {.mode = 0}), 1) << "the range ends at 1";
  EXPECT_EQ(Emit(0.375, {.mode = 1}), 0.375);
  EXPECT_EQ(Emit(0.5, {.mode = 2, .hasLimit = true, .limit = 0.5}), 0.5);
  EXPECT_EQ(Emit(7, {.mode = 2}), 1) << "without a limit the range's end";
  EXPECT_EQ(Emit(-9, {.mode = 0}), 0);
  EXPECT_EQ(Emit(0.5, {.mode = 9}), 0) << "an unknown mode writes nothing";
  EXPECT_EQ(Sum(), 0) << "one cell, and no other, was written";
  // A cell named by its index takes the value wherever the position is.
  channel.mEmissionHandler->Emit(0.5, p, {}, {channel.mGrid->Index(6, 0, 1)});
  EXPECT_EQ((*channel.mGrid)(6, 0, 1), 0.5);
  EXPECT_EQ(Sum(), 0.5);
}

TEST_F(EmissionHandlers, SplatsShareOutWithoutALimit) {
  channel.mEmissionHandler->Emit(40, p, {.splat = true});
  EXPECT_NEAR(Sum(), 40, 1e-12);
  // Weighted by the distance of the eight nearest centres: x 2.1, y 3, z 3.9 in samples.
  EXPECT_NEAR((*channel.mGrid)(2, 3, 4), 40 * 0.9 * 0.9, 1e-5);
  EXPECT_NEAR((*channel.mGrid)(3, 3, 3), 40 * 0.1 * 0.1, 1e-5);
  channel.mEmissionHandler->Emit(2, p, {.mode = 1, .splat = true});
  EXPECT_NEAR(Sum(), 2, 1e-12) << "set overwrites all eight";
}

TEST_F(EmissionHandlers, FireIsAFraction) {
  const auto emit = [&](double value) {
    fire.mEmissionHandler->Emit(value, p, {.mode = 1});
    return (*fire.mGrid)(2, 3, 4);
  };
  EXPECT_EQ(emit(0.25), 0.25);
  EXPECT_EQ(emit(7.5), 1);
  EXPECT_EQ(emit(-3), 0);
}

TEST_F(EmissionHandlers, VectorsGoToTheGridOfEachComponent) {
  const EmissionWrite write{.mode = 2, .hasLimit = true, .vectorLimit = {0.5, 9, 9}};
  velocity.mEmissionHandler->Emit({1, -2, 3}, p, write);
  // Sample coordinates: u (2.6, 3, 3.9), v (2.1, 3.5, 3.9), w (2.1, 3, 4.4).
  EXPECT_EQ((*velocity.mGrids[0])(2, 3, 3), 0.5);
  EXPECT_EQ((*velocity.mGrids[1])(2, 3, 3), -2);
  EXPECT_EQ((*velocity.mGrids[2])(2, 3, 4), 3);
  const auto& g = velocity.mGrids;
  velocity.mEmissionHandler->Emit(
      {4, 5, 6}, {}, {.mode = 1},
      {g[0]->Index(8, 1, 1), g[1]->Index(1, 8, 1), g[2]->Index(1, 1, 8)});
  EXPECT_EQ((*g[0])(8, 1, 1) + (*g[1])(1, 8, 1) + (*g[2])(1, 1, 8), 15);
}

}  // namespace
