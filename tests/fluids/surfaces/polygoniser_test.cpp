#include "fluids/surfaces/polygoniser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>
#include <random>
#include <set>

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kRadius = 0.3;

/// A field over nodes that lie `cell` metres apart, the inner ones `nodes` along an axis about the
/// origin.
template <class F>
EGrid<double> FieldOf(i32 nodes, double cell, F&& value) {
  GridLayout layout;
  const double size = 100 * cell * (nodes + 1);
  layout.Set(VecInt3D{1, 1, 1} * (nodes + 1), Vec3d{size, size, size}, static_cast<f32>(cell),
             Vec3d{-0.5, -0.5, -0.5} * size);
  EGrid<double> grid(layout, kNode);
  ForEachCell({{0, 0, 0}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
    grid(x, y, z) = value(x, y, z, grid.PositionOf(x, y, z));
  });
  return grid;
}

EGrid<double> Sphere(i32 nodes) {
  return FieldOf(nodes, 1.0 / (nodes - 1),
                 [](i32, i32, i32, const Vec3d& p) { return Length(p) - kRadius; });
}

struct Shape {
  i32 points, edges, triangles;
  double area, volume;
  bool isClosed;  ///< each edge is walked once in both directions
  i32 Characteristic() const { return points - edges + triangles; }
};

Shape ShapeOf(const SurfaceMesh& mesh) {
  Shape shape{.points = static_cast<i32>(mesh.points.size()),
              .edges = 0,
              .triangles = static_cast<i32>(mesh.triangles.size()),
              .area = 0,
              .volume = 0,
              .isClosed = true};
  std::map<std::pair<i32, i32>, i32> walks;
  std::set<std::pair<i32, i32>> edges;
  for (const VecInt3D& t : mesh.triangles) {
    const Vec3d &a = mesh.points[t.x], &b = mesh.points[t.y], &c = mesh.points[t.z];
    shape.area += 0.5 * Length(Cross(b - a, c - a));
    shape.volume += Dot(a, Cross(b, c)) / 6;
    for (i32 i = 0; i < 3; ++i) ++walks[{t[i], t[(i + 1) % 3]}];
  }
  for (const auto& [edge, count] : walks) {
    const auto back = walks.find({edge.second, edge.first});
    shape.isClosed = shape.isClosed && count == 1 && back != walks.end();
    edges.insert(std::minmax(edge.first, edge.second));
  }
  shape.edges = static_cast<i32>(edges.size());
  return shape;
}

TEST(Polygoniser, NoiseHasTheTopologyOfItsFaces) {
  struct Row {
    i32 nodes;
    u32 seed;
    i32 points, edges, triangles;
  };
  for (const Row& row : {Row{8, 1, 384, 1176, 784}, Row{12, 5489, 1744, 5616, 3744},
                         Row{20, 902891, 9592, 31446, 20964}}) {
    std::mt19937 random(row.seed);
    std::vector<double> values(std::size_t(row.nodes) * row.nodes * row.nodes);
    for (double& value : values) value = random() / 4294967296.0 - 0.5;
    const auto isInside = [&](i32 i) { return i > 1 && i < row.nodes; };
    const EGrid<double> grid = FieldOf(row.nodes, 1, [&](i32 x, i32 y, i32 z, const Vec3d&) {
      return isInside(x) && isInside(y) && isInside(z)
                 ? values[(std::size_t(z - 1) * row.nodes + y - 1) * row.nodes + x - 1]
                 : -0.5;
    });
    const Shape shape = ShapeOf(PolygoniseGrid(grid, {}, 2, false));
    EXPECT_EQ(shape.points, row.points);
    EXPECT_EQ(shape.edges, row.edges);
    EXPECT_EQ(shape.triangles, row.triangles);
    EXPECT_TRUE(shape.isClosed);
    const Shape cut =
        ShapeOf(PolygoniseGrid(grid, {.method = Polygoniser::kCellTetrahedra}, 2, false));
    EXPECT_TRUE(cut.isClosed);
  }
}

