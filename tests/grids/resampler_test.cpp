#include "grids/grid_resampler.h"

#include <gtest/gtest.h>

#include <cstring>

#include "grids/random_stream.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL {
namespace {

double Ramp(const Vec3d& p) { return 2 * p.x - 3 * p.y + 0.5 * p.z + 4; }

EGrid<double> RampGrid(const VecInt3D& cells, f32 cellSize, i32 kind, const Vec3d& origin) {
  GridLayout l;
  l.Set(cells, ToReal(cells) * double(cellSize), cellSize, origin);
  EGrid<double> g(l, kind);
  for (i32 z = 0; z < g.mNz; ++z)
    for (i32 y = 0; y < g.mNy; ++y)
      for (i32 x = 0; x < g.mNx; ++x) g(x, y, z) = Ramp(g.PositionOf(x, y, z));
  return g;
}

void ExpectRamp(const EGrid<double>& g, double tolerance) {
  for (i32 z = 0; z < g.mNz; ++z)
    for (i32 y = 0; y < g.mNy; ++y)
      for (i32 x = 0; x < g.mNx; ++x)
        ASSERT_NEAR(g(x, y, z), Ramp(g.PositionOf(x, y, z)), tolerance) << x << y << z;
}

EGrid<double> NoiseGrid(const VecInt3D& cells, i32 kind, const VecInt3D& originCell) {
  GridLayout l;
  l.Set(cells, ToReal(cells) * 10.0, 0.1f, ToReal(originCell) * 10.0);
  EGrid<double> g(l, kind);
  RandomStream stream;
  for (i32 i = 0; i < g.mCount; ++i) g[i] = stream.NextUnit();
  return g;
}

TEST(Resampler, RampsGoOverExactlyBetweenPlacesAndSizes) {
  // The target lies inside the source, with another cell size and other sample places.
  for (const i32 sourceKind : {kNode, kCentre, kFaceX, kFaceZ})
    for (const i32 targetKind : {kNode, kCentre, kFaceX, kFaceZ}) {
      const EGrid<double> source = RampGrid({10, 10, 10}, 0.5f, sourceKind, {});
      EGrid<double> target = RampGrid({9, 8, 7}, 0.25f, targetKind, {1, 1.5, 1});
      target.Fill(0);
      EGridResampler r;
      ASSERT_TRUE(r.Init(&source, &target, false, SAMPLE_LINEAR, kWriteValue, {}, true));
      ASSERT_TRUE(r.Interpolate({0, 0, 0}, target.Dims(), nullptr));
      ExpectRamp(target, 1e-12);
    }
}

TEST(Resampler, EveryExactModeKeepsARamp) {
  const EGrid<double> source = RampGrid({12, 12, 12}, 1.0f, kNode, {});
  for (const i32 mode : {SAMPLE_LINEAR, SAMPLE_CUBIC, SAMPLE_MONOTONIC, SAMPLE_BSPLINE}) {
    EGrid<double> target = RampGrid({6, 6, 6}, 1.0f, kCentre, {3, 3, 3});
    target.Fill(0);
    EGridResampler r;
    ASSERT_TRUE(r.Init(&source, &target, false, mode, kWriteValue, {}, true));
    ASSERT_TRUE(r.Interpolate({0, 0, 0}, target.Dims(), nullptr));
    ExpectRamp(target, 1e-12);
  }
}

TEST(Resampler, WorkersAndOneThreadGiveTheSameBytes) {
  const EGrid<double> source = NoiseGrid({20, 21, 22}, kCentre, {0, 0, 0});
  const auto run = [&](i32 threads) {
    EGrid<double> target = NoiseGrid({31, 17, 23}, kNode, {2, 2, 2});
    target.Fill(-1);
    EGridResampler r;
    EXPECT_TRUE(r.Init(&source, &target, false, SAMPLE_MONOTONIC, kWriteValue, {}, false));
    EXPECT_TRUE(r.Run(threads));
    return target;
  };
  const EGrid<double> one = run(1), five = run(5);
  EXPECT_EQ(std::memcmp(one.mData, five.mData, one.mCount * sizeof(double)), 0);
  EXPECT_EQ(one(0, 8, 8), -1) << "the outermost layer was left out";
  EXPECT_NE(one(1, 8, 8), -1);
}

TEST(Resampler, WriteModesCombineWithTheTarget) {
  EGrid<double> source = NoiseGrid({4, 4, 4}, kCentre, {0, 0, 0});
  EGrid<double> target = NoiseGrid({4, 4, 4}, kCentre, {0, 0, 0});
  source.Fill(6);
  source.mRangeMin = 2;
  source.mRangeMax = 8;
  target.mRangeMin = 2;
  target.mRangeMax = 8;
  EGridResampler r;
  const auto write = [&](i32 mode, double before) {
    target.Fill(before);
    EXPECT_TRUE(r.Init(&source, &target, true, 0, mode, {}, true));
    EXPECT_TRUE(r.Copy({0, 0, 0}, target.Dims(), nullptr));
    return target(1, 2, 3);
  };
  EXPECT_EQ(write(kWriteValue, 1), 6);
  EXPECT_EQ(write(kWriteNormalise, 1), 0.5);
  EXPECT_EQ(write(kWriteScale, 1), 50);
  EXPECT_EQ(write(kWriteMin, 5), 5);
  EXPECT_EQ(write(kWriteMin, 7), 6);
  EXPECT_EQ(write(kWriteMax, 5), 6);
  EXPECT_EQ(write(kWriteMax, 7), 7);
}

TEST(Resampler, BrokenSetUpsAnswerFalse) {
  EGrid<double> thin = NoiseGrid({4, 4, 2}, kCentre, {0, 0, 0});
  EGridResampler r;
  EXPECT_FALSE(r.Init(nullptr, &thin, true, 0, 0, {}, true));
  EXPECT_FALSE(r.Copy({0, 0, 0}, {1, 1, 1}, nullptr));
  EXPECT_FALSE(r.Init(&thin, &thin, true, 0, 0, {}, false)) << "two layers have no inside";
  EGrid<double> target = thin;
  ASSERT_TRUE(r.Init(&thin, &target, true, 0, 0, {}, true));
  host::HostThread stopped;
  stopped.Stop();
  EXPECT_FALSE(r.Copy({0, 0, 0}, {4, 4, 2}, &stopped));
  EXPECT_FALSE(r.Interpolate({0, 0, 0}, {4, 4, 2}, &stopped));
}

TEST(Resized, EveryOldSampleOfTheOverlapIsBitEqual) {
  const struct {
    VecInt3D cells, origin;
  } boxes[] = {
      {{9, 8, 10}, {-3, 5, 0}},     // the same
      {{14, 15, 16}, {-5, 2, -3}},  // grown on all sides
      {{4, 3, 5}, {-1, 7, 2}},      // shrunk
      {{9, 8, 10}, {-1, 3, 4}},     // shifted
  };
  for (const i32 kind : {kCentre, kFaceX, kFaceY, kFaceZ, kNode}) {
    const EGrid<double> old = NoiseGrid(boxes[0].cells, kind, boxes[0].origin);
    for (const auto& box : boxes) {
      const EGrid<double> place = NoiseGrid(box.cells, kind, box.origin);
      const auto grid = Resized(&old, place.mLayout, kind, -7.0);
      ASSERT_EQ(grid->Dims(), place.Dims());
      const VecInt3D shift = box.origin - boxes[0].origin;
      for (i32 z = 0; z < grid->mNz; ++z)
        for (i32 y = 0; y < grid->mNy; ++y)
          for (i32 x = 0; x < grid->mNx; ++x) {
            const VecInt3D o = VecInt3D{x, y, z} + shift;
            const bool inside =
                o.x >= 0 && o.y >= 0 && o.z >= 0 && o.x < old.mNx && o.y < old.mNy && o.z < old.mNz;
            ASSERT_EQ((*grid)(x, y, z), inside ? old(o.x, o.y, o.z) : -7.0);
          }
    }
  }
}

TEST(Resized, StartsFromTheInitialValueWithoutData) {
  const EGrid<double> place = NoiseGrid({3, 3, 3}, kCentre, {4, 4, 4});
  EGrid<double> one = NoiseGrid({1, 1, 1}, kCentre, {4, 4, 4});
  EGrid<double> apart = NoiseGrid({3, 3, 3}, kCentre, {40, 4, 4});
  apart.mRangeMax = 9;
  for (const EGrid<double>* old : {static_cast<EGrid<double>*>(nullptr), &one, &apart}) {
    const auto grid = Resized(old, place.mLayout, kCentre, 0.5);
    for (i32 i = 0; i < grid->mCount; ++i) EXPECT_EQ((*grid)[i], 0.5);
    EXPECT_EQ(grid->mRangeMax, old == &apart ? 9 : 0);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL
