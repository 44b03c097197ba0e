#include "fluids/levelset/curvature_grid.h"

#include <gtest/gtest.h>

#include <cmath>

#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// Nodes of n^3 cells over [-0.5, 0.5]^3 with the distances to a sphere of radius 0.3.
EGrid<double> SphereField(i32 n, const Vec3d& centre = {}) {
  EGrid<double> grid({n + 1, n + 1, n + 1}, Vec3d{100, 100, 100}, static_cast<f32>(1.0 / n), kNode,
                     {-50, -50, -50});
  ForEachCell({{0, 0, 0}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
    const Vec3d p{double(x) / n - 0.5, double(y) / n - 0.5, double(z) / n - 0.5};
    grid(x, y, z) = Length(p - centre) - 0.3;
  });
  return grid;
}

/// The largest relative error within a cell of the surface, against what the sphere through each
/// sample has.
double LargestError(const EGrid<double>& phi, CurvatureGrid::Mode mode) {
  EGrid<double> out(phi);
  out.Fill(-77);
  CurvatureGrid curvature{mode, &phi, &out};
  EXPECT_TRUE(curvature.Run());
  EXPECT_EQ(out[0], -77) << "the border is left alone";
  double most = 0;
  ForEachCell({{1, 1, 1}, phi.Dims() - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
    const double distance = phi(x, y, z), r = distance + 0.3;
    if (std::abs(distance) >= double{phi.mLayout.cellSize}) return;
    const double expected = mode == CurvatureGrid::kGaussian ? 1 / (r * r) : 2 / r;
    most = std::max(most, std::abs(out(x, y, z) / expected - 1));
  });
  return most;
}

TEST(CurvatureGrid, ASphereHasTwoOverItsRadius) {
  const double known[3] = {0.0028, 0.0007, 0.0002};
  for (const auto mode :
       {CurvatureGrid::kMean, CurvatureGrid::kNormals, CurvatureGrid::kGaussian}) {
    double errors[3];
    for (int level = 0; level < 3; ++level) {
      errors[level] = LargestError(SphereField(32 << level), mode);
      RecordProperty("error" + std::to_string(mode) + std::to_string(level),
                     std::to_string(errors[level]));
      if (mode != CurvatureGrid::kGaussian) {
        EXPECT_LT(errors[level], 1.5 * known[level]) << level;
      }
    }
    EXPECT_LT(errors[1], errors[0] / 3) << "second order, mode " << mode;
    EXPECT_LT(errors[2], errors[1] / 3) << "second order, mode " << mode;
  }
}

TEST(CurvatureGrid, FlatFieldsHaveNoneAndRangesLimit) {
  EGrid<double> phi = SphereField(16);
  EGrid<double> out(phi);
  phi.Fill(1);
  for (const auto mode :
       {CurvatureGrid::kMean, CurvatureGrid::kGaussian, CurvatureGrid::kNormals}) {
    EXPECT_TRUE((CurvatureGrid{mode, &phi, &out}.Run()));
    EXPECT_EQ(out(8, 8, 8), 0);
  }
  EGrid<double> ball = SphereField(16, {0.01, 0.02, 0});
  out.Fill(0);
  out.mRangeMin = -1;
  out.mRangeMax = 5;
  const CellBox box{{-4, 6, 6}, {9, 9, 9}};
  EXPECT_TRUE((CurvatureGrid{CurvatureGrid::kMean, &ball, &out}.Run(&box)));
  EXPECT_EQ(out(8, 8, 8), 5) << "limited near the centre";
  EXPECT_EQ(out(12, 8, 8), 0) << "outside of the box";
  EXPECT_GT(out(3, 8, 8), 3);
  const CellBox empty{{20, 0, 0}, {30, 9, 9}};
  EXPECT_FALSE((CurvatureGrid{CurvatureGrid::kMean, &ball, &out}.Run(&empty)));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
