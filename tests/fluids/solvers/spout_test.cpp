// Water that comes through the volume of an emitter, in whole frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/advection/particle_advection.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/forces/force_gravity.h"
#include "fluids/mesh/mesh_rig.h"
#include "fluids/solvers/water_solver.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kCellWidth = 0.05, kFrameTime = 0.04;

/// A box of water that flows, in a liquid that ends nowhere.
class Spout : public MeshRig {
 public:
  /// `size` in cells, about the middle of the liquid's box. Without a velocity it is kept full.
  Spout(const Vec3d& size, const Vec3d& velocity, double jitter)
      : MeshRig(host::MakeBox({.size = size * (100 * kCellWidth)}), kCellWidth),
        mIsTap(velocity != Vec3d{}) {
    AddVolume();
    group = &Make("particlegroup");
    settings = &Make("particlemesh_emission_setting");
    settings->Set(1006, jitter);
    speed = &Make("property_vector");
    speed->Set(iProperty::kPropertyRow, i32{property_id::kVelocity});
    speed->Set(iProperty::kValueRow, velocity);
    emitter = &AddEmitter(*volumeNode);
    host::BaseNode& move = Make("particle_advection");
    move.Set(ParticleAdvection::kGroupRow, host::Link{group->Id()});
    move.Set(1009, i32{1});
    liquid = &Make("liquid");
    liquid->Set(WaterSolver::kBoxSizeRow, Vec3d{400, 400, 400});
    liquid->Set(WaterSolver::kBoxOffsetRow, Vec3d{0.5, 0.5, 0.5});
    liquid->Set(WaterSolver::kGroupsRow, ListOf(*group));
    for (const i32 wall : WaterSolver::kWallRows) liquid->Set(wall, i32{0});
    liquid->Set(WaterSolver::kForcesRow, host::InExcludeData{});
  }
  void AddGravity() { liquid->Set(WaterSolver::kForcesRow, ListOf(Make("force_gravity"))); }
  host::BaseNode& AddEmitter(const host::BaseNode& volume) {
    host::BaseNode& emitter = Make("particlegridemitter");
    emitter.Set(ParticleEmitter::kGroupRow, host::Link{group->Id()});
    emitter.Set(1003, host::Link{settings->Id()});
    if (mIsTap) emitter.Set(1004, ListOf(*speed));
    emitter.Set(ObjectParticleGridEmitter::kVolumeRow, host::Link{volume.Id()});
    return emitter;
  }
  /// Another box, its size and middle in cells; returns its volume.
  host::BaseNode& AddBlock(const Vec3d& size, const Vec3d& middle) {
    auto& block = document.Create<host::PolygonObject>(host::kMeshObject, "block", nullptr);
    block.SetGeometry(host::MakeBox({.size = size * (100 * kCellWidth)}));
    block.SetPlacement(middle * (100 * kCellWidth), {}, {1, 1, 1});
    host::BaseNode& mesh = Make("mesh");
    mesh.Set(Mesh::kObjectRow, host::Link{block.Id()});
    host::BaseNode& volume = Make("volume");
    volume.Set(VolumeMesh::kMeshRow, host::Link{mesh.Id()});
    return volume;
  }
  ParticleStore& Store() const {
    return dynamic_cast<ParticleGroup*>(scene->FindObject(group, kListAll))->Store(kLiquid);
  }
  /// What has been made of water up to a frame, in cubic metres.
  double Made(i32 frame) {
    for (; mNext <= frame; ++mNext) Frame(mNext);
    return static_cast<double>(Store().mBorn) * std::pow(kCellWidth / 2, 3);
  }

  host::BaseNode *group, *settings, *speed, *liquid, *emitter;

 private:
  host::BaseNode& Make(const char* kind) {
    return CreateNode(document, *FindKind(kind), kind, server);
  }
  static host::InExcludeData ListOf(const host::BaseNode& node) { return {{{node.Id(), 0}}}; }

  bool mIsTap;
  i32 mNext = 0;
};

