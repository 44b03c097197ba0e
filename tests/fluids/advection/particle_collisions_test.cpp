// What moving solids, bounces and slides do to particles.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/advection/particle_advection.h"
#include "fluids/advection/particle_mover.h"
#include "fluids/volume/mesh_solid.h"
#include "framework/sulva_scene.h"
#include "grids/random_stream.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"
#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kCellSize = 0.05;

/// An obstacle and a group of passive particles that fly without gravity, in a room with air or in
/// the open.
struct Sweep {
  host::Document document;
  host::PolygonObject* object;
  host::BaseNode *serverNode, *groupNode, *moverNode;
  std::unique_ptr<SulvaScene> scene;
  RandomStream random;

  Sweep(host::Geometry geometry, bool inRoom, i32 extraSubsteps) {
    random.Seed(3);
    host::BaseNode& server = Make("server", nullptr);
    serverNode = &server;
    server.Set(1002, kCellSize);
    server.Set(1003, 1);
    server.Set(1005, extraSubsteps);
    server.Set(1012, Vec3d{});
    object = &MakeObstacle(std::move(geometry));
    groupNode = &Make("particlegroup", &server);
    moverNode = &Make("particle_advection", &server);
    moverNode->Set(ParticleAdvection::kGroupRow, host::Link{groupNode->Id()});
    moverNode->Set(ParticleAdvection::kKindRow, i32{kPassive});
    moverNode->Set(ParticleAdvection::kMotionRow,
                   inRoom ? ParticleAdvection::kGridThenBallistic : ParticleAdvection::kBallistic);
    if (inRoom) {
      host::BaseNode& gas = Make("fluid", &server);
      gas.Set(1009, 10);
      gas.Set(1010, Vec3d{400, 90, 90});
      gas.SetPlacement({-150, -45, -45}, {}, {1, 1, 1});
    }
    scene = CreateScene(server);
  }
  host::BaseNode& Make(const char* kind, host::BaseNode* parent) {
    return CreateNode(document, *FindKind(kind), "", parent);
  }
  host::PolygonObject& MakeObstacle(host::Geometry geometry) {
    auto& shape = document.Create<host::PolygonObject>(host::kMeshObject, "object", nullptr);
    shape.SetGeometry(std::move(geometry));
    host::BaseNode& mesh = Make("mesh", serverNode);
    mesh.Set(1000, host::Link{shape.Id()});
    host::BaseNode& volume = Make("volume", serverNode);
    volume.Set(1003, host::Link{mesh.Id()});
    AddObstacleTag(volume);
    return shape;
  }
  ParticleStore& Store() const {
    return dynamic_cast<ParticleGroup*>(scene->FindObject(groupNode, kListAll))->Store(kPassive);
  }
  void Add(const Vec3d& p, const Vec3d& velocity = {}) {
    ParticleTemplate particle;
    particle.position = p;
    particle.velocity = velocity;
    particle.flags |= PF_BALLISTIC;
    Store().Create(particle);
  }
  double Between(double low, double high) { return low + (high - low) * random.NextUnit(); }
  void Frame(i32 frame, const Vec3d& position, const Vec3d& rotation = {},
             const Vec3d& scale = {1, 1, 1}) {
    document.SetFrame(frame);
    object->SetPlacement(position, rotation, scale);
    scene->Execute(nullptr, false);
  }
};

host::Geometry Plate(double thickness) {
  host::ShapeArguments size;
  size.size = {thickness, 70, 70};
  return host::MakeBox(size);
}

/// A sheet without an inside that faces along x.
host::Geometry Sheet() {
  host::Geometry sheet;
  sheet.points = {{0, -35, -35}, {0, 35, -35}, {0, 35, 35}, {0, -35, 35}};
  sheet.polygons = {{0, 1, 2, 3}};
  return sheet;
}

