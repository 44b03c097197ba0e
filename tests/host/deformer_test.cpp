#include "host/deformer.h"

#include <gtest/gtest.h>

#include <numbers>

#include "host/document.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::host;

namespace {

void ExpectNear(const Vec3d& a, const Vec3d& b, double within = 1e-12) {
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], within) << c;
}

DeformerSettings Make(DeformerKind kind) {
  DeformerSettings made;
  made.kind = kind;
  return made;
}

}  // namespace

TEST(Deformer, BendsTheAxisIntoAnArcOfItsLength) {
  DeformerSettings bend = Make(DeformerKind::Bend);
  const double radius = 200 / std::numbers::pi;
  ExpectNear(bend.Deformed({3, -7, 2}), {3, -7, 2});
  ExpectNear(bend.Deformed({0, 100, 2}), {radius, radius, 2});
  ExpectNear(bend.Deformed({4, 130, 0}), {radius + 30, radius - 4, 0});
  double length = 0;
  for (i32 i = 0; i < 1000; ++i)
    length += Length(bend.Deformed({0, (i + 1) * 0.1, 0}) - bend.Deformed({0, i * 0.1, 0}));
  EXPECT_NEAR(length, 100, 1e-4);
  // Neither end of it tears.
  for (const double y : {0.0, 100.0})
    ExpectNear(bend.Deformed({5, y - 1e-9, 0}), bend.Deformed({5, y + 1e-9, 0}), 1e-8);
  bend.angle = 1e-9;
  ExpectNear(bend.Deformed({5, 60, 1}), {5, 60, 1}, 1e-5);
  bend.angle = 0;
  ExpectNear(bend.Deformed({5, 60, 1}), {5, 60, 1});
}

TEST(Deformer, TwistsTapersWavesAndMoves) {
  const DeformerSettings twist = Make(DeformerKind::Twist);
  ExpectNear(twist.Deformed({1, 100, 0}), {0, 100, -1});
  ExpectNear(twist.Deformed({1, 50, 0}), {std::sqrt(0.5), 50, -std::sqrt(0.5)});
  ExpectNear(twist.Deformed({1, 500, 0}), {0, 500, -1});
  const DeformerSettings taper = Make(DeformerKind::Taper);
  ExpectNear(taper.Deformed({4, 50, -2}), {3, 50, -1.5});
  ExpectNear(taper.Deformed({4, -9, -2}), {4, -9, -2});
  DeformerSettings wave = Make(DeformerKind::Wave);
  ExpectNear(wave.Deformed({1, 25, 3}), {21, 25, 3});
  wave.phase = 90;
  ExpectNear(wave.Deformed({1, 50, 3}), {21, 50, 3});
  ExpectNear(Make(DeformerKind::Move).Deformed({1, 2, 3}), {1, 52, 3});
}

TEST(Deformer, WorksInItsOwnAxesOnItsCarrier) {
  Document document;
  BaseNode& node = document.Create<BaseNode>(kDeformerObject, "twist", nullptr);
  node.SetTable(&DeformerParameters());
  node.Set(kDeformerKind, static_cast<i32>(DeformerKind::Twist));
  node.SetPlacement({10, 0, 0}, {0, 0, -90}, {1, 1, 1});  // y leads along x
  for (const double lift : {0.0, 5.0}) {
    const PlacedDeformer placed(node, Placement({0, lift, 0}, {}, {1, 1, 1}));
    // A hundred along the axis is a quarter of a turn about it.
    const Vec3d p = placed.At(Vec3d{110, 3, 0} + Vec3d{0, lift, 0});
    ExpectNear(p, Vec3d{110, 0, 3} + Vec3d{0, lift, 0}, 1e-9);
  }
}
