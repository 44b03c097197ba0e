#include "fluids/particles/points_to_implicit_grid.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_iso_density.h"
#include "fluids/test_scene.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// Liquid particles in a cube of size 1, whose store has cells of 0.1.
struct Drops {
  Drops() {
    GridLayout layout;
    layout.Set({1, 1, 1}, {10, 10, 10}, 0.1f, {});
    group.Store(kLiquid).Reset(layout);
  }
  i32 Add(const Vec3d& p) {
    ParticleTemplate particle;
    particle.position = p;
    group.MarkTreeStale(kLiquid);
    return group.Store(kLiquid).Create(particle);
  }
  void AddRandom(i32 count) {
    RandomStream random;
    random.Seed(5);
    for (i32 i = 0; i < count; ++i) {
      const double x = random.NextUnit(), y = random.NextUnit();
      Add({x, y, random.NextUnit()});
    }
  }
  PointsToImplicitGrid Make(const ImplicitShape& shape) {
    group.BuildTree(kLiquid, 1);
    return {group, kLiquid, shape};
  }
  ParticleGroup group;
  NeighbourBuffer buffer{400};
};

TEST(PointsToImplicitGrid, OneParticleIsABall) {
  Drops drops;
  drops.Add({0.5, 0.5, 0.5});
  ImplicitShape shape{.radiusFactor = 1, .searchFactor = 3};
  const PointsToImplicitGrid grid = drops.Make(shape);
  for (const double d : {0.0, 0.04, 0.09, 0.15, 0.29})
    EXPECT_NEAR(grid.ValueAt({0.5 + d, 0.5, 0.5}, drops.buffer).value(), std::min(d, 0.1) - 0.1,
                1e-6);
  EXPECT_FALSE(grid.ValueAt({0.81, 0.5, 0.5}, drops.buffer).has_value());
  EGrid<double> out({6, 1, 1}, {60, 10, 10}, 0.1f, kCentre, {40, 45, 45});
  out.Fill(77);
  grid.Fill(out, 0, 1, drops.buffer);
  EXPECT_NEAR(out(0, 0, 0), -0.05, 1e-6);
  EXPECT_EQ(out(5, 0, 0), 77) << "out of reach";

  // A frame that squeezes space by two along x lets the ball reach half as far there.
  Particle particle = drops.group.Store(kLiquid).At(0);
  particle.AddVector(property_id::kEllipsoidX, {2, 0, 0});
  const PointsToImplicitGrid squeezed = drops.Make(shape);
  EXPECT_NEAR(squeezed.ValueAt({0.54, 0.5, 0.5}, drops.buffer).value(), -0.02, 1e-6);
  EXPECT_NEAR(squeezed.ValueAt({0.5, 0.54, 0.5}, drops.buffer).value(), -0.06, 1e-6);
}

TEST(PointsToImplicitGrid, IsWhatASumOverAllParticlesGives) {
  Drops drops;
  drops.AddRandom(500);
  ParticleStore& store = drops.group.Store(kLiquid);
  for (i32 i = 0; i < 500; i += 2) store.At(i).AddScalar(property_id::kMass, 1 + i * 0.01);
  for (i32 i = 0; i < 500; i += 5) store.At(i).AddScalar(property_id::kKernelSum, 3);
  ImplicitShape averaged{.radiusFactor = 0.6, .searchFactor = 4, .leastNeighbours = 4};
  ImplicitShape blobs = averaged;
  blobs.mode = ImplicitShape::kBlobs;
  TestScene scene;
  blobs.kernel = &scene.Add<Kernel>("kernel", "kernel");
  const PointsToImplicitGrid mean = drops.Make(averaged), sum = drops.Make(blobs);
  const double r = mean.Radius(), reach = mean.Reach();
  RandomStream random;
  random.Seed(9);
  i32 lonely = 0;
  for (i32 k = 0; k < 300; ++k) {
    const Vec3d p{random.NextUnit() * 1.6 - 0.3, random.NextUnit(), 0.4};
    Vec3d offsets{}, nearestOffset{};
    double weights = 0, blob = 0, nearest = reach;
    i32 count = 0;
    double nearestBlob = 0;
    for (i32 i = 0; i < 500; ++i) {
      const Vec3d d = p - store.Positions()[i];
      const double q = Dot(d, d) / (reach * reach);
      if (q >= 1) continue;
      ++count;
      const double w = std::pow(1 - q, 3);
      offsets += d * w;
      weights += w;
      const double b = (1 - q) * (i % 2 == 0 ? 1 + i * 0.01 : 1) / (i % 5 == 0 ? 3 : 1);
      blob += b;
      if (Length(d) < nearest) nearest = Length(d), nearestOffset = d, nearestBlob = b;
    }
    const auto value = mean.ValueAt(p, drops.buffer);
    ASSERT_EQ(value.has_value(), count > 0);
    if (count == 0) continue;
    lonely += count < 4;
    const double length = count < 4 ? Length(nearestOffset) : Length(offsets / weights);
    ASSERT_NEAR(*value, std::min(length, r) - r, 1e-12);
    ASSERT_NEAR(*sum.ValueAt(p, drops.buffer),
                (r - (count < 4 ? nearestBlob : blob)) * double{0.1f}, 1e-12);
  }
  EXPECT_GT(lonely, 3);
}

