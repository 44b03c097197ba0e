#include "host/matrix.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <numbers>
#include <random>

namespace MELDO_GLOBAL {
namespace {
using std::numbers::pi;

Eigen::Vector3d ToEigen(const Vec3d& v) { return {v.x, v.y, v.z}; }
void ExpectNear(const Vec3d& a, const Vec3d& b, double tolerance) {
  for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(a[axis], b[axis], tolerance) << axis;
}

/// A rotation by axis and angle, from a library.
Matrix Turned(const Vec3d& axis, double angle) {
  const Eigen::Matrix3d r = Eigen::AngleAxisd(angle, ToEigen(axis).normalized()).toRotationMatrix();
  return {
      {}, {r(0, 0), r(1, 0), r(2, 0)}, {r(0, 1), r(1, 1), r(2, 1)}, {r(0, 2), r(1, 2), r(2, 2)}};
}

TEST(Matrix, PlacementScalesTurnsAboutXThenYThenZAndMoves) {
  const Vec3d position{1, -2, 3}, rotation{20, -50, 130}, scale{2, 0.5, -3};
  const Matrix m = Placement(position, rotation, scale);
  const Eigen::Affine3d expected =
      Eigen::Translation3d(ToEigen(position)) *
      Eigen::AngleAxisd(rotation.z * pi / 180, Eigen::Vector3d::UnitZ()) *
      Eigen::AngleAxisd(rotation.y * pi / 180, Eigen::Vector3d::UnitY()) *
      Eigen::AngleAxisd(rotation.x * pi / 180, Eigen::Vector3d::UnitX()) *
      Eigen::Scaling(ToEigen(scale));
  for (const Vec3d& p : {Vec3d{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.3, -4, 7}}) {
    const Eigen::Vector3d q = expected * ToEigen(p);
    ExpectNear(m * p, {q.x(), q.y(), q.z()}, 1e-14 * 40);
  }
  ExpectNear(Placement({}, {0, 0, 90}, {1, 1, 1}) * Vec3d{1, 0, 0}, {0, 1, 0}, 1e-15);
}

TEST(Matrix, InverseUndoesAndProductChains) {
  const Matrix a = Placement({5, 1, -2}, {10, 200, -70}, {3, 0.1, 2});
  const Matrix b = Placement({-1, 0.5, 0}, {-33, 12, 5}, {1, 4, -1});
  const Vec3d p{0.7, -1.1, 2.3};
  ExpectNear(Inverse(a) * (a * p), p, 1e-13);
  ExpectNear((a * b) * p, a * (b * p), 1e-13);
  ExpectNear(a.Rotate(p), a * p - a.offset, 1e-14);
  EXPECT_EQ(Inverse(Placement({1, 2, 3}, {}, {1, 0, 1})), Matrix{});
}

TEST(Matrix, RotationOfDropsScaleAndShearAndKeepsHandedness) {
  const Matrix turn = Placement({}, {40, 50, 60}, {1, 1, 1});
  const Matrix stretched = Placement({9, 9, 9}, {40, 50, 60}, {2, 7, 0.1});
  for (int i = 0; i < 3; ++i) {
    Vec3d unit{};
    unit[i] = 1;
    ExpectNear(RotationOf(stretched) * unit, turn * unit, 1e-14);
  }
  const Matrix sheared = RotationOf(Placement({}, {}, {1, 3, 1}) * stretched);
  EXPECT_NEAR(Dot(sheared.v1, sheared.v2), 0, 1e-14);
  EXPECT_NEAR(Dot(sheared.v3, Cross(sheared.v1, sheared.v2)), 1, 1e-14);
  const Matrix mirrored = RotationOf(Placement({}, {1, 2, 3}, {-1, 1, 1}));
  EXPECT_NEAR(Dot(mirrored.v3, Cross(mirrored.v1, mirrored.v2)), -1, 1e-14);
}

TEST(Matrix, RotationVectorIsAxisTimesAngleAtEverySize) {
  std::mt19937 random(5);
  std::normal_distribution<double> normal;
  const Matrix start = Placement({4, 5, 6}, {15, 25, 35}, {2, 2, 2});
  for (const double angle : {1e-9, 1e-4, 0.5, pi / 2, 2.0, 2.5, 3.1, pi - 1e-7, pi - 1e-11})
    for (int i = 0; i < 20; ++i) {
      const Vec3d axis = Normalised(Vec3d{normal(random), normal(random), normal(random)});
      const Matrix end = Turned(axis, angle) * start;
      ExpectNear(RotationVector(start, end), axis * angle, 3e-8 * std::max(angle * angle, 1e-8));
    }
  EXPECT_EQ(RotationVector(start, start), Vec3d{});
  const Vec3d half = RotationVector({}, Placement({}, {0, 180, 0}, {1, 1, 1}));
  EXPECT_NEAR(std::abs(half.y), pi, 1e-12);
  EXPECT_NEAR(Length(half), pi, 1e-12);
}

}  // namespace
}  // namespace MELDO_GLOBAL