TEST(MovingSolids, LeaveNoRestingParticleBehind) {
  const Threads one(1);
  constexpr double kStep = 25;  // host units in a frame: five cells
  struct Case {
    const char* name;
    host::Geometry geometry;
    double widens;  // in a frame, so that it isn't stiff
  };
  for (const Case& each : {Case{"plate", Plate(0.5), 0}, Case{"thick plate", Plate(8), 0},
                           Case{"plate that widens", Plate(0.5), 0.03}, Case{"sheet", Sheet(), 0}})
    for (const i32 extra : {0, 1, 2}) {
      const bool inRoom = extra == 1;
      SCOPED_TRACE(std::string(each.name) + (inRoom ? " in a room " : " in the open ") +
                   std::to_string(extra));
      Sweep sweep(each.geometry, inRoom, extra);
      sweep.Frame(0, {-60, 0, 0});
      for (i32 i = 0; i < 300; ++i)
        sweep.Add({sweep.Between(-0.1, 0.2), sweep.Between(-0.3, 0.3), sweep.Between(-0.3, 0.3)});
      double x = -60;
      for (i32 frame = 1; frame <= 6; ++frame) {
        const double size = 1 + each.widens * frame;
        sweep.Frame(frame, {x += kStep, 0, 0}, {}, {1, size, size});
      }
      ASSERT_EQ(sweep.Store().Count(), 300);
      for (i32 i = 0; i < 300; ++i) {
        // Pushed to the speed of the plate it goes along before it.
        ASSERT_GT(sweep.Store().Positions()[i].x, x * 0.01 - 1e-9) << i;
        ASSERT_LT(sweep.Store().Positions()[i].x, (x + kStep + 9) * 0.01) << i;
        ASSERT_NEAR(sweep.Store().Velocities()[i].x, kStep * 0.25, 1e-6) << i;
      }
    }
}

TEST(MovingSolids, PressNothingIntoTheFloor) {
  const Threads one(1);
  host::ShapeArguments round, ground;
  round.radius = 30;  // its flank hangs over: the centre is at 20
  struct Case {
    const char* name;
    host::Geometry mover;
    double thickness, front;
  };
  for (const Case& each : {Case{"ball", host::MakeSphere(round), 4, 20},
                           Case{"ball", host::MakeSphere(round), 20, 20}})
    for (const i32 extra : {0, 1}) {
      SCOPED_TRACE(std::string(each.name) + " on " + std::to_string(each.thickness) + ", " +
                   std::to_string(extra));
      Sweep sweep(each.mover, false, extra);
      sweep.serverNode->Set(1012, Vec3d{0, -9.81, 0});
      ground.size = {200, each.thickness, 120};
      sweep.MakeObstacle(host::MakeBox(ground))
          .SetPlacement({0, each.thickness * -0.5, 0}, {}, {1, 1, 1});
      sweep.Frame(0, {-40, 20, 0});
      sweep.Add({0, 0.02, 0});
      for (i32 i = 0; i < 40; ++i)
        sweep.Add({sweep.Between(-0.05, 0.1), 0.02, sweep.Between(-0.25, 0.25)});
      for (i32 frame = 1; frame <= 36; ++frame) {
        const double x = -40 + 1.5 * frame;
        sweep.Frame(frame, {x, 20, 0});
        for (i32 i = 0; i < 41; ++i)
          ASSERT_GT(sweep.Store().Positions()[i].y, 0) << i << " in " << frame;
        // In the middle it has nowhere to go but ahead.
        ASSERT_GT(sweep.Store().Positions()[0].x, (x + each.front) * 0.01) << frame;
      }
    }
}

TEST(MovingSolids, PressNothingThroughAWallAlongTheFloor) {
  const Threads two(2);
  for (const double thickness : {1.0, 20.0})
    for (const i32 substeps : {1, 3}) {
      // A piston that stands on the floor, a little in it, comes a little into the wall.
      Sweep sweep(host::MakeBox({.size = {20, 40, 60}}), false, substeps);
      sweep.moverNode->Set(1013, i32{1});
      sweep.MakeObstacle(host::MakeBox({.size = {160, 20, 60}}))
          .SetPlacement({0, -10, 0}, {}, {1, 1, 1});
      sweep.MakeObstacle(host::MakeBox({.size = {thickness, 60, 60}}))
          .SetPlacement({50 + thickness / 2, 30, 0}, {}, {1, 1, 1});
      sweep.Frame(0, {-50, 19, 0});
      for (i32 i = 0; i < 60; ++i)
        sweep.Add(
            {sweep.Between(-0.2, 0.48), sweep.Between(0.01, 0.16), sweep.Between(-0.15, 0.15)});
      for (i32 frame = 1; frame <= 18; ++frame)
        sweep.Frame(frame, {-50 + frame * 92.0 / 18, 19, 0});
      for (const Vec3d& p : sweep.Store().Positions())
        EXPECT_FALSE(p.x > 0.5002 && std::abs(p.z) < 0.3 && p.y > -0.01)
            << p.x << " " << p.y << " " << p.z << " wall " << thickness;
    }
}

