#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "fluids/fields/fire_grid_channel.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/fields/temperature_grid_channel.h"
#include "fluids/test_scene.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// The cell size as the scene holds it, in single precision.
const double kCell = static_cast<f32>(0.1);

/// The box of whole cells [lo, hi), in simulation units.
struct Box {
  Vec3d min, max;
  Box(VecInt3D lo, VecInt3D hi) : min(ToReal(lo) * kCell), max(ToReal(hi) * kCell) {}
};

template <class G>
void FillRandom(G& grid, double low, double high, unsigned seed = 7) {
  std::mt19937 engine(seed);
  std::uniform_real_distribution<double> value(low, high);
  for (i32 i = 0; i < grid.mCount; ++i) grid[i] = value(engine);
}

/// The sample at an index counted in cells of the world; `outside` where the grid has none.
double AtGlobal(const EGrid<double>& g, i32 x, i32 y, i32 z, double outside) {
  const VecInt3D i = VecInt3D{x, y, z} - g.mLayout.originCell;
  const bool in = i.x >= 0 && i.y >= 0 && i.z >= 0 && i.x < g.mNx && i.y < g.mNy && i.z < g.mNz;
  return in ? g(i.x, i.y, i.z) : outside;
}

/// Every sample of `now` is that of `before` at the same place, or `initial` outside of it.
void ExpectMoved(const EGrid<double>& before, const EGrid<double>& now, double initial) {
  const VecInt3D o = now.mLayout.originCell;
  ForEachCell({{0, 0, 0}, now.Dims()}, [&](int x, int y, int z) {
    const double expected = AtGlobal(before, x + o.x, y + o.y, z + o.z, initial);
    const double is = now(x, y, z);
    ASSERT_EQ(std::memcmp(&is, &expected, sizeof is), 0) << x << " " << y << " " << z;
  });
}

TEST(Channel, ContainerGrowthAndShrinkageKeepEverySampleInPlace) {
  TestScene s;
  auto& smoke = s.Add<PlainField>("channel_scalar", "smoke");
  TestScene::Set(smoke, 1052, 0.25);
  s.SetUp();
  EXPECT_EQ(smoke.GetGrid(0), nullptr);
  EXPECT_EQ(smoke.SampleAt({0.5, 0.5, 0.5}), 0);
  const Box first({-3, 2, 0}, {6, 9, 11}), grown({-5, 0, -1}, {8, 12, 14}),
      cut({0, 3, 2}, {5, 8, 9});
  ASSERT_TRUE(smoke.ApplyBounds(first.min, first.max));
  EXPECT_EQ(smoke.mGrid->Dims(), (VecInt3D{9, 7, 11}));
  EXPECT_EQ(smoke.mGrid->mLayout.originCell, (VecInt3D{-3, 2, 0}));
  EXPECT_EQ((*smoke.mGrid)(4, 3, 2), 0.25);
  EXPECT_EQ(smoke.GetGrid(1), nullptr);
  FillRandom(*smoke.mGrid, 0.1, 0.9);
  FillRandom(*smoke.mPrevious, 0.1, 0.9, 8);
  for (const Box& box : {grown, cut}) {
    const EGrid<double> before = *smoke.mGrid, previous = *smoke.mPrevious;
    ASSERT_TRUE(smoke.ApplyBounds(box.min, box.max));
    ExpectMoved(before, *smoke.mGrid, 0.25);
    ExpectMoved(previous, *smoke.mPrevious, 0.25);
    EXPECT_EQ(smoke.mGrid->mRangeMax, 1);
  }
  // A container that doesn't change is not touched.
  const double* data = smoke.mGrid->mData;
  ASSERT_TRUE(smoke.ApplyBounds(cut.min, cut.max));
  EXPECT_EQ(smoke.mGrid->mData, data);
  // One without cells for a sample is refused.
  const Box thin({0, 0, 0}, {5, 1, 5});
  EXPECT_FALSE(smoke.ApplyBounds(thin.min, thin.max));
  EXPECT_FALSE(smoke.Has(FLAG_ACTIVE));
}