// Whatever the speed, the steps, the direction, the weight of the water and chance.
TEST(Spout, GivesItsCrossSectionTimesTheSpeed) {
  struct Case {
    Vec3d size, velocity;
    double jitter;
    i32 extraSubsteps;
    bool falls;
    double section;  ///< square cells
  };
  const Vec3d tall{4, 6, 4}, cube{4, 4, 4}, odd{3.3, 6, 2.7};
  const Case cases[] = {{tall, {0, -0.5, 0}, 0, 0, true, 16},
                        {tall, {0, -2, 0}, 1, 3, true, 16},
                        {tall, {0, 3, 0}, 1, 1, true, 16},
                        {odd, {0, -1, 0}, 0.5, 2, true, 3.3 * 2.7},
                        {cube, {4, 0, 0}, 1, 1, false, 16},
                        {cube, {0.9, 1.2, 0}, 1, 2, false, 16 * (0.6 + 0.8)},
                        {cube, {2, -1, 2}, 0.5, 1, true, 16 * (2 + 1 + 2) / 3.0},
                        {{4, 1, 4}, {0, -5, 0}, 1, 0, false, 16}};
  for (const Case& own : cases) {
    SCOPED_TRACE(testing::Message() << own.velocity.x << " " << own.velocity.y << " " << own.falls);
    Spout spout(own.size, own.velocity, own.jitter);
    spout.server->Set(1005, own.extraSubsteps);
    if (own.falls) spout.AddGravity();
    constexpr i32 kFirst = 3, kLast = 13;
    const double before = spout.Made(kFirst), made = spout.Made(kLast) - before;
    const double due = own.section * kCellWidth * kCellWidth * Length(own.velocity) *
                       (kLast - kFirst) * kFrameTime;
    EXPECT_NEAR(made / due, 1, 0.03);
  }
}

// Within the source nothing speeds up, and what leaves it is as wide and as full as its outlet.
TEST(Spout, HoldsItsWaterAndGivesAFullJet) {
  constexpr double kSpeed = 1;
  for (const Vec3d& way : {Vec3d{0, -1, 0}, Vec3d{1, 0, 0}}) {
    SCOPED_TRACE(way.x);
    Spout spout(Vec3d{4, 4, 4} + Vec3d{4, 4, 4} * Max(way, -way), way * kSpeed, 1);
    spout.server->Set(1005, i32{1});
    spout.AddGravity();
    spout.Made(12);
    const ParticleStore& store = spout.Store();
    constexpr double kHalf = 4 * kCellWidth, kReach = 2 * kCellWidth;
    i32 within = 0, behind = 0, lost = 0;
    for (i32 i = 0; i < store.Count(); ++i) {
      const Vec3d p = store.Positions()[i];
      const double along = Dot(p, way);
      lost += along < -kHalf - 0.5 * kCellWidth;
      behind += along > kHalf && along < kHalf + kReach;
      // Particles see faces up to a cell off.
      if (std::abs(along) > kHalf - kCellWidth) continue;
      ++within;
      EXPECT_TRUE(IsNear(store.Velocities()[i], way * kSpeed, 0.02));
      const Vec3d across = p - way * along;
      EXPECT_LT(Length(across), 3.2 * kCellWidth);
    }
    EXPECT_NEAR(within, 8 * 16 * 6, 0.03 * 8 * 16 * 6);
    EXPECT_EQ(lost, 0);
    // What falls gets faster on its way, and thinner.
    constexpr double kGravity = 9.81;
    const double time =
        way.y < 0 ? (std::sqrt(kSpeed * kSpeed + 2 * kGravity * kReach) - kSpeed) / kGravity
                  : kReach / kSpeed;
    const double due = 8 * 16 * time * kSpeed / kCellWidth;
    EXPECT_NEAR(behind, due, 0.1 * due);
  }
}

// Its corners sweep through the air beside it, where no water is to come from.
TEST(Spout, GivesNoMoreWhenItTurns) {
  Spout spout({4, 6, 4}, {0, -1, 0}, 0.5);
  const auto turnTo = [&](i32 frame) {
    spout.Place({}, {0, 15.0 * frame, 0});
    return spout.Made(frame);
  };
  constexpr i32 kFirst = 4, kLast = 20;
  for (i32 frame = 0; frame < kFirst; ++frame) turnTo(frame);
  const double before = turnTo(kFirst);
  for (i32 frame = kFirst + 1; frame < kLast; ++frame) turnTo(frame);
  const double due = 16 * kCellWidth * kCellWidth * (kLast - kFirst) * kFrameTime;
  EXPECT_NEAR((turnTo(kLast) - before) / due, 1, 0.05);
}

