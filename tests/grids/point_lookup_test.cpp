#include "grids/point_lookup.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

using namespace MELDO_GLOBAL;

namespace {

std::vector<i32> Indices(const std::vector<PointNeighbour>& found) {
  std::vector<i32> indices;
  for (const PointNeighbour& n : found) indices.push_back(n.index);
  std::sort(indices.begin(), indices.end());
  return indices;
}

TEST(PointLookup, FindsWhatASearchOfAllPointsFinds) {
  std::mt19937 engine(5);
  std::uniform_real_distribution<double> unit(-1, 1);
  // Dense, thin, and so far apart that buckets must be larger than the radius.
  for (const Vec3d& size : {Vec3d{1, 1, 1}, Vec3d{5, 0, 2}, Vec3d{1e4, 1e5, 3}})
    for (const double radius : {0.05, 0.3, 2.0}) {
      std::vector<Vec3d> points(700);
      for (Vec3d& p : points) p = Vec3d{unit(engine), unit(engine), unit(engine)} * size;
      points[3] = points[4] = points[5];
      points[9].y = std::numeric_limits<double>::quiet_NaN();
      PointLookup lookup;
      lookup.Build(points.data(), static_cast<i32>(points.size()), radius);
      std::vector<PointNeighbour> found;
      for (int q = 0; q < 300; ++q) {
        const Vec3d p =
            q % 2 ? points[q] : Vec3d{unit(engine), unit(engine), unit(engine)} * size * 1.3;
        std::vector<i32> expected;
        for (i32 i = 0; i < 700; ++i)
          if (Dot(points[i] - p, points[i] - p) <= radius * radius) expected.push_back(i);
        lookup.Find(p, 1000, found);
        ASSERT_EQ(Indices(found), expected);
        // With a limit, the nearest.
        std::sort(expected.begin(), expected.end(), [&](i32 a, i32 b) {
          const double da = Dot(points[a] - p, points[a] - p),
                       db = Dot(points[b] - p, points[b] - p);
          return da != db ? da < db : a < b;
        });
        expected.resize(std::min<std::size_t>(expected.size(), 4));
        std::sort(expected.begin(), expected.end());
        lookup.Find(p, 4, found);
        ASSERT_EQ(Indices(found), expected);
      }
    }
}

TEST(PointLookup, NothingToFind) {
  PointLookup lookup;
  std::vector<PointNeighbour> found(3);
  lookup.Build(nullptr, 0, 1);
  lookup.Find({0, 0, 0}, 10, found);
  EXPECT_TRUE(found.empty());
  const Vec3d origin{};
  lookup.Build(&origin, 1, 0);
  EXPECT_TRUE(lookup.IsEmpty());
}

}  // namespace
