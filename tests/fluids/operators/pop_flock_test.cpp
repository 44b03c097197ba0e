#include "fluids/operators/pop_flock.h"

#include <gtest/gtest.h>

#include "fluids/particle_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

struct FlockRig : ParticleRig {
  POP_Flock& flock = Add<POP_Flock>("pop_flock", "flock");
  ParticleGroup& hawks = Add<ParticleGroup>("particlegroup", "hawks");

  FlockRig() {
    Link(flock, POP_Flock::kGroupRow, group);
    Link(flock, POP_Flock::kPredatorsRow, hawks);
    SetUp();
  }
  ParticleStore& Hawks() { return hawks.Store(kPassive); }
  void Step(i32 threads = 1) {
    SetUp();
    Run(flock, threads);
  }
  bool Lives(i32 row) { return Store().Flags()[row] & PF_ALIVE; }
};

/// The rule as its authors have it: towards a speed along `direction`, a quarter of it a second.
Vec3d Steered(const Vec3d& direction, const Vec3d& velocity, double speed, double weight) {
  if (Length(direction) == 0) return {};
  Vec3d change = direction * (speed / Length(direction)) - velocity;
  if (Length(change) > 0.25 * speed) change = Normalised(change) * (0.25 * speed);
  return change * weight;
}

}  // namespace

TEST(Flock, TurnsByItsThreeRulesFromWhatAllDidBefore) {
  std::vector<Vec3d> first;
  for (const i32 threads : {1, 2, 3, 7}) {
    FlockRig rig;
    rig.PutCloud(rig.Store(), 600, {2, 2, 1});
    for (i32 row = 0; row < 600; row += 7) rig.Kill(rig.Store(), row);
    TestScene::Set(rig.flock, POP_Flock::kSeparationRadiusRow, 1.5);
    TestScene::Set(rig.flock, POP_Flock::kAlignmentRadiusRow, 2.5);
    TestScene::Set(rig.flock, POP_Flock::kSpeedRow, 25.0);
    TestScene::Links(rig.flock, common_row::kConstraints, {&rig.AddHalfLeft()});
    const std::vector<Vec3d> p = rig.CopyOf(rig.Store().Positions()),
                             v = rig.CopyOf(rig.Store().Velocities());
    rig.Step(threads);
    const std::vector<Vec3d> now = rig.CopyOf(rig.Store().Velocities());
    if (first.empty()) first = now;
    EXPECT_EQ(now, first) << threads;
    for (i32 i = 0; i < 600; ++i) {
      Vec3d apart{}, along{}, together{};
      for (i32 j = 0; j < 600; ++j) {
        const double d = Length(p[j] - p[i]);
        if (j == i || j % 7 == 0) continue;
        if (d < 0.15) apart += (p[i] - p[j]) / (d * d);
        if (d < 0.25) along += v[j];
        if (d < 0.2) together += p[j] - p[i];
      }
      const Vec3d steering = Steered(together, v[i], 2.5, 0.5) + Steered(apart, v[i], 2.5, 0.3) +
                             Steered(along, v[i], 2.5, 0.15);
      const double weight = i % 7 == 0 || p[i].x >= 1 ? 0.0 : 0.5;
      // Cells are in single precision.
      ExpectVector(now[i], v[i] + steering * (ParticleRig::kStep * weight), 1e-7, i);
    }
  }
}

TEST(Flock, FleesFromAPredatorWhateverItsNeighboursDo) {
  FlockRig rig;
  rig.Put({0, 0, 0}, {0, 1, 0});
  rig.Put({0.1, 0, 0}, {0, 0, 1});
  rig.Put({2, 0, 0}, {0, 0, 1});
  rig.Put({2.1, 0, 0}, {0, 0, 1});
  rig.Put(rig.Hawks(), {0, 0, 0.2});
  rig.Put(rig.Hawks(), {0, 0.1, 0});
  rig.Kill(rig.Hawks(), 1);
  // Ten cells a second are a metre.
  rig.Step();
  ExpectVector(rig.Store().Velocities()[0], {0, 1, -0.8 * ParticleRig::kStep}, 1e-7);
  const Vec3d away = Vec3d{0.1, 0, -0.2} / std::sqrt(0.05);
  ExpectVector(rig.Store().Velocities()[1], Vec3d{0, 0, 1} + away * (0.8 * ParticleRig::kStep),
               1e-7);
  EXPECT_GT(Length(rig.Store().Velocities()[2] - Vec3d{0, 0, 1}), 1e-4)
      << "far from it neighbours count";
}

TEST(Flock, PredatorsHuntKeepApartAndKillEachPreyOnce) {
  for (const bool kills : {true, false}) {
    FlockRig rig;
    rig.Put({0, 0, 0});
    rig.Put({0.3, 0, 0});
    rig.Put({9, 0, 0});
    rig.Put(rig.Hawks(), {0, 0.02, 0});
    rig.Put(rig.Hawks(), {0, -0.02, 0});
    rig.Put(rig.Hawks(), {0, 0, -0.4}, {0, 0, 0.1});
    TestScene::Set(rig.flock, POP_Flock::kKillsRow, kills);
    TestScene::Set(rig.flock, POP_Flock::kPredatorSeparationRow, 0.0);
    rig.Step(2);
    EXPECT_EQ(rig.Lives(0), !kills);
    EXPECT_TRUE(rig.Lives(1) && rig.Lives(2));
    // Both that it caught and the one it sees draw it, the far one doesn't.
    const Vec3d seek = Steered(Vec3d{0.15, 0, 0.4}, {0, 0, 0.1}, 1, 0.5);
    ExpectVector(rig.Hawks().Velocities()[2], Vec3d{0, 0, 0.1} + seek * ParticleRig::kStep, 1e-7);
    rig.group.CommitStep();
    EXPECT_EQ(rig.group.Count(kPassive), kills ? 2 : 3);

    TestScene::Set(rig.flock, POP_Flock::kPredatorSeparationRow, 0.6);
    TestScene::Set(rig.flock, POP_Flock::kPursuitRow, 0.0);
    rig.Hawks().Velocities()[0] = rig.Hawks().Velocities()[1] = {};
    TestScene::Set(rig.flock, POP_Flock::kPredatorSeparationRadiusRow, 1.0);
    rig.Step();
    ExpectVector(rig.Hawks().Velocities()[0], {0, 0.25 * 0.6 * ParticleRig::kStep, 0}, 1e-7);
    ExpectVector(rig.Hawks().Velocities()[1], {0, -0.25 * 0.6 * ParticleRig::kStep, 0}, 1e-7);
  }
}

TEST(Flock, RestsWhereItWouldHuntItself) {
  FlockRig rig;
  rig.PutCloud(rig.Store(), 5, {1, 1, 1});
  TestScene::Link(rig.flock, POP_Flock::kPredatorsRow, rig.group);
  rig.Step();
  EXPECT_STREQ(rig.flock.mInactiveReason,
               "its predators are its flock; name another kind or group");
  EXPECT_EQ(rig.flock.mRuns, 0u);
  // Another kind of the same group may hunt it.
  TestScene::Set(rig.flock, POP_Flock::kPredatorKindRow, i32{kDiffuse});
  rig.Put(rig.group.Store(kDiffuse), rig.Store().Positions()[3]);
  rig.Step();
  EXPECT_FALSE(rig.Lives(3));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
