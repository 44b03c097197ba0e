#include "fluids/advection/particle_mover.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/volume/mesh_solid.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr f32 kCell = 0.25f;

GridLayout DomainOf(f32 cell) {
  GridLayout domain;
  domain.Set({1, 1, 1}, Vec3d{1, 1, 1} * (100.0 * cell), cell, {});
  return domain;
}

/// A box of `cells` cells from `origin` (cells) on, with walls all round, and a flow f(position).
struct FlowBox {
  GridLayout layout;
  EGrid<double> u, v, w;
  GridBoundary boundary;

  explicit FlowBox(const VecInt3D& cells, const VecInt3D& origin = {}, u8 walls = 63,
                   const std::vector<VolumeBase*>& obstacles = {})
      : layout(LayoutOf(cells, origin)), u(layout, kFaceX), v(layout, kFaceY), w(layout, kFaceZ) {
    boundary.mWalls = walls;
    boundary.mObstacles = obstacles;
    EXPECT_TRUE(boundary.Fit(DomainOf(kCell), layout.simOrigin, layout.simMax));
    boundary.Build(1);
  }
  static GridLayout LayoutOf(const VecInt3D& cells, const VecInt3D& origin) {
    GridLayout layout;
    layout.Set(cells, ToReal(cells) * (100.0 * kCell), kCell, ToReal(origin) * (100.0 * kCell));
    return layout;
  }
  template <class F>
  void Fill(F&& f) {
    EGrid<double>* grids[] = {&u, &v, &w};
    for (int a = 0; a < 3; ++a)
      ForEachCell({{0, 0, 0}, grids[a]->Dims()}, [&](i32 x, i32 y, i32 z) {
        (*grids[a])(x, y, z) = f(grids[a]->PositionOf(x, y, z))[a];
      });
  }
  CarryingFlow Flow() const { return {StaggeredVelocity(u, v, w), boundary}; }
};

/// A step of `motion` for all particles.
void Step(const ParticleMotion& motion, ParticleColumns& particles) {
  motion.RequireColumns(particles);
  MoveParticles(motion, particles, {0, particles.Count()}, 0);
}

ParticleTemplate ParticleAt(const Vec3d& p, const Vec3d& velocity = {}) {
  ParticleTemplate particle;
  particle.position = p;
  particle.velocity = velocity;
  return particle;
}

TEST(ParticlePaths, HaveTheirOrderInARigidRotation) {
  FlowBox box({20, 20, 20});
  const Vec3d middle = box.layout.simMax * 0.5;
  const double omega = 2 * std::numbers::pi;
  box.Fill([&](const Vec3d& p) { return Cross(Vec3d{0, 0, omega}, p - middle); });
  const auto error = [&](i32 order, i32 steps) {
    ParticleMotion motion;
    motion.flows.push_back(box.Flow());
    motion.order = order;
    motion.step = 1.0 / steps;
    ParticleColumns particles;
    const Vec3d start = middle + Vec3d{1.3, 0.4, -0.7};
    particles.Append(ParticleAt(start));
    for (i32 i = 0; i < steps; ++i) Step(motion, particles);
    return Length(particles.Positions()[0] - start);
  };
  for (i32 order = 0; order < 4; ++order) {
    const double coarse = error(order, 200), fine = error(order, 400);
    EXPECT_NEAR(std::log2(coarse / fine), order + 1, 0.15) << order;
  }
}

TEST(ParticleMotionInFreeFlight, FollowsEachIntegratorAndSpendsForcesOnce) {
  const Vec3d g{0, -10, 0}, v0{3, 4, 0};
  const double dt = 0.01;
  for (const i32 integrator :
       {ParticleMotion::kEuler, ParticleMotion::kVerlet, ParticleMotion::kVelocityVerlet}) {
    ParticleMotion motion;
    motion.carries = false;
    motion.integrator = integrator;
    motion.gravity = g;
    motion.step = 2 * dt;
    motion.substeps = 2;
    ParticleColumns particles;
    ParticleTemplate particle = ParticleAt({}, v0);
    particle.Set(property_id::kMass, 2.0);
    particle.Set(property_id::kBallisticForces, Vec3d{6, 0, 0});
    // Verlet keeps its speed as the way from the old position.
    particle.Set(property_id::kOldPosition, v0 * -dt);
    particles.Append(particle);
    Step(motion, particles);
    const double push = integrator == ParticleMotion::kEuler ? 3 : 6;
    const double fall = integrator == ParticleMotion::kVerlet ? 2 : 1;  // m g as a change of speed
    const Vec3d v1 = v0 + Vec3d{push, -10 * fall, 0} * dt, v2 = v1 + Vec3d{0, -10 * fall, 0} * dt;
    const Vec3d wanted = (v1 + v2) * dt;
    EXPECT_NEAR(Length(particles.Positions()[0] - wanted), 0, 1e-14) << integrator;
    const Vec3d speed = integrator == ParticleMotion::kVerlet ? v2 * dt : v2;
    EXPECT_NEAR(Length(particles.Velocities()[0] - speed), 0, 1e-13) << integrator;
    EXPECT_EQ(particles.At(0).GetVector(property_id::kBallisticForces, {1, 1, 1}), Vec3d{});
    EXPECT_EQ(particles.At(0).GetVector(property_id::kFrameStart, {1, 1, 1}), Vec3d{});
  }
}

