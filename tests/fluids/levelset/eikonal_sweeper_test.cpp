#include "fluids/levelset/eikonal_sweeper.h"

#include <gtest/gtest.h>

#include <cmath>

#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// n^3 cells over [-0.5, 0.5]^3.
EGrid<double> Cube(i32 n) {
  return {{n, n, n}, Vec3d{100, 100, 100}, static_cast<f32>(1.0 / n), kCentre, {-50, -50, -50}};
}

template <class F>
void FillBy(EGrid<double>& grid, F&& f) {
  ForEachCell({{0, 0, 0}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
    const double n = grid.mNx;
    grid(x, y, z) = f(Vec3d{(x + 0.5) / n - 0.5, (y + 0.5) / n - 0.5, (z + 0.5) / n - 0.5});
  });
}

struct SweepError {
  double mean = 0, most = 0, inBand = 0;
};

/// In cells, against the exact distances.
SweepError ErrorOf(const EGrid<double>& phi, const EGrid<double>& exact, double band) {
  const double h = phi.mLayout.cellSize;
  SweepError error;
  for (i32 i = 0; i < phi.mCount; ++i) {
    const double e = std::abs(phi[i] - exact[i]) / h;
    error.mean += e / phi.mCount;
    error.most = std::max(error.most, e);
    if (std::abs(exact[i]) < band) error.inBand = std::max(error.inBand, e);
  }
  return error;
}

EikonalSweeper::Side SideOf(double phi) {
  return phi < 0 ? EikonalSweeper::kInside : EikonalSweeper::kOutside;
}

double Ball(const Vec3d& p) { return Length(p) - 0.25; }

TEST(EikonalSweeper, GivesTheDistancesToASphereThatItIsKnownFor) {
  struct Reference {
    i32 n;
    double mean, most;
  };
  for (const Reference& reference :
       {Reference{32, 0.26, 0.74}, Reference{64, 0.27, 1.00}, Reference{128, 0.27, 1.28}}) {
    const i32 n = reference.n;
    EGrid<double> exact = Cube(n);
    FillBy(exact, Ball);
    EGrid<double> phi(exact);
    EikonalSweeper sweeper(phi);
    ASSERT_TRUE(sweeper.IsReady());
    sweeper.Mark([&](i32 i) {
      return std::abs(exact[i]) < 1.0 / n ? EikonalSweeper::kKnown : SideOf(exact[i]);
    });
    sweeper.Run();
    const SweepError error = ErrorOf(phi, exact, 1.0 / n);
    EXPECT_EQ(error.inBand, 0);
    EXPECT_NEAR(error.mean, reference.mean, 0.15 * reference.mean) << n;
    EXPECT_NEAR(error.most, reference.most, 0.15 * reference.most) << n;
    const EGrid<double> once(phi);
    sweeper.Run();
    EXPECT_LT(ErrorOf(phi, once, 1).most, 1e-9) << "a second round";
  }
}

TEST(EikonalSweeper, FindsASlantedPlaneFromSignsAndAnyNumberOfWorkersTheSame) {
  // Steeper by far than a distance, and bent: only where it is 0 counts.
  const Vec3d normal = Normalised(Vec3d{1, 2, -3});
  EGrid<double> exact = Cube(40);
  FillBy(exact, [&](const Vec3d& p) { return Dot(p, normal) - 0.03; });
  EGrid<double> phis[2] = {exact, exact};
  for (i32 i = 0; i < exact.mCount; ++i) phis[0][i] = phis[1][i] = 7 * exact[i];
  for (const i32 count : {1, 3}) {
    const Threads threads(count);
    EikonalSweeper sweeper(phis[count / 2]);
    ASSERT_TRUE(sweeper.MarkBesideSurface());
    sweeper.Run();
  }
  EXPECT_TRUE(std::equal(phis[0].mData, phis[0].mData + exact.mCount, phis[1].mData));
  // Near the border a plane's feet lie outside of the grid.
  double most = 0;
  ForEachCell({{12, 12, 12}, {28, 28, 28}}, [&](i32 x, i32 y, i32 z) {
    most = std::max(most, std::abs(phis[0](x, y, z) - exact(x, y, z)));
  });
  EXPECT_LT(most, 1e-6);
}

TEST(EikonalSweeper, FindsABallFromItsCrossingsWithinTheBandToSecondOrder) {
  double errors[2];
  for (int level = 0; level < 2; ++level) {
    const i32 n = level == 0 ? 32 : 64;
    EGrid<double> exact = Cube(n);
    FillBy(exact, Ball);
    EGrid<double> phi(exact);
    for (i32 i = 0; i < phi.mCount; ++i) phi[i] = std::tanh(5 * exact[i]);
    EikonalSweeper sweeper(phi);
    ASSERT_TRUE(sweeper.MarkBesideSurface());
    sweeper.Run();
    errors[level] = ErrorOf(phi, exact, 0.5 / n).inBand / n;
    EXPECT_LT(ErrorOf(phi, exact, 1).most, 1.5);
  }
  EXPECT_LT(errors[1], errors[0] / 3);
}

TEST(EikonalSweeper, StaysFarWithoutASurface) {
  EGrid<double> phi = Cube(8);
  phi.Fill(1);
  EikonalSweeper sweeper(phi);
  ASSERT_TRUE(sweeper.MarkBesideSurface());
  sweeper.Run();
  for (i32 i = 0; i < phi.mCount; ++i) ASSERT_EQ(phi[i], EikonalSweeper::kFar);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