TEST(Polygoniser, ASphereIsWhereItIs) {
  struct Row {
    i32 nodes, points, triangles;
    double area, volume;  ///< errors, percent
  };
  const double area = 4 * std::numbers::pi * kRadius * kRadius, volume = area * kRadius / 3;
  for (const Row& row : {Row{17, 414, 824, -1.35, -2.51}, Row{33, 1758, 3512, -0.34, -0.64},
                         Row{65, 6918, 13832, -0.085, -0.16}}) {
    const EGrid<double> grid = Sphere(row.nodes);
    const Shape plain = ShapeOf(PolygoniseGrid(grid, {}, 2, false));
    EXPECT_EQ(plain.points, row.points);
    EXPECT_EQ(plain.triangles, row.triangles);
    EXPECT_NEAR(100 * (plain.area / area - 1), row.area, 0.1 * -row.area);
    EXPECT_NEAR(100 * (plain.volume / volume - 1), row.volume, 0.1 * -row.volume);
    for (const i32 method : {0, 1, 2})
      for (const double resolution : {0.5, 1.0, 2.0}) {
        const SurfaceMesh mesh =
            PolygoniseGrid(grid, {.method = method, .resolution = resolution}, 2, true);
        const Shape shape = ShapeOf(mesh);
        EXPECT_EQ(shape.Characteristic(), 2) << method << " " << resolution;
        EXPECT_TRUE(shape.isClosed) << method << " " << resolution;
        const double cell = 1.0 / (row.nodes - 1);
        // A chord of two cells, the longest that the coarsest lattice draws, lies that far inside.
        for (const Vec3d& p : mesh.points) ASSERT_NEAR(Length(p), kRadius, cell * cell / kRadius);
        for (std::size_t i = 0; i < mesh.points.size(); ++i)
          ASSERT_GT(Dot(mesh.normals[i], mesh.points[i]) / Length(mesh.points[i]), 0.97);
      }
  }
}

TEST(Polygoniser, SeamsAndWorkersLeaveNoTrace) {
  for (const i32 method : {0, 1, 2}) {
    const EGrid<double> grid = Sphere(41);
    const SurfaceMesh one = PolygoniseGrid(grid, {.method = method, .level = 0.1}, 1, true);
    const SurfaceMesh three = PolygoniseGrid(grid, {.method = method, .level = 0.1}, 3, true);
    EXPECT_EQ(one.points, three.points);
    EXPECT_EQ(one.triangles, three.triangles);
    EXPECT_EQ(one.normals, three.normals);
  }
}

TEST(Polygoniser, CutsAWholeFieldWhereItJumps) {
  const EGrid<double> steps = FieldOf(33, 1.0 / 32, [](i32, i32, i32, const Vec3d& p) {
    return Length(p) < kRadius ? -20.0 : 20.0;
  });
  for (const i32 method : {0, 1, 2})
    for (const i32 sampling : {SAMPLE_LINEAR, SAMPLE_CUBIC}) {
      const Shape shape = ShapeOf(PolygoniseGrid(
          steps, {.method = method, .sampleMode = sampling, .resolution = 2, .isWhole = true}, 2,
          false));
      EXPECT_EQ(shape.Characteristic(), 2) << method << sampling;
      EXPECT_TRUE(shape.isClosed) << method << sampling;
    }
}

TEST(Polygoniser, LeavesOutJumpsAndWhatReachesTheRim) {
  // A distance that ends: beyond 0.35 nothing is known.
  const EGrid<double> cut = FieldOf(33, 1.0 / 32, [](i32, i32, i32, const Vec3d& p) {
    const double d = Length(p) - kRadius;
    return d > -0.1 ? d : std::numeric_limits<double>::max();
  });
  for (const i32 method : {0, 1, 2}) {
    const Shape shape = ShapeOf(PolygoniseGrid(cut, {.method = method}, 1, false));
    EXPECT_EQ(shape.Characteristic(), 2) << method;
    EXPECT_TRUE(shape.isClosed) << method;
  }
  const EGrid<double> plane = FieldOf(9, 0.1, [](i32, i32, i32, const Vec3d& p) { return p.y; });
  const Shape shape = ShapeOf(PolygoniseGrid(plane, {}, 1, false));
  EXPECT_EQ(shape.Characteristic(), 1);
  EXPECT_FALSE(shape.isClosed);
  EXPECT_NEAR(shape.area, 0.8 * 0.8, 1e-6);
  EXPECT_TRUE(PolygoniseGrid(FieldOf(9, 0.1, [](auto...) { return 1.0; }), {}, 1, true).IsEmpty());
  EXPECT_TRUE(PolygoniseGrid(FieldOf(1, 0.1, [](auto...) { return -1.0; }), {}, 1, true).IsEmpty());
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