/// Gusts blow 150 particles against a slanted slab for 200 steps. None may be in it afterwards, and
/// none may have passed it: it reaches from wall to wall.
void BlowAtSlab(const TurnedBox& slab, MeshSolid& solid, double thickness, double cellsAStep,
                ParticleMotion::Collision collision) {
  constexpr i32 kCells = 18;
  FlowBox box({kCells, kCells, kCells}, {}, 63, {&solid});
  RandomStream random;
  random.Seed(7);
  ParticleColumns particles;
  std::vector<double> sides;
  while (particles.Count() < 150) {
    const Vec3d p{2 + 14 * random.NextUnit(), 2 + 14 * random.NextUnit(),
                  2 + 14 * random.NextUnit()};
    if (std::abs(slab.Side(p)) < thickness / 2 + 0.1) continue;
    particles.Append(ParticleAt(p * kCell));
    sides.push_back(slab.Side(p));
  }
  ParticleMotion motion;
  motion.collision = collision;
  motion.step = 1;
  motion.substeps = 1;
  motion.flows.push_back(box.Flow());
  if (collision == ParticleMotion::kWallsAndVolumes) motion.volumes.emplace_back(solid);
  for (i32 step = 0; step < 200; ++step) {
    if (step % 20 == 0) {
      const Vec3d gust = random.NextOnSphere() * (cellsAStep * kCell);
      box.Fill([&](const Vec3d&) { return gust; });
    }
    Step(motion, particles);
  }
  i32 inside = 0, passed = 0, outside = 0;
  for (i32 i = 0; i < particles.Count(); ++i) {
    const Vec3d p = particles.Positions()[i] * (1 / double{kCell});
    const double side = slab.Side(p);
    inside += std::abs(side) < thickness / 2 - 1e-6;
    passed += side * sides[i] < 0;
    for (int a = 0; a < 3; ++a) outside += p[a] < 1 || p[a] > kCells - 1;
  }
  EXPECT_EQ(inside, 0) << thickness << " " << cellsAStep << " " << collision;
  EXPECT_EQ(passed, 0) << thickness << " " << cellsAStep << " " << collision;
  EXPECT_EQ(outside, 0);
}

TEST(ParticleCollisions, LeaveNoneInAThinSlantedSlabAndLetNonePass) {
  for (const double thickness : {0.2, 0.6, 1.5, 4.0}) {
    const TurnedBox slab({9, 9, 9}, {thickness, 34, 34}, 0.5, 0.35, kCell);
    MeshSolid solid(slab.mesh, kCell);
    BlowAtSlab(slab, solid, thickness, 0.3, ParticleMotion::kLevelSet);
    for (const auto collision : {ParticleMotion::kLevelSet, ParticleMotion::kWallsAndVolumes})
      BlowAtSlab(slab, solid, thickness, 2.5, collision);
  }
}

/// Turns the speed of what hits something round.
class Bounce : public InstantOperator {
 public:
  void Apply(const ParticleHit& hit, Particle particle, u32) override {
    ++count;
    last = hit;
    particle.Velocity() -= hit.normal * (2 * Dot(hit.normal, particle.Velocity()));
  }
  ParticleHit last;
  i32 count = 0;
};