TEST(PointsToImplicitGrid, PropertiesAreMeansOverTheParticlesInReach) {
  Drops drops;
  const i32 a = drops.Add({0.5, 0.5, 0.5}), b = drops.Add({0.6, 0.5, 0.5});
  ParticleStore& store = drops.group.Store(kLiquid);
  store.At(a).AddScalar(property_id::kTemperature, 100);
  store.At(b).Velocity() = {0, 4, 0};
  const Vec3d nearer{0.52, 0.5, 0.5};
  const PointsToImplicitGrid weighted = drops.Make({.radiusFactor = 1, .searchFactor = 2});
  const double wa = std::pow(1 - 0.02 * 0.02 / 0.04, 3), wb = std::pow(1 - 0.08 * 0.08 / 0.04, 3);
  EXPECT_NEAR(weighted.SampleScalar(nearer, property_id::kTemperature, 10, drops.buffer),
              (100 * wa + 10 * wb) / (wa + wb), 1e-5);
  EXPECT_NEAR(weighted.SampleVector(nearer, property_id::kVelocity, {}, drops.buffer).y,
              4 * wb / (wa + wb), 1e-6);
  const PointsToImplicitGrid plain =
      drops.Make({.radiusFactor = 1, .searchFactor = 2, .weighted = false});
  EXPECT_NEAR(plain.SampleScalar(nearer, property_id::kTemperature, 10, drops.buffer), 55, 1e-12);
  EXPECT_EQ(plain.SampleScalar({0, 0, 0}, property_id::kTemperature, 10, drops.buffer), 10);
  EXPECT_EQ(plain.SampleVector(nearer, property_id::kColor, {1, 2, 3}, drops.buffer),
            (Vec3d{1, 2, 3}));
}

TEST(ParticleIsoDensity, MeasuresTheLatticeOnceForEachSetting) {
  TestScene scene(0.2);
  const ParticleIsoDensity* density = ParticleIsoDensity::Of(*scene.scene);
  ASSERT_NE(density, nullptr);
  // Two particles to the edge of a cell, which look 1.25 cells far: the sum round one in the
  // middle.
  double sum = 0;
  ForEachCell({{-3, -3, -3}, {4, 4, 4}}, [&](i32 x, i32 y, i32 z) {
    sum += std::max(0.0, 1 - (x * x + y * y + z * z) * 0.25 / (1.25 * 1.25));
  });
  EXPECT_NEAR(density->Value(), sum, 1e-6);
  EXPECT_EQ(density->Measurements(), 1);
  scene.scene->UpdateDomain(100, 1, 0.2);
  EXPECT_EQ(density->Measurements(), 1) << "nothing changed";
  scene.server->Set(1401, i32{0});
  scene.scene->UpdateDomain(100, 1, 0.2);
  EXPECT_EQ(density->Measurements(), 2);
  EXPECT_NEAR(density->Value(), 1 + 6 * (1 - 1 / (1.25 * 1.25)), 1e-6) << "one to a cell";
  Kernel& kernel = scene.Add<Kernel>("kernel", "cube");
  TestScene::Set(kernel, Kernel::kTypeRow, static_cast<i32>(KernelType::kClampedCube));
  scene.server->Set(1400, host::Link{kernel.Node()->Id()});
  scene.scene->UpdateDomain(100, 1, 0.2);
  EXPECT_NEAR(density->Value(), 1 + 6 * std::pow(1 - 1 / (1.25 * 1.25), 3), 1e-6);
  EXPECT_EQ(density->Measurements(), 3);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
