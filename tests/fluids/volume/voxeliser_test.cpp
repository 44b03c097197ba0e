#include "fluids/volume/voxeliser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/voxel_fixture.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kHuge = std::numeric_limits<double>::max();

/// What the passes mean, word for word: every triangle over its whole band, eight plain sweeps.
struct PlainDistances {
  std::vector<double> squared;
  std::vector<i32> closest;

  PlainDistances(const TriMeshSTL& mesh, const EGrid<double>& g, i32 band)
      : squared(g.mCount, kHuge), closest(g.mCount, -1) {
    std::vector<TriangleRecord> records(mesh.GetTriangleCount());
    const auto& v = mesh.GetVertices();
    for (i32 t = 0; t < mesh.GetTriangleCount(); ++t) {
      const VecInt3D& c = mesh.GetTriangles()[t];
      records[t].Set(v[c.x], v[c.y], v[c.z]);
      const Vec3d low = g.ToSamples(Min(Min(v[c.x], v[c.y]), v[c.z]));
      const Vec3d high = g.ToSamples(Max(Max(v[c.x], v[c.y]), v[c.z]));
      VecInt3D lo, hi;
      for (int a = 0; a < 3; ++a) {
        lo[a] = std::clamp<i32>(std::trunc(low[a]) - band, 0, g.Dims()[a] - 1);
        hi[a] = std::clamp<i32>(std::trunc(high[a]) + band + 1, 0, g.Dims()[a] - 1) + 1;
      }
      ForEachCell({lo, hi}, [&](i32 x, i32 y, i32 z) { Offer(g, records, x, y, z, t); });
    }
    constexpr int directions[8][3] = {{1, 1, 1},  {-1, -1, -1}, {1, 1, -1},  {-1, -1, 1},
                                      {1, -1, 1}, {-1, 1, -1},  {1, -1, -1}, {-1, 1, 1}};
    for (const auto& d : directions) Sweep(g, records, d);
  }

 private:
  void Offer(const EGrid<double>& g, const std::vector<TriangleRecord>& records, i32 x, i32 y,
             i32 z, i32 t) {
    const i32 n = g.Index(x, y, z);
    const double d = t < 0 ? kHuge : records[t].SquaredDistance(g.PositionOf(x, y, z));
    if (d < squared[n]) squared[n] = d, closest[n] = t;
  }
  void Sweep(const EGrid<double>& g, const std::vector<TriangleRecord>& records, const int* d) {
    const auto each = [](int step, i32 n, auto&& f) {
      for (i32 i = step > 0 ? 1 : n - 2; i >= 0 && i < n; i += step) f(i);
    };
    each(d[2], g.mNz, [&](i32 z) {
      each(d[1], g.mNy, [&](i32 y) {
        each(d[0], g.mNx, [&](i32 x) {
          for (int q = 1; q < 8; ++q)
            Offer(
                g, records, x, y, z,
                closest[g.Index(x - (q & 1) * d[0], y - (q >> 1 & 1) * d[1], z - (q >> 2) * d[2])]);
        });
      });
    });
  }
};

TriMeshSTL RandomSoup(i32 triangles, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> at(-1, 1), size(-0.2, 0.2);
  TriMeshSTL mesh;
  for (i32 t = 0; t < triangles; ++t) {
    const Vec3d c{at(random), at(random), at(random)};
    for (int k = 0; k < 3; ++k)
      mesh.GetVertices().push_back(c + Vec3d{size(random), size(random), size(random)});
    mesh.GetTriangles().push_back({3 * t, 3 * t + 1, 3 * t + 2});
  }
  mesh.UpdateBounds();
  return mesh;
}

VolumeVoxeliser Solid() {
  VolumeVoxeliser v;
  v.mShellThickness = 1.0;
  return v;
}

// ---- one triangle ----------------------------------------------------------------------------

TEST(TriangleDistance, AgreesWithAnIndependentFormula) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> at(-2, 2);
  const auto point = [&] { return Vec3d{at(random), at(random), at(random)}; };
  for (int i = 0; i < 20000; ++i) {
    const Vec3d a = point(), b = point(), c = point(), p = point();
    TriangleRecord record;
    record.Set(a, b, c);
    ASSERT_NEAR(std::sqrt(record.SquaredDistance(p)), ReferenceDistance(p, a, b, c), 1e-9);
  }
}