TEST(Channel, EmbeddedFieldsOfFacesAndNodesMoveUnlimited) {
  TestScene s;
  VelocityField velocity;
  velocity.Rebind(nullptr, s.scene.get());
  LevelField level;
  level.Rebind(nullptr, s.scene.get());
  level.mKind = kNode;
  level.SetUnbounded();
  s.SetUp();
  EXPECT_FALSE(velocity.ReadParameters());
  const Box first({1, 1, 1}, {6, 7, 8}), grown({-1, 0, 1}, {9, 9, 10});
  ASSERT_TRUE(velocity.ApplyBounds(first.min, first.max));
  ASSERT_TRUE(level.ApplyBounds(first.min, first.max));
  EXPECT_EQ(velocity.mGrids[1]->Dims(), (VecInt3D{5, 7, 7}));
  EXPECT_EQ(level.mGrid->Dims(), (VecInt3D{6, 7, 8}));
  for (i32 i = 0; i < 3; ++i) {
    EXPECT_EQ(velocity.mGrids[i]->mKind, i);
    FillRandom(*velocity.mGrids[i], -300, 300, i);
  }
  FillRandom(*level.mGrid, -1e290, 1e300);
  const EGrid<double> u = *velocity.mGrids[0], v = *velocity.mGrids[1], w = *velocity.mGrids[2],
                      nodes = *level.mGrid;
  ASSERT_TRUE(velocity.ApplyBounds(grown.min, grown.max));
  ASSERT_TRUE(level.ApplyBounds(grown.min, grown.max));
  ExpectMoved(u, *velocity.mGrids[0], 0);
  ExpectMoved(v, *velocity.mGrids[1], 0);
  ExpectMoved(w, *velocity.mGrids[2], 0);
  ExpectMoved(nodes, *level.mGrid, 0);
  EXPECT_TRUE(velocity.mPrevious[2]);
}

TEST(Channel, ParametersFollowTheKind) {
  TestScene s;
  auto& smoke = s.Add<PlainField>("channel_scalar", "smoke");
  auto& fuel = s.Add<FuelField>("channel_fuel", "fuel");
  auto& heat = s.Add<TemperatureField>("channel_temp", "heat");
  auto& fire = s.Add<FireField>("channel_fire", "fire");
  TestScene::Set(smoke, 1051, 0.0);
  TestScene::Set(smoke, 1021, i32{0});
  TestScene::Set(fuel, 2000, i32{450});
  s.SetUp();
  EXPECT_EQ(smoke.mValueMax, 0.0001);
  EXPECT_FALSE(smoke.Has(FLAG_AFFECTS_BOUNDS));
  EXPECT_TRUE(fuel.Has(FLAG_AFFECTS_BOUNDS));
  EXPECT_EQ(fuel.mIgnition, 450);
  EXPECT_EQ(heat.mValueMax, 5000);
  EXPECT_EQ(fire.mIgnition, 1600);
  EXPECT_EQ(fire.mBurnTime, 2.5);
  EXPECT_EQ(fire.mFadeTime, 0.5);
  EXPECT_EQ(std::vector<i32>({smoke.mKind, fuel.mKind, heat.mKind, fire.mKind}),
            std::vector<i32>({5, 5, 4, 6}));
}

TEST(Channel, DataSetsTheBoundsAndIsCleaned) {
  TestScene s;
  auto& smoke = s.Add<PlainField>("channel_scalar", "smoke");
  s.SetUp();
  const Box box({-4, -4, -4}, {6, 6, 6});
  ASSERT_TRUE(smoke.ApplyBounds(box.min, box.max));
  Vec3d min{1, 1, 1}, max{-1, -1, -1};
  smoke.ExpandBounds(min, max);
  EXPECT_EQ(min, (Vec3d{1, 1, 1})) << "an empty channel widens nothing";
  EGrid<double>& g = *smoke.mGrid;
  g(3, 4, 5) = 7;       // above the range
  g(5, 4, 8) = 2e-6;    // the smallest that counts
  g(1, 1, 1) = 0.5e-6;  // noise
  g(0, 4, 4) = 0.5;     // on the border
  smoke.UpdateRange();
  EXPECT_EQ(g(3, 4, 5), 1);
  EXPECT_EQ(g(1, 1, 1), 0);
  EXPECT_EQ(g(0, 4, 4), 0);
  EXPECT_EQ(g.mActiveMin, (VecInt3D{3, 4, 5}));
  EXPECT_EQ(g.mActiveMax, (VecInt3D{5, 4, 8}));
  smoke.ExpandBounds(min, max);
  for (int a = 0; a < 3; ++a) {
    EXPECT_NEAR(min[a], kCell * (a - 1), 1e-12);
    EXPECT_NEAR(max[a], kCell * (a == 0 ? 2 : a == 1 ? 1 : 5), 1e-12) << "the last cell whole";
  }
  // A single sample makes a box of two.
  g(5, 4, 8) = 0;
  smoke.UpdateRange();
  EXPECT_EQ(g.mActiveMax - g.mActiveMin, (VecInt3D{1, 1, 1}));
}

/// The active box and the cleaned data, sample by sample.
void UpdateActiveByCell(EGrid<double>& g, double min, double max, bool skipBorder) {
  const bool face = g.mKind < 3;
  g.ResetActive();
  ForEachCell({{0, 0, 0}, g.Dims()}, [&](int x, int y, int z) {
    double& v = g(x, y, z);
    const bool border =
        x == 0 || y == 0 || z == 0 || x == g.mNx - 1 || y == g.mNy - 1 || z == g.mNz - 1;
    const bool counts = face ? std::abs(v) >= 1e-6 : v >= min + 1e-6 && !(skipBorder && border);
    if (!counts) {
      v = face ? 0 : min;
      return;
    }
    if (!face) v = std::min(v, max);
    g.mActiveMin = Min(g.mActiveMin, VecInt3D{x, y, z});
    g.mActiveMax = Max(g.mActiveMax, VecInt3D{x, y, z});
  });
  if (g.mActiveMin == g.mActiveMax) g.mActiveMax += VecInt3D{1, 1, 1};
}

TEST(Channel, ActiveBoxEqualsTheOneFoundCellByCell) {
  std::mt19937 engine(3);
  for (int round = 0; round < 200; ++round) {
    const i32 kinds[] = {kFaceX, kFaceZ, kNode, kCentre, 5};
    GridLayout layout;
    layout.Set({i32(2 + engine() % 9), i32(2 + engine() % 7), i32(2 + engine() % 5)}, {1, 1, 1},
               0.1f, {});
    EGrid<double> fast(layout, kinds[engine() % 5]);
    const double min = engine() % 2 ? 0 : -2, max = 3;
    const i32 filled = engine() % 6;
    for (i32 i = 0; i < filled; ++i) {
      const double values[] = {-5, 0.9e-6, -0.9e-6, 1.1e-6, -1.1e-6, 1, 9, -2 + 1.1e-6, -1.5};
      fast[engine() % fast.mCount] = values[engine() % 9];
    }
    EGrid<double> slow = fast;
    const bool skipBorder = engine() % 2;
    fast.UpdateActive(min, max, skipBorder);
    UpdateActiveByCell(slow, min, max, skipBorder);
    ASSERT_EQ(fast.mActiveMin, slow.mActiveMin) << round;
    ASSERT_EQ(fast.mActiveMax, slow.mActiveMax) << round;
    ASSERT_TRUE(std::equal(fast.mData, fast.mData + fast.mCount, slow.mData)) << round;
  }
}

TEST(Channel, BuffersSwapClearAndGo) {
  TestScene s;
  auto& smoke = s.Add<PlainField>("channel_scalar", "smoke");
  auto& flow = s.Add<VectorField>("channel_vector", "flow");
  s.SetUp();
  const Box box({0, 0, 0}, {5, 5, 5});
  ASSERT_TRUE(smoke.ApplyBounds(box.min, box.max));
  ASSERT_TRUE(flow.ApplyBounds(box.min, box.max));
  smoke.mGrid->Fill(0.75);
  flow.mGrids[2]->Fill(0.5);
  smoke.SwapBuffers();
  flow.SwapBuffers();
  EXPECT_EQ(smoke.Sample({2, 2, 2}, SAMPLE_LINEAR), 0);
  EXPECT_EQ(smoke.SamplePrevious({2, 2, 2}, SAMPLE_LINEAR), 0.75);
  EXPECT_EQ(flow.SamplePrevious({2, 2, 2}, SAMPLE_CUBIC), (Vec3d{0, 0, 0.5}));
  TestScene::Set(smoke, 1001, i32{1});
  TestScene::Set(smoke, 1002, i32{0});
  TestScene::Set(smoke, 1052, 0.5);
  s.SetUp();
  smoke.mGrid->Fill(0.75);
  ASSERT_TRUE(smoke.ApplyBounds(box.min, box.max));
  EXPECT_EQ((*smoke.mGrid)(2, 2, 2), 0.5);
  EXPECT_FALSE(smoke.mPrevious);
  EXPECT_EQ(smoke.SamplePrevious({2, 2, 2}, SAMPLE_LINEAR), 0);
  smoke.Release(true);
  EXPECT_EQ(smoke.GetGrid(0), nullptr);
  EXPECT_FALSE(smoke.ContainsPoint({0.25, 0.25, 0.25}, false));
}