TEST(ThinBoxes, HoldWhatSlidesAlongTheirFloor) {
  const Threads two(2);
  // Walls of a fifth of a cell: their own floor is nearer than what lies beyond the next wall.
  host::Geometry box;
  for (const double side : {50.0, 51.0}) {
    host::Geometry part = host::MakeBox({.size = Vec3d{2, 1, 1} * side});
    const i32 first = static_cast<i32>(box.points.size());
    box.points.insert(box.points.end(), part.points.begin(), part.points.end());
    for (host::Polygon p : part.polygons) {
      if (side < 51) std::swap(p.b, p.d);
      box.polygons.push_back({p.a + first, p.b + first, p.c + first, p.d + first});
    }
  }
  Sweep sweep(std::move(box), false, 0);
  sweep.serverNode->Set(1012, Vec3d{0, -9.81, 0});
  sweep.Frame(0, {});
  for (i32 i = 0; i < 60; ++i)
    sweep.Add({sweep.Between(-0.3, 0.3), -0.24, sweep.Between(-0.15, 0.15)},
              {sweep.Between(-4, 4), 0, sweep.Between(-4, 4)});
  for (i32 frame = 1; frame <= 25; ++frame) sweep.Frame(frame, {});
  for (const Vec3d& p : sweep.Store().Positions())
    EXPECT_TRUE(std::abs(p.x) < 0.5 && std::abs(p.y) < 0.25 && std::abs(p.z) < 0.25)
        << p.x << " " << p.y << " " << p.z;
}

TEST(Sheets, HoldWhatIsPressedOntoThem) {
  const Threads two(2);
  for (const double stop : {10.0, 9.0}) {
    Sweep sweep(host::MakeBox({.size = {60, 20, 20}}), false, 1);
    sweep.moverNode->Set(1013, i32{1});
    sweep.MakeObstacle(host::MakePlane({.size = {160, 0, 60}}));
    sweep.Frame(0, {0, 30, 0});
    for (i32 i = 0; i < 60; ++i)
      sweep.Add({sweep.Between(-0.29, 0.29), 0.01, sweep.Between(-0.09, 0.09)});
    for (i32 frame = 1; frame <= 30; ++frame)
      sweep.Frame(frame, {0, std::max(stop, 30.0 - 2 * frame), 0});
    for (const Vec3d& p : sweep.Store().Positions()) EXPECT_GT(p.y, -1e-9) << stop;
  }
}

TEST(MovingSolids, PushWhatLiesInTheWayOfAnOar) {
  for (const bool inRoom : {false, true}) {
    Sweep sweep(Plate(0.5), inRoom, 1);
    constexpr double kTurn = 0.5;  // radians in a frame
    sweep.Frame(0, {0, 0, 0}, {0, 0, 0});
    // The plate stands across x and turns about y: what is at z > 0 and x > 0 comes into its way.
    const double sign = [&] {
      Sweep probe(Plate(0.5), false, 0);
      probe.Frame(0, {}, {0, 5, 0});
      return (probe.object->GlobalMatrix() * Vec3d{0, 0, 1}).x > 0 ? 1.0 : -1.0;
    }();
    std::vector<double> radii;
    for (i32 i = 0; i < 300; ++i) {
      const double angle = sign * sweep.Between(0.02, 0.9), radius = sweep.Between(0.05, 0.3);
      sweep.Add({radius * std::sin(angle), sweep.Between(-0.2, 0.2), radius * std::cos(angle)});
    }
    for (i32 frame = 1; frame <= 2; ++frame) {
      sweep.Frame(frame, {}, {0, sign * kTurn * frame * 180 / std::numbers::pi, 0});
      const double turned = sign * kTurn * frame;
      const Vec3d ahead{std::cos(turned) * sign, 0, -std::sin(turned) * sign};
      for (i32 i = 0; i < 300; ++i) {
        // Beyond the tip nothing is in the way of those that flew off.
        const Vec3d& p = sweep.Store().Positions()[i];
        if (std::hypot(p.x, p.z) < 0.34) {
          ASSERT_GT(Dot(ahead, p), 0.0024) << inRoom << frame << " " << i;
        }
      }
    }
  }
}

TEST(Sheets, StopParticlesFromBothSides) {
  for (const bool inRoom : {false, true}) {
    Sweep sweep(Sheet(), inRoom, 1);
    sweep.Frame(0, {});
    for (i32 i = 0; i < 100; ++i)
      for (const double side : {-1.0, 1.0})
        sweep.Add(
            {side * sweep.Between(0.01, 0.3), sweep.Between(-0.2, 0.2), sweep.Between(-0.2, 0.2)},
            {side * -8, 0.5, 0});
    std::vector<Vec3d> start(sweep.Store().Positions().begin(), sweep.Store().Positions().end());
    for (i32 frame = 1; frame <= 5; ++frame) sweep.Frame(frame, {});
    for (i32 i = 0; i < sweep.Store().Count(); ++i) {
      const Vec3d& p = sweep.Store().Positions()[i];
      ASSERT_GT(p.x * start[i].x, 0) << i;
      ASSERT_NEAR(p.x, 0, 0.002);
      // It has slid along all the while.
      ASSERT_NEAR(p.y - start[i].y, 5 * 0.04 * 0.5, 1e-9);
    }
  }
}

