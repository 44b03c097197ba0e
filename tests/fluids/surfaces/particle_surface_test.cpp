#include "fluids/surfaces/particle_surface.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/mesh/mesh_rig.h"
#include "fluids/particles/ellipsoid.h"
#include "fluids/particles/particle_group.h"
#include "fluids/surfaces/point_values.h"
#include "fluids/surfaces/polygoniser.h"
#include "fluids/surfaces/surface_smoothing.h"
#include "fluids/test_scene.h"
#include "grids/random_stream.h"
#include "io/mesh_table.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kCell = 0.1, kSpacing = kCell / 2;

/// Liquid particles in a scene of cells of 0.1.
struct Drops {
  Drops() {
    GridLayout layout;
    layout.Set({1, 1, 1}, {10, 10, 10}, float(kCell), {});
    group.Store(kLiquid).Reset(layout);
    random.Seed(5);
  }
  i32 Add(const Vec3d& p) {
    ParticleTemplate particle;
    particle.position = p;
    return group.Store(kLiquid).Create(particle);
  }
  Vec3d Random() {
    const double x = random.NextUnit(), y = random.NextUnit();
    return {x, y, random.NextUnit()};
  }
  /// Eight to a cell in a box, off their lattice by up to `jitter` spacings to each side.
  void AddBox(const VecInt3D& low, const VecInt3D& high, double jitter) {
    ForEachCell({low * 2, high * 2}, [&](i32 x, i32 y, i32 z) {
      const Vec3d off = (Random() - Vec3d{0.5, 0.5, 0.5}) * (2 * jitter);
      Add((ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5} + off) * kSpacing);
    });
  }
  ParticleStore& Store() { return group.Store(kLiquid); }
  PointLookup& Lookup(double radius) {
    points.Build(Store().Positions().data(), Store().Count(), radius);
    return points;
  }
  /// The level set on nodes `perCell` to a cell, from three cells below 0 on.
  EGrid<double> Field(const SurfaceShape& shape, i32 cells, double perCell, i32 threads) {
    const i32 n = static_cast<i32>(cells * perCell);
    GridLayout layout;
    layout.Set({n, n, n}, Vec3d{1, 1, 1} * (100 * kCell * cells), float(kCell / perCell),
               Vec3d{-1, -1, -1} * (300 * kCell));
    EGrid<double> grid(layout, kNode);
    ParticleSurface(Lookup(shape.reach / 2), &Store(), shape).Fill(grid, threads);
    return grid;
  }
  ParticleGroup group;
  RandomStream random;
  PointLookup points;
};

app::MeshTable Skin(const EGrid<double>& grid) {
  const SurfaceMesh mesh = PolygoniseGrid(grid, {}, 2, false);
  app::MeshTable table;
  table.points = mesh.points;
  for (const VecInt3D& t : mesh.triangles) table.polygons.push_back({t.x, t.y, t.z, t.z});
  return table;
}

TEST(ParticleSurface, OneParticleIsABall) {
  Drops drops;
  const i32 row = drops.Add({0.5, 0.5, 0.5});
  const SurfaceShape shape{.radius = 0.1, .reach = 0.3};
  const auto at = [&](const Vec3d& p) {
    return ParticleSurface(drops.Lookup(0.3), &drops.Store(), shape).ValueAt(p);
  };
  for (const double d : {0.0, 0.04, 0.15, 0.29})
    EXPECT_NEAR(*at({0.5 + d, 0.5, 0.5}), d - 0.1, 1e-12);
  EXPECT_FALSE(at({0.81, 0.5, 0.5}).has_value());
  EXPECT_NEAR(ParticleSurface(drops.Lookup(0.3), nullptr, shape).Outside(), 0.2, 1e-12)
      << "where the ball's own distance ends";
  // A frame that squeezes space by two along x lets the ball reach half as far there.
  drops.Store().At(row).AddVector(property_id::kEllipsoidX, {2, 0, 0});
  EXPECT_NEAR(*at({0.54, 0.5, 0.5}), -0.02, 1e-12);
  EXPECT_NEAR(*at({0.5, 0.54, 0.5}), -0.06, 1e-12);
}