TEST(Channel, LinearFieldsAreSampledExactlyInEveryMode) {
  TestScene s;
  VelocityField velocity;
  velocity.Rebind(nullptr, s.scene.get());
  auto& smoke = s.Add<PlainField>("channel_scalar", "smoke");
  s.SetUp();
  smoke.SetUnbounded();
  const Box box({-2, 0, 1}, {8, 11, 10});
  ASSERT_TRUE(velocity.ApplyBounds(box.min, box.max));
  ASSERT_TRUE(smoke.ApplyBounds(box.min, box.max));
  const auto field = [](const Vec3d& p, int i) { return (i + 2) * p.x - p.y * 0.5 + i * p.z + 1; };
  const auto fill = [&](EGrid<double>& g, int i) {
    ForEachCell({{0, 0, 0}, g.Dims()},
                [&](int x, int y, int z) { g(x, y, z) = field(g.PositionOf(x, y, z), i); });
  };
  for (int i = 0; i < 3; ++i) fill(*velocity.mGrids[i], i);
  fill(*smoke.mGrid, 0);
  velocity.SwapBuffers();
  for (int i = 0; i < 3; ++i) fill(*velocity.mGrids[i], i);
  for (const i32 mode : {SAMPLE_LINEAR, SAMPLE_CUBIC, SAMPLE_MONOTONIC, SAMPLE_BSPLINE})
    for (const Vec3d& p :
         {Vec3d{0.13, 0.41, 0.52}, Vec3d{0.3, 0.6, 0.77}, Vec3d{0.41, 0.25, 0.3}}) {
      const Vec3d c = smoke.mGrid->mLayout.ToCells(p);
      EXPECT_NEAR(smoke.Sample(c, mode), field(p, 0), 1e-12) << mode;
      for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(velocity.Sample(c, mode)[i], field(p, i), 1e-12) << mode;
        EXPECT_NEAR(velocity.SamplePrevious(c, mode)[i], field(p, i), 1e-12) << mode;
      }
    }
  EXPECT_TRUE(smoke.ContainsPoint({-0.19, 0.05, 0.15}, false));
  EXPECT_FALSE(smoke.ContainsPoint({-0.19, 0.05, 0.15}, true));
  EXPECT_FALSE(smoke.ContainsCell({-0.31, 0.5, 0.5}, false));
}

TEST(Channel, TextureCoordinatesStandFromTheFirstStepOfASimulation) {
  TestScene s;
  auto& texture = s.Add<VectorField>("channel_vector", "texture");
  TestScene::Set(texture, 1053, i32{1});
  TestScene::Set(texture, 1051, Vec3d{10, 10, 10});
  s.SetUp();
  const Box box({0, 0, 0}, {5, 6, 7});
  ASSERT_TRUE(texture.ApplyBounds(box.min, box.max));
  EXPECT_NEAR((*texture.mGrids[0])(3, 1, 2), 3.5 * kCell, 1e-12);
  EXPECT_NEAR((*texture.mGrids[2])(3, 1, 2), 2.5 * kCell, 1e-12);
  EXPECT_NEAR((*texture.mPrevious[1])(3, 1, 2), 1.5 * kCell, 1e-12);
  // Advected coordinates stay in the steps that follow, and a reset brings them back.
  texture.mGrids[0]->Fill(0.5);
  ASSERT_TRUE(texture.ApplyBounds(box.min, box.max));
  EXPECT_EQ((*texture.mGrids[0])(3, 1, 2), 0.5);
  texture.Reset();
  ASSERT_TRUE(texture.ApplyBounds(box.min, box.max));
  EXPECT_NEAR((*texture.mGrids[0])(3, 1, 2), 3.5 * kCell, 1e-12);
}

}  // namespace
