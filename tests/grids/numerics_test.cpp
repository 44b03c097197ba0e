#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cstring>

#include "grids/eigen.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL {
namespace {

TEST(RandomStream, GivesTheReferenceSequences) {
  constexpr u32 reference[2][10] = {
      {3499211612u, 581869302u, 3890346734u, 3586334585u, 545404204u, 4161255391u, 3922919429u,
       949333985u, 2715962298u, 1323567403u},
      {1791095845u, 4282876139u, 3093770124u, 4005303368u, 491263u, 550290313u, 1298508491u,
       4290846341u, 630311759u, 1013994432u}};
  RandomStream seeded[2], fresh;
  seeded[0].Seed(5489);
  seeded[1].Seed(1);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(seeded[0].NextU32(), reference[0][i]);
    EXPECT_EQ(seeded[1].NextU32(), reference[1][i]);
    EXPECT_EQ(fresh.NextU32(), reference[0][i]) << "a stream that was never seeded takes 5489";
  }
  RandomStream far;
  for (int i = 1; i < 10000; ++i) far.NextU32();
  EXPECT_EQ(far.NextU32(), 4123659995u) << "the 10000th output, past several refills";
}

TEST(RandomStream, SphereDrawsZFirstAndIsUniform) {
  RandomStream sphere, plain;
  sphere.Seed(77);
  plain.Seed(77);
  Vec3d mean{};
  double zz = 0;
  constexpr int count = 20000;
  for (int i = 0; i < count; ++i) {
    const Vec3d p = sphere.NextOnSphere();
    EXPECT_EQ(p.z, 2 * plain.NextUnit() - 1);
    plain.NextUnit();
    EXPECT_NEAR(Length(p), 1, 1e-14);
    mean += p * (1.0 / count);
    zz += p.z * p.z / count;
  }
  EXPECT_LT(Length(mean), 0.02);
  EXPECT_NEAR(zz, 1.0 / 3, 0.01);
}

void ExpectDecomposition(const Matrix3d& a, double scale) {
  Vec3d values;
  Matrix3d q;
  SlSymetricEigenDecomp(a, values, q);
  using Rows = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;
  const Rows A = Eigen::Map<const Rows>(a.data()), Q = Eigen::Map<const Rows>(q.data());
  const Eigen::Vector3d w{values.x, values.y, values.z};
  EXPECT_LT((A * Q - Q * w.asDiagonal()).norm(), 1e-9 * scale);
  EXPECT_LT((Q.transpose() * Q - Rows::Identity()).norm(), 1e-13);
  Eigen::Vector3d sorted = w;
  std::sort(sorted.data(), sorted.data() + 3);
  const Eigen::Vector3d reference = Eigen::SelfAdjointEigenSolver<Rows>(A).eigenvalues();
  EXPECT_LT((sorted - reference).norm(), 1e-9 * scale);
}

TEST(Eigen, AgreesWithTheReferenceOnRandomMatrices) {
  RandomStream stream;
  for (const double scale : {1.0, 1e4}) {
    for (int i = 0; i < 500; ++i) {
      const auto r = [&] { return (stream.NextUnit() * 2 - 1) * scale; };
      const double xy = r(), xz = i % 7 ? r() : 0, yz = i % 5 ? r() : 0;
      const double same = r();
      const auto diagonal = [&] { return i % 3 ? r() : same; };
      ExpectDecomposition({diagonal(), xy, xz, xy, diagonal(), yz, xz, yz, diagonal()}, scale);
    }
  }
}

TEST(Eigen, DegenerateMatricesAreQuietAndExact) {
  Vec3d values;
  Matrix3d q;
  testing::internal::CaptureStderr();
  const Matrix3d identity{1, 0, 0, 0, 1, 0, 0, 0, 1};
  SlSymetricEigenDecomp(identity, values, q);
  EXPECT_EQ(values, (Vec3d{1, 1, 1}));
  EXPECT_EQ(q, identity);
  SlSymetricEigenDecomp(Matrix3d{}, values, q);
  EXPECT_EQ(values, (Vec3d{0, 0, 0}));
  ExpectDecomposition({2, 1, 1, 1, 2, 1, 1, 1, 2}, 1);  // a double value
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Eigen, EndlessIterationEndsWithItsMessage) {
  Vec3d values;
  Matrix3d q;
  const double nan = std::nan("");
  testing::internal::CaptureStderr();
  SlSymetricEigenDecomp({nan, nan, nan, nan, nan, nan, nan, nan, nan}, values, q);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SlSymetricEigenDecomp:: Too many iterations in eigenTqli.\n");
}

}  // namespace
}  // namespace MELDO_GLOBAL
