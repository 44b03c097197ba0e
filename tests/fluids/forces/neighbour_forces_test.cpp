#include "fluids/forces/neighbour_forces.h"

#include <gtest/gtest.h>

#include "fluids/emission/alignment_vector.h"
#include "fluids/forces/particle_force_acceleration.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/particle_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// A force and the node that pushes by it.
struct PushRig : ParticleRig {
  Force& force;
  ParticleForces& push = Add<ParticleForces>("particle_forces", "push");

  explicit PushRig(const char* type) : force(Add<Force>(type, "force")) {
    Links(push, ParticleForces::kGroupRow, {&group});
    Links(push, ParticleForces::kForcesRow, {&force});
  }
  /// What a step changes.
  std::vector<Vec3d> Changes(i32 threads = 1) {
    SetUp();
    const std::vector<Vec3d> before = CopyOf(Store().Velocities());
    Run(push, threads);
    std::vector<Vec3d> changes = CopyOf(Store().Velocities());
    for (std::size_t i = 0; i < before.size(); ++i) changes[i] -= before[i];
    return changes;
  }
};

using Pull = Vec3d (*)(const Vec3d& offset, const Vec3d& velocity);
struct NeighbourCase {
  const char* type;
  Pull pull;
};
const NeighbourCase kCases[] = {
    {"pforce_alignment", [](const Vec3d&, const Vec3d& velocity) { return velocity; }},
    {"pforce_cohesion", [](const Vec3d& offset, const Vec3d&) { return offset; }},
    {"pforce_separation",
     [](const Vec3d& offset, const Vec3d&) { return offset / Length(offset); }},
};

}  // namespace

TEST(NeighbourForces, TakeTheMeanOfAllLivingOnesAboutAParticleAsTheyWereBefore) {
  for (const auto& [type, pull] : kCases) {
    std::vector<Vec3d> first;
    for (const i32 threads : {1, 3}) {
      PushRig rig(type);
      rig.PutCloud(rig.Store(), 700, {2, 2, 1});
      rig.Put({5, 5, 5}, {1, 2, 3});
      for (i32 row = 0; row < 700; row += 9) rig.Kill(rig.Store(), row);
      TestScene::Set(rig.force, 1000, -3.0);
      TestScene::Set(rig.force, 1003, 2.5);
      TestScene::Links(rig.force, common_row::kConstraints, {&rig.AddHalfLeft()});
      const std::vector<Vec3d> velocities = rig.CopyOf(rig.Store().Velocities());
      const auto positions = rig.Store().Positions();
      const std::vector<Vec3d> changes = rig.Changes(threads);
      i32 alone = 0;
      for (i32 i = 0; i <= 700; ++i) {
        Vec3d sum{};
        i32 count = 0;
        for (i32 j = 0; j <= 700; ++j)
          if (i != j && j % 9 != 0 && Length(positions[j] - positions[i]) < 0.25)
            sum += pull(positions[j] - positions[i], velocities[j] - velocities[i]), ++count;
        const bool isOut = i % 9 == 0 || positions[i].x >= 1 || count == 0;
        alone += count == 0;
        const double k = ParticleRig::kStep * 0.5 * -3;
        ExpectVector(changes[i], isOut ? Vec3d{} : sum * (k / count), 1e-12, i);
      }
      EXPECT_GT(alone, 0);
      if (first.empty()) first = changes;
      EXPECT_EQ(changes, first) << type << threads;
    }
  }
}

TEST(NeighbourForces, HaveTheSignThatTheirHelpTells) {
  for (const auto& [type, pull] : kCases) {
    PushRig rig(type);
    rig.Put({0, 0, 0}, {1, 0, 0});
    rig.Put({0.05, 0, 0}, {2, 0, 0});
    rig.Put({0.05, 0, 0}, {2, 0, 0});  // in the same place: no way leads from one to the other
    TestScene::Set(rig.force, 1000, 10.0);
    const std::vector<Vec3d> changes = rig.Changes();
    EXPECT_GT(changes[0].x, 0) << type << ": to the neighbours, or to their speed";
    EXPECT_LT(changes[1].x, 0) << type;
    EXPECT_EQ(changes[1], changes[2]);
  }
}

TEST(AccelerationForce, PullsAlongTheNodesAxesOrItsAlignment) {
  PushRig rig("pforce_acceleration");
  using Row = ParticleForce_Acceleration;
  TestScene::Set(rig.force, Row::kStrengthRow, 5.0);
  TestScene::Set(rig.force, Row::kDirectionRow, Vec3d{0, 7, 0});
  rig.force.Node()->SetPlacement({50, 0, 0}, {0, 0, 90}, {2, 2, 2});  // y becomes -x
  rig.Put({3, 0, 4});
  ExpectVector(rig.Changes()[0], Vec3d{-5, 0, 0} * ParticleRig::kStep, 1e-12);

  auto& outwards = rig.Add<AlignmentVector3D>("alignment", "outwards");
  TestScene::Set(outwards, AlignmentVector3D::kModeRow, i32{AlignmentVector3D::kRadial});
  TestScene::Link(rig.force, Row::kAlignmentRow, outwards);
  ExpectVector(rig.Changes()[0], Vec3d{3, 0, 4} * (ParticleRig::kStep * 5 / 5), 1e-12);
  TestScene::Set(rig.push, ParticleForces::kPerStepRow, false);
  ExpectVector(rig.Changes()[0], Vec3d{3, 0, 4}, 1e-12);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