TEST(TriangleDistance, OfNeedlesAndPointsIsTheirEdges) {
  const Vec3d a{0, 0, 0}, b{2, 0, 0}, p{0.5, 1, 0};
  for (const Vec3d& c : {Vec3d{1, 0, 0}, a, b, Vec3d{3, 0, 0}, Vec3d{1, 1e-14, 0}}) {
    TriangleRecord record;
    record.Set(a, b, c);
    EXPECT_NEAR(record.SquaredDistance(p), 1.0, 1e-9);
    EXPECT_NEAR(record.SquaredDistance({-1, 0, 0}), 1.0, 1e-9);
  }
  TriangleRecord point;
  point.Set(a, a, a);
  EXPECT_DOUBLE_EQ(point.SquaredDistance({0, 3, 4}), 25);
}

TEST(HoldsOrigin, GivesEachPointToOneTriangleOfAFan) {
  // Points on shared edges and at the shared vertex belong to exactly one of the four triangles.
  const Vec2D<double> square[4] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
  double w[3];
  for (double x = -0.75; x < 1; x += 0.25)
    for (double y = -0.75; y < 1; y += 0.25) {
      const auto at = [&](const Vec2D<double>& q) { return Vec2D<double>{q.x - x, q.y - y}; };
      int holders = 0;
      for (int i = 0; i < 4; ++i)
        holders += HoldsOrigin(at({0, 0}), at(square[i]), at(square[(i + 1) % 4]), w);
      EXPECT_EQ(holders, 1) << x << " " << y;
    }
}

// ---- distances and signs ---------------------------------------------------------------------

TEST(Voxeliser, PrunesNothingThatThePlainPassesFind) {
  struct Case {
    const char* name;
    TriMeshSTL mesh;
    double cell;
  };
  Case cases[] = {{"sphere", MeshOf(host::MakeIcosphere(2, 1.0)), 0.07},
                  {"soup", RandomSoup(60, 3), 0.09},
                  {"box", MeshOf(host::MakeBox({.size = {1, 0.5, 2}})), 0.1}};
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    EGrid<double> grid = GridAround(c.mesh, c.cell, 9);
    VolumeVoxeliser voxeliser = Solid();
    ASSERT_TRUE(voxeliser.Voxelise(c.mesh, grid, true, 2));
    const PlainDistances plain(c.mesh, grid, 3);
    for (i32 i = 0; i < grid.mCount; ++i) {
      ASSERT_EQ(std::abs(grid[i]), std::sqrt(plain.squared[i])) << i;
      ASSERT_EQ((*voxeliser.ClosestTriangles())[i], plain.closest[i]) << i;
    }
  }
}

TEST(Voxeliser, SphereHasTheDistancesOfASphere) {
  constexpr double r = 0.3;
  const TriMeshSTL mesh = MeshOf(host::MakeIcosphere(4, r));
  for (const i32 n : {32, 64}) {
    const double h = 1.0 / n;
    EGrid<double> grid = GridAround(mesh, h);
    VolumeVoxeliser voxeliser = Solid();
    ASSERT_TRUE(voxeliser.Voxelise(mesh, grid, true, 2));
    double worst = 0, far = 0;
    ForEachCell({{0, 0, 0}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
      const double exact = Length(grid.PositionOf(x, y, z)) - r, d = grid(x, y, z);
      (std::abs(exact) < 4 * h ? worst : far) =
          std::max(std::abs(exact) < 4 * h ? worst : far, std::abs(d - exact));
      if (std::abs(exact) > 0.0012 * r) {
        EXPECT_EQ(d < 0, exact < 0) << x << " " << y << " " << z;
      }
    });
    EXPECT_LT(worst, 0.0012 * r);
    EXPECT_LT(far, 0.0012 * r + 0.1 * h);
    EXPECT_NEAR(voxeliser.mMaximumDistance, 0.99886 * r, h);
  }
}