TEST(ParticleSurface, IsWhatASumOverAllParticlesGives) {
  Drops drops;
  for (i32 i = 0; i < 500; ++i) drops.Add(drops.Random());
  ParticleStore& store = drops.Store();
  for (i32 i = 0; i < 500; i += 2) store.At(i).AddScalar(property_id::kMass, 1 + i * 0.01);
  for (i32 i = 0; i < 500; i += 5) store.At(i).AddScalar(property_id::kKernelSum, 3);
  const double r = 0.06, reach = 0.24;
  const SurfaceShape plain{.radius = r, .reach = reach};
  SurfaceShape lonely = plain, blobs = plain, corrected = plain;
  lonely.leastNeighbours = 4;
  corrected.corrects = true;
  corrected.correctHigh = 5;
  blobs.mode = SurfaceShape::kBlobs;
  blobs.blobScale = kCell;
  TestScene scene;
  blobs.kernel = &scene.Add<Kernel>("kernel", "kernel");
  const EGrid<double> fields[] = {drops.Field(plain, 16, 1, 3), drops.Field(lonely, 16, 1, 1),
                                  drops.Field(corrected, 16, 1, 2), drops.Field(blobs, 16, 1, 2)};
  i32 few = 0, none = 0;
  ForEachCell({{0, 0, 0}, {17, 17, 17}}, [&](i32 x, i32 y, i32 z) {
    const Vec3d p = fields[0].PositionOf(x, y, z);
    Vec3d sum{}, nearestWay{};
    double weights = 0, shares = 0, blob = 0, nearest = reach;
    i32 count = 0;
    for (i32 i = 0; i < 500; ++i) {
      const Vec3d d = p - store.Positions()[i];
      const double q = 1 - Dot(d, d) / (reach * reach);
      if (q <= 0) continue;
      const double share = (i % 2 == 0 ? 1 + i * 0.01 : 1) / (i % 5 == 0 ? 3 : 1);
      ++count;
      sum += d * (q * q * q);
      weights += q * q * q;
      shares += q * q * q * share;
      blob += q * share;
      if (Length(d) < nearest) nearest = Length(d), nearestWay = d;
    }
    none += count == 0;
    few += count > 0 && count < 4;
    const double mean = count > 0 ? Length(sum / weights) : reach;
    ASSERT_NEAR(fields[0](x, y, z), mean - r, 1e-9) << count;
    ASSERT_NEAR(fields[1](x, y, z), (count > 0 && count < 4 ? Length(nearestWay) : mean) - r, 1e-9);
    const double lack = std::min(shares, 5.0) - 5, left = 1 - lack * lack / 25;
    ASSERT_NEAR(fields[2](x, y, z), count > 0 ? mean - r * left * left : reach - r, 1e-9);
    ASSERT_NEAR(fields[3](x, y, z), (r - blob) * kCell, 1e-9);
  });
  EXPECT_GT(few, 3);
  EXPECT_GT(none, 1000);
}

/// A pool of 20 x 8 x 20 cells, with particles as unruly as those of a liquid that has moved.
TEST(ParticleSurface, FitsAPoolHoweverFarParticlesCount) {
  Drops drops;
  drops.AddBox({0, 0, 0}, {20, 8, 20}, 0.4);
  const double volume = 20 * 8 * 20 * kCell * kCell * kCell;
  for (const i32 mode : {SurfaceShape::kAveragedPosition, SurfaceShape::kBlobs})
    for (const double reach : {1.25, 1.5, 2.0}) {
      const SurfaceShape shape = SurfaceShape::Fitted(mode, reach * kCell, kSpacing);
      EGrid<double> grid = drops.Field(shape, 26, 2, 2);
      app::MeshTable skin = Skin(grid);
      EXPECT_EQ(app::CountOpenEdges(skin), 0);
      EXPECT_NEAR(app::Measure(skin).volume / volume, 1, 0.03) << mode << " " << reach;
      const double before = app::Measure(skin).volume;
      SmoothSurfaceOf(grid, *std::max_element(grid.mData, grid.mData + grid.mCount), 4, 2,
                      {.cell = kCell});
      skin = Skin(grid);
      EXPECT_EQ(app::CountOpenEdges(skin), 0);
      EXPECT_NEAR(app::Measure(skin).volume / before, 1, 0.01) << mode << " " << reach;
      double highest = 0, lowest = 1;
      for (const Vec3d& p : skin.points) {
        if (p.y < 6 * kCell || std::min(p.x, p.z) < 3 * kCell || std::max(p.x, p.z) > 17 * kCell)
          continue;
        highest = std::max(highest, p.y);
        lowest = std::min(lowest, p.y);
      }
      EXPECT_LT(highest - 8 * kCell, 0.15 * kCell) << mode << " " << reach;
      EXPECT_GT(lowest - 8 * kCell, -0.15 * kCell) << mode << " " << reach;
    }
}