/// Particles over a floor, in a step of `ParticleMotion`.
struct Floor {
  TurnedBox box{{20, -2, 20}, {40, 4, 40}, 0, 0, kCellSize};
  MeshSolid solid{box.mesh, static_cast<f32>(kCellSize)};
  ParticleMotion motion;
  ParticleColumns particles;

  Floor(i32 integrator, i32 substeps, double step) {
    motion.volumes.emplace_back(solid);
    motion.integrator = integrator;
    motion.substeps = substeps;
    motion.step = step;
    motion.gravity = {0, -10, 0};
    motion.offset = 1e-6;
  }
  void Add(const Vec3d& p, const Vec3d& velocity) {
    ParticleTemplate particle;
    particle.position = p;
    particle.velocity = velocity;
    if (motion.integrator == ParticleMotion::kVerlet)
      particle.Set(property_id::kOldPosition, p - velocity * (motion.step / motion.substeps));
    particles.Append(particle);
  }
  void Step() {
    motion.RequireColumns(particles);
    MoveParticles(motion, particles, {0, particles.Count()}, 0);
  }
  const Vec3d& Place() const { return particles.Positions()[0]; }
};

TEST(Bounces, ReachHeightsByTheSquareOfTheRestitution) {
  for (const i32 integrator :
       {ParticleMotion::kEuler, ParticleMotion::kVerlet, ParticleMotion::kVelocityVerlet})
    for (const double e : {0.5, 0.8, 1.0})
      for (const i32 substeps : {1, 2, 5}) {
        Floor floor(integrator, substeps, 0.04);
        floor.motion.restitution = e;
        floor.Add({1, 1, 1}, {0.2, 0, 0});
        std::vector<double> peaks;
        double before = 2, last = 1;
        for (i32 i = 0; i < 90; ++i) {
          floor.Step();
          const double y = floor.Place().y;
          if (last > before && last >= y) peaks.push_back(last);
          before = std::exchange(last, y);
        }
        ASSERT_GE(peaks.size(), 3u) << e;
        // Of a parabola that is looked at every 0.04 s the top may be missed by 2 mm.
        for (i32 i = 0; i < 3; ++i)
          EXPECT_NEAR(peaks[i], std::pow(e, 2 * (i + 1)), 0.004) << e << " " << substeps;
        EXPECT_NEAR(floor.Place().x, 1 + 0.2 * 90 * 0.04, 1e-6)
            << "nothing slows it along the floor";
      }
}

TEST(Bounces, EndInRest) {
  for (const i32 integrator :
       {ParticleMotion::kEuler, ParticleMotion::kVerlet, ParticleMotion::kVelocityVerlet}) {
    Floor floor(integrator, 2, 0.04);
    floor.motion.restitution = 0.6;
    floor.Add({1, 0.3, 1}, {0.1, 0, 0});
    for (i32 i = 0; i < 60; ++i) floor.Step();
    const Vec3d there = floor.Place();
    floor.Step();
    EXPECT_NEAR(there.y, 0, 1e-5);
    EXPECT_NEAR(floor.Place().x - there.x, 0.1 * 0.04, 1e-9);
    EXPECT_NEAR(floor.Place().y, there.y, 1e-9);
    const double scale = integrator == ParticleMotion::kVerlet ? 0.02 : 1;
    EXPECT_NEAR(Length(floor.particles.Velocities()[0] - Vec3d{0.1 * scale, 0, 0}), 0, 1e-9);
  }
}