/// Distances, signs and volume of a closed mesh against brute force over all triangles.
void ExpectTrueField(const TriMeshSTL& mesh, i32 across) {
  const double cell = CellAcross(mesh, across);
  EGrid<double> grid = GridAround(mesh, cell);
  VolumeVoxeliser voxeliser = Solid();
  ASSERT_TRUE(voxeliser.Voxelise(mesh, grid, true, 2));
  std::mt19937 random(1);
  double worst = 0;
  for (int i = 0; i < 400; ++i) {
    const i32 n = static_cast<i32>(random() % grid.mCount);
    const i32 x = n % grid.mNx, y = n / grid.mNx % grid.mNy, z = n / grid.mSlice;
    const Vec3d p = grid.PositionOf(x, y, z);
    const double exact = ReferenceDistance(p, mesh), d = grid[n];
    if (exact < 4 * cell) {
      EXPECT_NEAR(std::abs(d), exact, 1e-9 * cell) << "node " << n;
    } else {
      worst = std::max(worst, std::abs(d) - exact);
      EXPECT_GT(std::abs(d), exact - 1e-9 * cell);
    }
    const bool inside = std::abs(WindingNumber(p, mesh)) > 0.5;
    EXPECT_TRUE(exact < 1e-6 * cell || (d < 0) == inside) << "node " << n;
  }
  EXPECT_LT(worst, 0.25 * cell) << "away from the surface";

  double volume = 0;
  ForEachCell({{0, 0, 0}, grid.mLayout.dims}, [&](i32 x, i32 y, i32 z) {
    double c[8];
    for (int k = 0; k < 8; ++k) c[k] = grid(x + (k & 1), y + (k >> 1 & 1), z + (k >> 2));
    volume += CubeFraction(c);
  });
  volume *= std::pow(double{grid.mLayout.cellSize}, 3);
  EXPECT_NEAR(volume / VolumeOf(mesh), 1.0, 0.02);
}

TEST(Voxeliser, RealMeshesAgreeWithBruteForce) {
  for (const char* name : {"spot.obj", "featuretype.stl", "hand_closed.obj"}) {
    if (!std::filesystem::exists(DataMesh(name))) GTEST_SKIP() << DataMesh(name) << " is missing";
    SCOPED_TRACE(name);
    ExpectTrueField(MeshOf(host::LoadMesh(DataMesh(name))), 48);
  }
}

TEST(Voxeliser, GivesTheSameBytesAtAnyThreadCount) {
  const TriMeshSTL mesh = MeshOf(host::MakeTorus({.radius = 1, .tube = 0.4, .segments = 40}));
  EGrid<double> one = GridAround(mesh, 0.05, 6), many = one;
  VolumeVoxeliser a, b;
  a.mShellThickness = b.mShellThickness = 0.4;
  ASSERT_TRUE(a.Voxelise(mesh, one, true, 1));
  for (const i32 threads : {2, 3, 8, 64}) {
    ASSERT_TRUE(b.Voxelise(mesh, many, true, threads));
    EXPECT_EQ(std::memcmp(one.mData, many.mData, sizeof(double) * one.mCount), 0) << threads;
    EXPECT_EQ(std::memcmp(a.ClosestTriangles()->mData, b.ClosestTriangles()->mData,
                          sizeof(i32) * one.mCount),
              0)
        << threads;
    EXPECT_EQ(a.mMaximumDistance, b.mMaximumDistance);
  }
}

TEST(Voxeliser, TiesGoToTheLowerTriangle) {
  TriMeshSTL mesh = MeshOf(host::MakeIcosphere(1, 1.0));
  const i32 count = mesh.GetTriangleCount();
  std::vector<VecInt3D>& t = mesh.GetTriangles();
  t.insert(t.end(), t.begin(), t.begin() + count);
  EGrid<double> grid = GridAround(mesh, 0.1);
  VolumeVoxeliser voxeliser = Solid();
  ASSERT_TRUE(voxeliser.Voxelise(mesh, grid, true, 2));
  for (i32 i = 0; i < grid.mCount; ++i) EXPECT_LT((*voxeliser.ClosestTriangles())[i], count);
  // Each face counts twice, so that nothing is inside.
  EXPECT_EQ(voxeliser.mMaximumDistance, -1e7);
}

// ---- shells, inversion, broken meshes --------------------------------------------------------

TEST(Voxeliser, ShellMirrorsTheInsideAndInversionSwapsIt) {
  const TriMeshSTL mesh = MeshOf(host::MakeIcosphere(4, 1.0));
  EGrid<double> solid = GridAround(mesh, 0.05), shell = solid, inverted = solid, whole = solid;
  VolumeVoxeliser v = Solid();
  ASSERT_TRUE(v.Voxelise(mesh, solid, true, 2));
  const double depth = v.mMaximumDistance;
  v.mInverted = true;
  ASSERT_TRUE(v.Voxelise(mesh, inverted, true, 2));
  v.mInverted = false;
  v.mShellThickness = 0.3;
  ASSERT_TRUE(v.Voxelise(mesh, shell, true, 2));
  EXPECT_EQ(v.mMaximumDistance, depth);
  v.mShellThickness = 1.5;
  ASSERT_TRUE(v.Voxelise(mesh, whole, true, 2));
  for (i32 i = 0; i < solid.mCount; ++i) {
    EXPECT_EQ(inverted[i], -solid[i]);
    EXPECT_EQ(whole[i], solid[i]);
    // A hollow ball of wall 0.3 of the depth: the distance from the nearer of its two surfaces.
    const double wall = std::max(solid[i], -(solid[i] + 0.3 * depth));
    EXPECT_NEAR(shell[i], wall, 1e-12);
  }
}