TEST(ParticleSurface, WhatLiesDeepIsLeftOutAndNothingElse) {
  Drops drops;
  drops.AddBox({0, 0, 0}, {22, 16, 16}, 0.3);
  // A hole, and a drop off the rest.
  ParticleStore& store = drops.Store();
  for (Vec3d& p : store.Positions())
    if (Length(p - Vec3d{0.5, 0.7, 0.7}) < 0.22) p = {-0.2, 0.5, 0.5};
  SurfaceShape shape = SurfaceShape::Fitted(SurfaceShape::kAveragedPosition, 0.15, kSpacing);
  const EGrid<double> quick = drops.Field(shape, 26, 2, 2), other = drops.Field(shape, 26, 2, 7);
  shape.skipsDeep = false;
  const EGrid<double> whole = drops.Field(shape, 26, 2, 1);
  i32 deep = 0;
  for (i32 i = 0; i < whole.mCount; ++i) {
    ASSERT_EQ(quick.mData[i], other.mData[i]) << "threads";
    deep += quick.mData[i] == -HalfSpace::kDeepest * shape.reach;
    if (quick.mData[i] > -0.4 * shape.reach) {
      ASSERT_EQ(quick.mData[i], whole.mData[i]);
    }
    ASSERT_NEAR(quick.mData[i], whole.mData[i], 0.3 * shape.reach);
  }
  EXPECT_GT(deep, 200);
}

/// Particles in a sheet of a layer make ellipsoids that lie in it, whatever the size of a cell.
TEST(ParticleSurface, EllipsoidsLieInSheets) {
  for (const double scale : {1.0, 0.01}) {
    Drops drops;
    ForEachCell({{0, 0, 0}, {30, 1, 30}}, [&](i32 x, i32, i32 z) {
      drops.Add(Vec3d{x * kSpacing, 0.3, z * kSpacing} * scale);
    });
    const double cell = kCell * scale;
    const Vec3d middle = Vec3d{15 * kSpacing, 0.3, 15 * kSpacing} * scale;
    const Ellipsoid flat = FitEllipsoid(middle, drops.Lookup(cell), 2.5 * cell, cell);
    EXPECT_LT(flat.anisotropy, 1e-6);
    EXPECT_NEAR(flat.scales.x * flat.scales.y * flat.scales.z, 1, 1e-9);
    EXPECT_NEAR(flat.scales.z / flat.scales.x, 1.04 / 0.25, 0.2) << scale;
    EXPECT_NEAR(flat.frame.v2.y, flat.scales.z, 1e-9) << "across the sheet";
    EXPECT_NEAR(flat.frame.v1.x, flat.scales.x, 1e-3);
    if (scale < 1) continue;
    SurfaceShape shape = SurfaceShape::Fitted(SurfaceShape::kAveragedPosition, 0.125, kSpacing);
    const double balls = app::Measure(Skin(drops.Field(shape, 26, 2, 2))).volume;
    shape.ellipsoidRadius = 2.5 * cell;
    shape.cell = cell;
    const app::MeshTable skin = Skin(drops.Field(shape, 26, 2, 2));
    EXPECT_EQ(app::CountOpenEdges(skin), 0);
    EXPECT_LT(app::Measure(skin).volume, 0.6 * balls) << "and the same round its rim";
  }
}

TEST(PointValues, AreMeansOverTheParticlesInReach) {
  Drops drops;
  const i32 a = drops.Add({0.5, 0.5, 0.5}), b = drops.Add({0.6, 0.5, 0.5});
  drops.Store().Velocities()[b] = {0, 4, 0};
  drops.Store().At(a).AddScalar(property_id::kTemperature, 0.25);
  drops.Store().At(b).AddVector(property_id::kColor, {0, 1, 0});
  const std::vector<Vec3d> points = {{0.52, 0.5, 0.5}, {0.9, 0.5, 0.5}};
  const double wa = std::pow(1 - 0.02 * 0.02 / 0.04, 3), wb = std::pow(1 - 0.08 * 0.08 / 0.04, 3);
  const auto velocities = VelocitiesAt(points, drops.Lookup(0.2), drops.Store(), 0.2, 2);
  EXPECT_NEAR(velocities[0].y, 4 * wb / (wa + wb), 1e-9);
  EXPECT_EQ(velocities[1], Vec3d{});
  const i32 dead = drops.Add({0.52, 0.5, 0.5});
  drops.Store().At(dead).AddVector(property_id::kColor, {1, 0, 0});
  drops.Store().Flags()[dead] &= static_cast<u16>(~PF_ALIVE);
  const ParticleStore* const stores[] = {&drops.group.Store(kDiffuse), &drops.Store()};
  const auto colours = [&](i32 property) {
    return ColoursAt(points, stores, property, 0.2, {.full = 0.5}, 2).value()[0];
  };
  EXPECT_VEC(colours(property_id::kColor), (Vec3d{0, 1, 0}), 1e-12);
  EXPECT_VEC(colours(property_id::kTemperature), (Vec3d{0.5, 0.5, 0.5}), 1e-12);
  EXPECT_FALSE(ColoursAt(points, stores, property_id::kDensity, 0.2, {}, 2)) << "none has one";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