TEST(Slides, UseTheWholeStepHoweverItIsCut) {
  // A long fall onto a slope of 30 degrees within one step, in which it goes in deep.
  const TurnedBox slope({20, 10, 20}, {60, 6, 60}, std::numbers::pi / 6, 0, kCellSize);
  const MeshSolid solid(slope.mesh, static_cast<f32>(kCellSize));
  const Vec3d down = slope.axis[0] * -1.0, up = slope.axis[1];
  std::vector<Vec3d> ends;
  for (const i32 substeps : {1, 2, 4, 16}) {
    ParticleMotion motion;
    motion.volumes.emplace_back(solid);
    motion.substeps = substeps;
    motion.step = 0.04;
    motion.offset = 1e-6;
    ParticleColumns particles;
    ParticleTemplate particle;
    const Vec3d met = (slope.centre + up * 3.0) * kCellSize;
    particle.velocity = {0, -10, 0};
    particle.position = met - particle.velocity * 0.01;
    particles.Append(particle);
    motion.RequireColumns(particles);
    MoveParticles(motion, particles, {0, 1}, 0);
    ends.push_back(particles.Positions()[0]);
    const double slid = Dot(down, particle.velocity) * 0.03;
    EXPECT_NEAR(Length(ends.back() - (met + down * slid)), 0, 1e-4) << substeps;
    EXPECT_NEAR(Length(ends.back() - ends.front()), 0, 1e-4) << substeps;
  }
}

TEST(Bounces, OffAWallTakeWhatIsLeftOnceItLiesOnTheFloor) {
  Floor floor(ParticleMotion::kEuler, 1, 0.04);
  const TurnedBox wall({22, 3, 20}, {4, 20, 40}, 0, 0, kCellSize);
  const MeshSolid solid(wall.mesh, static_cast<f32>(kCellSize));
  floor.motion.volumes.emplace_back(solid);
  floor.motion.restitution = 0.4;
  // Halfway through the step it comes to lie; after four fifths it meets the wall at x = 1.
  floor.Add({1 - 0.8 * 0.04, 0.008, 1}, {1, 0, 0});
  floor.Step();
  EXPECT_NEAR(floor.Place().x, 1 - 0.2 * 0.04 * 0.4, 1e-4);
  EXPECT_NEAR(floor.Place().y, 0, 1e-4);
}

TEST(Particles, NeitherMoveNorAgeWithoutAFlowWithAGrid) {
  Sweep sweep(Plate(0.5), true, 0);
  sweep.moverNode->Set(ParticleAdvection::kMotionRow, i32{ParticleAdvection::kGrid});
  sweep.Frame(0, {-60, 0, 0});
  // Beyond the room, so that nothing is in it.
  ParticleTemplate particle;
  particle.position = {7, 0, 0};
  particle.Set(property_id::kAge, 2.0);
  sweep.Store().Create(particle);
  for (i32 frame = 1; frame <= 4; ++frame) sweep.Frame(frame, {-60, 0, 0});
  ASSERT_EQ(sweep.Store().Count(), 1);
  EXPECT_EQ(sweep.Store().At(0).GetAge(), 2);
  EXPECT_EQ(sweep.Store().Positions()[0], (Vec3d{7, 0, 0}));
  EXPECT_STREQ(
      dynamic_cast<iBase*>(sweep.scene->FindObject(sweep.moverNode, kListAll))->mInactiveReason,
      ParticleAdvection::kNoGridReason);
}

TEST(Drag, BringsWhatFliesToItsSpeedInTheFlow) {
  GridLayout layout, domain;
  domain.Set({1, 1, 1}, Vec3d{1, 1, 1} * (100.0 * kCellSize), static_cast<f32>(kCellSize), {});
  layout.Set({20, 40, 20}, Vec3d{20, 40, 20} * (100.0 * kCellSize), static_cast<f32>(kCellSize),
             {});
  EGrid<double> u(layout, kFaceX), v(layout, kFaceY), w(layout, kFaceZ);
  for (i32 i = 0; i < v.mCount; ++i) v[i] = 2;
  for (i32 i = 0; i < u.mCount; ++i) u[i] = 0.25;
  GridBoundary boundary;
  ASSERT_TRUE(boundary.Fit(domain, layout.simOrigin, layout.simMax));
  boundary.Build(1);
  for (const i32 substeps : {1, 4}) {
    ParticleMotion motion;
    motion.flows.emplace_back(StaggeredVelocity(u, v, w), boundary);
    motion.carries = false;
    motion.drag = 8;
    motion.gravity = {0, -10, 0};
    motion.step = 0.04;
    motion.substeps = substeps;
    ParticleColumns particles;
    ParticleTemplate particle;
    particle.position = {0.4, 0.3, 0.5};
    particles.Append(particle);
    motion.RequireColumns(particles);
    for (i32 i = 0; i < 20; ++i) MoveParticles(motion, particles, {0, 1}, 0);
    const double kept = std::exp(-8 * 0.8);
    const Vec3d wanted = Vec3d{0.25, 2 - 10 / 8.0, 0} * (1 - kept);
    EXPECT_NEAR(Length(particles.Velocities()[0] - wanted), 0, 1e-9) << substeps;
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