// The box ends within the source, or a solid fills a part of it: no water waits there that could
// come in.
TEST(Spout, ComesOutOfWhatItReachesInto) {
  enum End { kOpenSide, kWall, kSolid };
  for (const End end : {kOpenSide, kWall, kSolid}) {
    SCOPED_TRACE(end);
    Spout spout({8, 4, 4}, {1.5, 0, 0}, 0.5);
    if (end == kSolid) {
      AddObstacleTag(spout.AddBlock({8, 12, 12}, {-3.3, 0, 0}));
    } else {
      spout.liquid->Set(WaterSolver::kBoxOffsetRow, Vec3d{0, 0.5, 0.5});
      spout.liquid->Set(WaterSolver::kWallRows[0], i32{end == kWall});
    }
    spout.server->Set(1005, i32{1});
    constexpr i32 kFirst = 4, kLast = 16;
    const double before = spout.Made(kFirst), made = spout.Made(kLast) - before;
    const double due = 16 * kCellWidth * kCellWidth * 1.5 * (kLast - kFirst) * kFrameTime;
    EXPECT_NEAR(made / due, 1, 0.05);
  }
}

// A tap that keys close gives nothing, and nothing but its flow once they open it again.
TEST(Spout, GivesNothingWhileItIsClosed) {
  Spout spout({4, 6, 4}, {0, -1, 0}, 0.5);
  spout.AddGravity();
  constexpr i32 kClosed = 8, kOpened = 16, kLast = 26;
  const double before = spout.Made(kClosed);
  spout.speed->Set(iProperty::kValueRow, Vec3d{});
  // What came in on the way to the closing stands behind it, in whole layers of the lattice.
  const double closed = spout.Made(kClosed + 1), due = 16 * kCellWidth * kCellWidth * kFrameTime;
  const double layer = 0.5 * kCellWidth / kFrameTime;  // of what is due
  EXPECT_LE((closed - before) / due, 1 + layer);
  EXPECT_EQ(spout.Made(kOpened), closed);
  spout.speed->Set(iProperty::kValueRow, Vec3d{0, -1, 0});
  const double made = spout.Made(kLast) - closed;
  EXPECT_GT(made / due, kLast - kOpened - 1 - layer);
  EXPECT_LT(made / due, kLast - kOpened + layer);
}

// Nor before they open it for the first time.
TEST(Spout, HoldsNoWaterBeforeItOpens) {
  Spout spout({4, 4, 4}, {0, -1, 0}, 0.5);
  spout.speed->Set(iProperty::kValueRow, Vec3d{});
  EXPECT_EQ(spout.Made(5), 0);
  spout.speed->Set(iProperty::kValueRow, Vec3d{0, -1, 0});
  EXPECT_NEAR(spout.Made(6) / std::pow(4 * kCellWidth, 3), 1, 1e-9);
}

// The strength of its window scales its speed, and without a curve it is all there.
TEST(Spout, FollowsTheCurveOfItsWindow) {
  constexpr double kLength = 0.8;
  constexpr i32 kLast = 20;
  const double section = 16 * kCellWidth * kCellWidth, full = std::pow(4 * kCellWidth, 3);
  for (const double share : {1.0, 0.5}) {
    SCOPED_TRACE(share);
    Spout spout({4, 4, 4}, {0, -1, 0}, 0.5);
    host::BaseNode& window = CreateNode(spout.document, *FindKind("duration"), "w", spout.server);
    window.Set(1000, kLength);
    if (share < 1) window.Set(Duration::kCurveRow, host::SplineData{{{0, 1}, {1, 0}}});
    spout.settings->Set(1002, host::Link{window.Id()});
    const double made = spout.Made(kLast + 3) - full;
    EXPECT_NEAR(made / (section * kLength), share, 0.08);
  }
}

// Its water leaves a volume that moves as it would one that rests, and has its speed too.
TEST(Spout, CarriesItsOwnSpeedAlong) {
  constexpr double kOwn = 0.5;
  constexpr i32 kFirst = 4, kLast = 14;
  double made[2];
  for (const bool isRelative : {false, true}) {
    Spout spout({4, 6, 4}, {0, -1, 0}, 0.5);
    spout.emitter->Set(ObjectParticleGridEmitter::kRelativeRow, isRelative);
    const auto goTo = [&](i32 frame) {
      spout.Place({100 * kOwn * kFrameTime * frame, 0, 0});
      return spout.Made(frame);
    };
    for (i32 frame = 0; frame < kFirst; ++frame) goTo(frame);
    const double before = goTo(kFirst);
    for (i32 frame = kFirst + 1; frame < kLast; ++frame) goTo(frame);
    made[isRelative] = goTo(kLast) - before;
    if (!isRelative) continue;
    Vec3d mean{};
    for (const Vec3d& v : spout.Store().Velocities()) mean += v / spout.Store().Count();
    EXPECT_VEC(mean, (Vec3d{kOwn, -1, 0}), 0.03);
  }
  const double due = 16 * kCellWidth * kCellWidth * (kLast - kFirst) * kFrameTime;
  EXPECT_NEAR(made[1] / due, 1, 0.05);
  // Else its side, of 6 x 4 cells, sweeps through water that isn't there.
  EXPECT_NEAR(made[0] / due, 1 + 24 * kOwn / 16, 0.1);
}