TEST(ParticleCollisions, GiveContactsToOperatorsAndGoOn) {
  FlowBox box({10, 10, 10});
  Bounce bounce;
  ParticleMotion motion;
  motion.carries = false;
  motion.collision = ParticleMotion::kLevelSet;
  motion.flows.push_back(box.Flow());
  motion.operators.push_back(&bounce);
  motion.step = 0.4;
  motion.substeps = 4;
  ParticleColumns particles;
  // A cell above the floor, which is a cell above the grid's lower side.
  particles.Append(ParticleAt({1, 2 * kCell, 1}, {0.5, -2, 0}));
  Step(motion, particles);
  ASSERT_EQ(bounce.count, 1);
  // The second substep's way is cut where it meets the floor; from there it flies up again.
  EXPECT_NEAR(bounce.last.newPosition.y, 2 * kCell - 0.4, 1e-12);
  EXPECT_NEAR(bounce.last.normal.y, 1, 1e-6);
  EXPECT_NEAR(bounce.last.contact.y, kCell * 1.001, 1e-6);
  const double fall = kCell * 0.999 / 2;
  EXPECT_NEAR(particles.Positions()[0].y, kCell * 1.001 + 2 * (0.4 - fall), 1e-6);
  EXPECT_NEAR(particles.Positions()[0].x, 1 + 0.5 * 0.4, 1e-6);
  EXPECT_NEAR(Length(particles.Velocities()[0] - Vec3d{0.5, 2, 0}), 0, 1e-6);
  EXPECT_TRUE(particles.Flags()[0] & PF_COLLIDED);
  Step(motion, particles);
  EXPECT_FALSE(particles.Flags()[0] & PF_COLLIDED) << "the mark lasts for a frame";
}

/// Counts contacts, and pushes what is hit along z.
class PushAlong : public InstantOperator {
 public:
  void Apply(const ParticleHit&, Particle particle, u32) override {
    ++count;
    particle.Velocity() += {0, 0, 5};
  }
  i32 count = 0;
};

TEST(ParticleCollisions, CallOperatorsOnceForASolidAndKeepWhatTheyChange) {
  // Carried down to a floor and along it, against a slab that stands across.
  const TurnedBox ground({8, 0.5, 8}, {40, 3, 40}, 0, 0, kCell);
  const TurnedBox slab({10, 8, 8}, {4, 20, 20}, 0, 0, kCell);
  MeshSolid floor(ground.mesh, kCell), wall(slab.mesh, kCell);
  FlowBox box({16, 16, 16}, {}, 63, {&floor, &wall});
  box.Fill([](const Vec3d&) { return Vec3d{1, -1, 0}; });
  for (const auto collision : {ParticleMotion::kLevelSet, ParticleMotion::kWallsAndVolumes})
    for (const i32 substeps : {1, 4, 9}) {
      SCOPED_TRACE(substeps);
      PushAlong push;
      ParticleMotion motion;
      motion.collision = collision;
      motion.flows.push_back(box.Flow());
      if (collision == ParticleMotion::kWallsAndVolumes) {
        motion.volumes.emplace_back(floor);
        motion.volumes.emplace_back(wall);
      }
      motion.operators.push_back(&push);
      motion.step = 0.5;
      motion.substeps = substeps;
      ParticleColumns particles;
      particles.Append(ParticleAt(Vec3d{6.5, 2.5, 8} * kCell));
      Step(motion, particles);
      const i32 solids = collision == ParticleMotion::kLevelSet ? 1 : 2;
      EXPECT_EQ(push.count, solids);
      EXPECT_NEAR(particles.Velocities()[0].z, 5 * solids, 1e-9);
    }
}

TEST(ParticlesInSeveralFlows, AreMovedByTheFirstThatHoldsThemAndAgeOnce) {
  // Two boxes side by side that overlap by four cells, open on all sides.
  FlowBox left({10, 8, 8}, {}, 0), right({10, 8, 8}, {6, 0, 0}, 0);
  left.Fill([](const Vec3d&) { return Vec3d{0, 1, 0}; });
  right.Fill([](const Vec3d&) { return Vec3d{0, 0, 1}; });
  ParticleMotion motion;
  motion.flows.push_back(left.Flow());
  motion.flows.push_back(right.Flow());
  motion.fliesOutside = false;
  motion.step = 0.1;
  ParticleColumns particles;
  for (const double x : {3.0, 8.5, 13.0}) {
    ParticleTemplate particle = ParticleAt(Vec3d{x, 4, 4} * kCell);
    particle.Set(property_id::kAge, 2.0);
    particle.Set(property_id::kLifeSpan, 2.0);
    particles.Append(particle);
  }
  Step(motion, particles);
  const double start = 4 * kCell;
  EXPECT_NEAR(particles.Positions()[0].y - start, 0.1, 1e-12);
  EXPECT_NEAR(particles.Positions()[1].y - start, 0.1, 1e-12) << "both hold it";
  EXPECT_NEAR(particles.Positions()[2].z - start, 0.1, 1e-12);
  for (i32 i = 0; i < 3; ++i) {
    EXPECT_EQ(particles.At(i).GetAge(), 1);
    EXPECT_TRUE(particles.Flags()[i] & PF_ALIVE);
    EXPECT_TRUE(particles.Flags()[i] & PF_NEWBORN);
  }
  // Steps within a frame don't age.
  motion.isLast = false;
  Step(motion, particles);
  EXPECT_EQ(particles.At(0).GetAge(), 1);
  EXPECT_FALSE(particles.Flags()[0] & PF_NEWBORN);
  motion.isLast = true;
  Step(motion, particles);
  EXPECT_FALSE(particles.Flags()[0] & PF_ALIVE) << "its two frames are over";
}