TEST(Voxeliser, UnsignedFillsTheBandAlone) {
  const TriMeshSTL mesh = MeshOf(host::MakeBox({.size = {1, 1, 1}}));
  EGrid<double> grid = GridAround(mesh, 0.05, 8);
  VolumeVoxeliser v;  // thickness 0, as when used without a volume
  ASSERT_TRUE(v.Voxelise(mesh, grid, false, 2));
  const VecInt3D mid{grid.mNx / 2, grid.mNy / 2, grid.mNz / 2};
  EXPECT_EQ(grid(mid.x, mid.y, mid.z), kHuge);
  EXPECT_EQ(grid(0, mid.y, mid.z), kHuge);
  EXPECT_NEAR(grid(8 + 2, mid.y, mid.z), 0.1, 1e-6);
  EXPECT_NEAR(grid(8 - 2, mid.y, mid.z), 0.1, 1e-6);
}

TEST(Voxeliser, OpenMeshesGiveRowsNotFailures) {
  // The upper half of a ball: the rows under the cap end outside again, the hole has no sign.
  host::Geometry g = host::MakeIcosphere(3, 1.0);
  std::erase_if(g.polygons, [&](const host::Polygon& p) {
    return g.points[p.a].x > 0.6 || g.points[p.b].x > 0.6 || g.points[p.c].x > 0.6;
  });
  const TriMeshSTL mesh = MeshOf(g);
  EGrid<double> grid = GridAround(MeshOf(host::MakeIcosphere(3, 1.0)), 0.1);
  VolumeVoxeliser v = Solid();
  ASSERT_TRUE(v.Voxelise(mesh, grid, true, 2));
  const auto at = [&](const Vec3d& p) {
    const VecInt3D i = TruncateNudged(grid.ToSamples(p));
    return grid(i.x, i.y, i.z);
  };
  EXPECT_LT(at({0, 0, 0}), 0);
  EXPECT_GT(at({-1.2, 0, 0}), 0);
  EXPECT_LT(at({1.2, 0, 0}), 0) << "behind the hole the count stays odd to the row's end";
  EXPECT_GT(at({1.2, 0.9, 0}), 0) << "and the next rows start anew";
  for (i32 i = 0; i < grid.mCount; ++i) ASSERT_TRUE(std::isfinite(grid[i]));
}

TEST(Voxeliser, BrokenMeshesAreTakenAsFarAsTheyGo) {
  const TriMeshSTL ball = MeshOf(host::MakeIcosphere(2, 1.0));
  EGrid<double> clean = GridAround(ball, 0.1), grid = clean;
  VolumeVoxeliser v = Solid();
  ASSERT_TRUE(v.Voxelise(ball, clean, true, 2));

  TriMeshSTL broken = ball;
  const i32 first = broken.GetVertexCount();
  const VecInt3D edge = broken.GetTriangles()[0];
  const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
  for (const Vec3d& p : {Vec3d{nan, 0, 0}, {inf, 0, 0}, {0, 0, 0}, {1e12, 1e12, 1e12}})
    broken.GetVertices().push_back(p);
  for (const VecInt3D& t : {VecInt3D{first, 0, 1},
                            {first + 1, 0, 1},
                            {0, 1, first + 100},
                            {-1, 0, 1},
                            {0, 0, 0},
                            {edge.x, edge.y, edge.y}})
    broken.GetTriangles().push_back(t);
  ASSERT_TRUE(v.Voxelise(broken, grid, true, 2));
  double change = 0;
  for (i32 i = 0; i < grid.mCount; ++i) change = std::max(change, std::abs(grid[i] - clean[i]));
  EXPECT_LT(change, 1e-12);

  // A mesh beside the grid: only its crossings to the left of a row count.
  for (const double shift : {-1e9, -50.0, 50.0, 1e9}) {
    const TriMeshSTL away = MeshOf(host::MakeIcosphere(2, 1.0), 1.0, {shift, 0, 0});
    ASSERT_TRUE(v.Voxelise(away, grid, true, 2));
    EXPECT_EQ(v.mMaximumDistance, -1e7);
    EXPECT_NEAR(grid[0], std::abs(shift), 3);
  }
  EXPECT_FALSE(v.Voxelise({}, grid, true, 2));
  host::HostThread stopped;
  stopped.Stop();
  EXPECT_FALSE(v.Voxelise(ball, grid, true, 2, &stopped));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