// No time lies between the start frame and the first step: nothing comes in.
TEST(Spout, IsFilledOnceAtTheStart) {
  Spout spout({4, 4, 4}, {0, -1, 0}, 1);
  const double full = std::pow(4 * kCellWidth, 3);
  EXPECT_NEAR(spout.Made(0) / full, 1, 1e-9);
  EXPECT_NEAR(spout.Made(1) / full, 1, 1e-9);
}

// How wide a place new particles need is nothing to those that come through: they tell their room.
TEST(Spout, TellsTheRoomOfWhatComesThrough) {
  Spout spout({4, 4, 4}, {0, -1, 0}, 0.5);
  spout.emitter->Set(1019, 2.0);
  spout.Made(12);
  const FilledSpace told = spout.Store().Filled();
  ASSERT_GT(told.particles, 0);
  EXPECT_NEAR(told.volume / (told.particles * std::pow(kCellWidth / 2, 3)), 1, 1e-5);
}

/// A spout in a closed box of 8 x 8 x 8 cells.
class SealedSpout : public Spout {
 public:
  static constexpr double kRoom = 512 * kCellWidth * kCellWidth * kCellWidth;
  explicit SealedSpout(const Vec3d& velocity) : Spout({4, 3, 4}, velocity, 0.5) {
    liquid->Set(WaterSolver::kBoxSizeRow, Vec3d{8, 8, 8} * (100 * kCellWidth));
    for (const i32 wall : WaterSolver::kWallRows) liquid->Set(wall, i32{1});
    liquid->Set(WaterSolver::kEvenRow, true);
    AddGravity();
  }
  std::vector<std::string> TakeWarnings() const {
    return dynamic_cast<iBase*>(scene->FindObject(emitter, kListAll))->TakeWarnings();
  }
};

// What has no room is not made, of which one warning tells; once the room has an opening water
// comes again.
TEST(SealedSpout, WaitsWhileItsRoomIsFull) {
  constexpr double kSpeed = 1;
  SealedSpout spout({0, -kSpeed, 0});
  constexpr i32 kFull = 45, kOpened = 70, kFlows = 75, kLast = 85;
  EXPECT_GT(spout.Made(kFull) / SealedSpout::kRoom, 0.97);
  const double full = spout.Made(kOpened);
  EXPECT_LT(full / SealedSpout::kRoom, 1.05);
  const auto told = spout.TakeWarnings();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("sealed room"), std::string::npos) << told[0];
  spout.liquid->Set(WaterSolver::kWallRows[0], i32{0});
  const double before = spout.Made(kFlows), made = spout.Made(kLast) - before;
  const double due = 16 * kCellWidth * kCellWidth * kSpeed * (kLast - kFlows) * kFrameTime;
  EXPECT_NEAR(made / due, 1, 0.1);
  EXPECT_TRUE(spout.TakeWarnings().empty());
}

// Chance leaves gaps in a room that is full as a whole, and a source that tops cells up fills them
// without end.
TEST(SealedSpout, TopsNothingUpInAFullRoom) {
  SealedSpout spout({});
  const double full = spout.Made(170), later = spout.Made(230);
  // It presses nothing: water stands as high as it does itself, at least.
  EXPECT_GT(full / SealedSpout::kRoom, 5.5 / 8);
  EXPECT_LT(later / full, 1.01);
  EXPECT_TRUE(spout.TakeWarnings().empty());
}

// Two boxes with a side in common hold what one box in their place does.
TEST(FilledSeams, BoxesSideBySideHoldWhatOneDoes) {
  for (const double seam : {0.0, 0.5, 0.25}) {
    SCOPED_TRACE(seam);
    Spout spout({6, 6, 6}, {}, 1);
    spout.Place(Vec3d{-3 + seam, 0, 0} * (100 * kCellWidth));
    spout.AddEmitter(spout.AddBlock({6, 6, 6}, {3 + seam, 0, 0}));
    spout.Made(1);
    EXPECT_EQ(spout.Store().Count(), 8 * 12 * 6 * 6);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