TEST(ParticlesOutsideOfFlows, DieOrFlyOrRest) {
  FlowBox box({8, 8, 8}, {}, 0);
  box.Fill([](const Vec3d&) { return Vec3d{20, 0, 0}; });
  ParticleMotion motion;
  motion.flows.push_back(box.Flow());
  motion.step = 0.1;
  motion.fliesOutside = false;
  const auto run = [&](u16 flags) {
    ParticleColumns particles;
    ParticleTemplate particle = ParticleAt(Vec3d{4, 4, 4} * kCell, {0, 1, 0});
    particle.flags |= flags;
    particles.Append(particle);
    Step(motion, particles);
    return std::pair(particles.Positions()[0], particles.Flags()[0]);
  };
  EXPECT_FALSE(run(0).second & PF_ALIVE);
  // Beyond a side in mid-air it is in the user's box still.
  motion.flows.clear();
  motion.flows.emplace_back(StaggeredVelocity(box.u, box.v, box.w), box.boundary, kHighWall[0]);
  EXPECT_TRUE(run(0).second & PF_ALIVE);
  motion.flows.clear();
  motion.flows.push_back(box.Flow());
  motion.killsOutside = false;
  EXPECT_TRUE(run(0).second & PF_ALIVE);
  // What is ballistic goes its own way in a flow; without a flow the others stay.
  EXPECT_NEAR(run(PF_BALLISTIC).first.y, 4 * kCell + 0.1, 1e-12);
  motion.flows.clear();
  EXPECT_EQ(run(0).first, (Vec3d{4, 4, 4} * double{kCell}));
  motion.fliesOutside = true;
  EXPECT_NEAR(run(0).first.y, 4 * kCell + 0.1, 1e-12);
}

TEST(ParticlesOutsideOfFlows, MeetObstaclesAndNoWalls) {
  const TurnedBox floor({4, -6, 4}, {40, 4, 40}, 0, 0, kCell);
  MeshSolid solid(floor.mesh, kCell);
  FlowBox box({8, 8, 8}, {}, 63, {&solid});
  ParticleMotion motion;
  motion.flows.push_back(box.Flow());
  motion.volumes.emplace_back(solid);
  motion.step = 0.1;
  motion.gravity = {0, -9.81, 0};
  for (const auto collision : {ParticleMotion::kLevelSet, ParticleMotion::kWallsAndVolumes}) {
    motion.collision = collision;
    ParticleColumns particles;
    particles.Append(ParticleAt(Vec3d{14, 4, 4} * kCell, {-1, 0, 0}));
    ParticleTemplate within = ParticleAt(Vec3d{4, 4, 4} * kCell);
    within.flags |= PF_BALLISTIC;
    particles.Append(within);
    Step(motion, particles);
    EXPECT_NEAR(particles.Positions()[0].x, 14 * kCell - 0.1, 1e-12) << "no wall is there";
    for (i32 i = 0; i < 20; ++i) Step(motion, particles);
    EXPECT_NEAR(particles.Positions()[0].y, -4 * kCell, 0.1 * kCell) << "on the obstacle";
    EXPECT_NEAR(particles.Positions()[1].y, kCell, 0.1 * kCell) << "on the wall of the flow";
  }
}

TEST(Bubbles, RiseAndTakeOnTheFlow) {
  FlowBox box({10, 10, 10});
  box.Fill([](const Vec3d&) { return Vec3d{0.1, 0, 0}; });
  ParticleMotion motion;
  motion.flows.push_back(box.Flow());
  motion.gravity = {0, -10, 0};
  motion.step = 0.02;
  ParticleColumns particles;
  ParticleTemplate particle = ParticleAt(Vec3d{5, 3, 5} * kCell);
  particle.flags |= PF_BUBBLE;
  particles.Append(particle);
  for (i32 i = 0; i < 60; ++i) Step(motion, particles);
  // Where drag and lift balance: 0.3 v / dt = 0.01 g.
  EXPECT_NEAR(particles.Velocities()[0].x, 0.1, 1e-6);
  EXPECT_NEAR(particles.Velocities()[0].y, 0.1 * 0.02 / 0.3, 1e-6);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
