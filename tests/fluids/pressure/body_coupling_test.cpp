// Bodies that the pressure of a projection moves.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <utility>

#include "free_body.h"
#include "projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using projection::Box;

namespace {

constexpr f32 kBoxCell = 0.1f;
constexpr double kWaterDensity = 1000;

/// A ball of fluid-like stuff in the middle of a box of fluid.
struct BallInBox {
  std::unique_ptr<projection::FormulaVolume> ball;
  Box box;
  FreeBody body;
  Vec3d centre;
  double volume;

  BallInBox(i32 cells, double radius, u8 walls, i32 solver, const Vec3d& at)
      : ball(projection::Ball(at, radius, kBoxCell)),
        box({cells, cells, cells}, kBoxCell, walls, {ball.get()}),
        centre(at * double{kBoxCell}),
        volume(4.0 / 3 * M_PI * std::pow(radius * kBoxCell, 3)) {
    box.projection.mLinearSolver = solver;
    box.projection.mDensity = kWaterDensity;
    for (LatticeSolver* linear : {static_cast<LatticeSolver*>(&box.projection.mCG),
                                  static_cast<LatticeSolver*>(&box.projection.mMultigrid)})
      linear->mAccuracy.tolerance = 1e-11;
    body.mass = volume * kWaterDensity;
    body.inertia = 0.4 * body.mass * std::pow(radius * kBoxCell, 2);
  }
  void Project() {
    box.projection.moving = {{ball.get(), centre, body.linear, body.angular, 0, &body}};
    box.Project();
  }
};

}  // namespace

// What starts to move in still fluid drags half of its own volume along (Lamb 1932, section 92);
// the far walls of this box are open.
TEST(BodyCoupling, ABallCarriesItsAddedMass) {
  for (const i32 solver : {0, 2})
    for (const double heavy : {0.2, 1.0, 5.0}) {
      BallInBox rig(46, 6, 0, solver, {23.1, 22.8, 23.3});
      rig.body.mass *= heavy;
      rig.body.linear = {1, 0.5, -0.3};
      rig.Project();
      Vec3d v, w;
      rig.body.GetFlowVelocities(v, w);
      const double kept = heavy / (heavy + 0.5);
      for (int a = 0; a < 3; ++a)
        EXPECT_NEAR(v[a], kept * rig.body.linear[a], 0.03 * std::fabs(rig.body.linear[a]))
            << solver << " " << heavy;
      EXPECT_LT(rig.box.projection.DivergenceMax(), 1e-6);
    }
}

// A ball as heavy as the fluid falls with it: no face of it presses. Gauss-Seidel hands over.
TEST(BodyCoupling, WhatIsAsHeavyAsTheFluidFallsWithIt) {
  for (const i32 solver : {0, 1, 2}) {
    BallInBox rig(20, 4.3, 0, solver, {10.2, 9.7, 10});
    const Vec3d fall{0.1, -0.4, 0.2};
    rig.body.linear = fall;
    for (i32 axis = 0; axis < 3; ++axis) rig.box.velocity[axis]->Fill(fall[axis]);
    rig.Project();
    EXPECT_LT(Length(rig.body.impulse), 1e-6 * rig.body.mass * Length(fall)) << solver;
    EXPECT_LT(rig.box.projection.DivergenceMax(), 1e-6) << solver;
  }
}

// In a closed box of fluid at rest that starts to fall, a ball of another density gets the weight
// of what it displaces, from whatever side gravity comes, and none of it turns it.
TEST(BodyCoupling, AClosedBoxGivesBuoyancy) {
  for (const Vec3d& fall : {Vec3d{0, -0.4, 0}, Vec3d{0.3, 0.1, -0.2}}) {
    BallInBox rig(20, 4.3, kWallsAll, 2, {10.2, 9.7, 10});
    rig.body.mass *= 1e9;
    rig.body.inertia *= 1e9;
    for (i32 axis = 0; axis < 3; ++axis) rig.box.velocity[axis]->Fill(fall[axis]);
    rig.Project();
    // By the faces that it closes, which hold 2 % less than the ball.
    Vec3d closed{};
    for (i32 axis = 0; axis < 3; ++axis)
      rig.box.ForEachInnerCell([&](i32 i, i32 j, i32 k) {
        closed[axis] += 1 - (*rig.box.fractions.GetRead(axis, 1))(i, j, k);
      });
    const double cell = double{kBoxCell} * kBoxCell * kBoxCell;
    // A closed side counts with the faces of the box.
    const double sides = 18 * 18;
    const Vec3d exact = fall * (closed - Vec3d{sides, sides, sides}) * (-cell * kWaterDensity);
    EXPECT_NEAR(Length(exact), Length(fall) * rig.volume * kWaterDensity, 0.04 * Length(exact));
    EXPECT_LT(Length(rig.body.impulse - exact), 1e-4 * Length(exact));
    EXPECT_LT(Length(rig.body.turn), 1e-3 * Length(exact) * 4.3 * kBoxCell);
  }
}

// Of a body whose own volume is known, the fluid between it and the centres of cells, and what the
// lattice misses of it, count: the weight is that of the fluid in its place on any lattice.
TEST(BodyCoupling, BuoyancyIsThatOfTheBodysOwnVolume) {
  const Vec3d fall{0.1, -0.4, 0.2};
  for (const double radius : {2.2, 4.3})
    for (const double heavy : {1.0, 1e9}) {
      BallInBox rig(20, radius, kWallsAll, 2, {10.2, 9.7, 10});
      rig.body.mass *= heavy;
      rig.body.inertia *= heavy;
      rig.body.density = rig.body.mass / rig.volume;
      if (heavy == 1) rig.body.linear = fall;
      for (i32 axis = 0; axis < 3; ++axis) rig.box.velocity[axis]->Fill(fall[axis]);
      rig.Project();
      const Vec3d weight = fall * (-rig.volume * kWaterDensity);
      EXPECT_LT(Length(rig.body.impulse - weight), 1e-5 * Length(weight)) << radius << " " << heavy;
    }
}

// Nor does an evenly rising pressure turn a box, wherever its sides stand to the lattice.
TEST(BodyCoupling, BuoyancyDoesNotTurnABoxBetweenCells) {
  const VecInt3D cells{20, 20, 20};
  const Vec3d middle{10.3, 9.7, 10.1}, half{3.1, 2.6, 3.8}, fall{0.1, -0.4, 0.2};
  const projection::FormulaVolume shape(
      projection::MakeLayout(cells, kBoxCell), [&](const Vec3d& p) {
        double distance = -HUGE_VAL;
        for (int a = 0; a < 3; ++a)
          distance = std::max(distance, std::fabs(p[a] / kBoxCell - middle[a]) - half[a]);
        return distance * kBoxCell;
      });
  const double mass = 8 * half.x * half.y * half.z * std::pow(kBoxCell, 3) * kWaterDensity;
  const double weight = Length(fall) * mass;
  const auto press = [&](double density) {
    Box box(cells, kBoxCell, kWallsAll, {const_cast<projection::FormulaVolume*>(&shape)});
    box.projection.mDensity = kWaterDensity;
    box.projection.mLinearSolver = 2;
    box.projection.mMultigrid.mAccuracy.tolerance = 1e-11;
    for (i32 axis = 0; axis < 3; ++axis) box.velocity[axis]->Fill(fall[axis]);
    FreeBody body;
    body.mass = mass;
    body.density = density;
    body.inertia = mass * 0.05;
    // It rests, and falls as the fluid would.
    box.projection.moving = {{&shape, middle * double{kBoxCell}, fall, {}, 0, &body}};
    box.Project();
    return body;
  };
  const FreeBody body = press(kWaterDensity);
  EXPECT_LT(Length(body.turn), 1e-4 * weight * kBoxCell);
  EXPECT_LT(Length(body.impulse + fall * mass), 1e-4 * weight);
  // Where it isn't known how much of the lattice's body is its own.
  EXPECT_GT(Length(press(0).turn), 0.02 * weight * kBoxCell);
}

// What is projected already stays as it is, wherever a surface lies between centres of cells: no
// body drives itself on, and none is braked.
TEST(BodyCoupling, ASecondProjectionChangesNothing) {
  const VecInt3D cells{18, 18, 18};
  const Vec3d middle{9, 9, 9}, thrown{0.2, 1, -0.1};
  struct Shape {
    const char* name;
    double volume;  ///< cells
    std::function<double(const Vec3d&)> distance;
  };
  const auto cube = [](double size, double angle) {
    return [=](const Vec3d& p) {
      const double x = std::cos(angle) * p.x + std::sin(angle) * p.y;
      const double y = std::cos(angle) * p.y - std::sin(angle) * p.x;
      return std::max({std::fabs(x), std::fabs(y), std::fabs(p.z)}) - size / 2;
    };
  };
  const Shape shapes[] = {
      {"ball", 4.0 / 3 * M_PI * 8, [](const Vec3d& p) { return Length(p) - 2; }},
      {"cube", 64, cube(4, 0)},
      {"cube inside of its faces", std::pow(3.7, 3), cube(3.7, 0)},
      {"cube outside of its faces", std::pow(4.3, 3), cube(4.3, 0)},
      {"turned cube", 64, cube(4, M_PI / 6)}};
  for (const Shape& shape : shapes)
    for (const double heavy : {0.3, 1.0, 3.0}) {
      projection::FormulaVolume solid(
          projection::MakeLayout(cells, kBoxCell),
          [&](const Vec3d& p) { return shape.distance(p / kBoxCell - middle) * kBoxCell; });
      Box box(cells, kBoxCell, kWallsAll, {&solid});
      box.projection.mDensity = kWaterDensity;
      box.projection.mLinearSolver = 2;
      box.projection.mMultigrid.mAccuracy.tolerance = 1e-11;
      FreeBody body;
      body.density = heavy * kWaterDensity;
      body.mass = shape.volume * std::pow(kBoxCell, 3) * body.density;
      body.inertia = body.mass * 0.03;
      body.linear = thrown;
      const auto project = [&] {
        box.projection.moving = {
            {&solid, middle * double{kBoxCell}, body.linear, body.angular, 0, &body}};
        box.Project();
        body.GetFlowVelocities(body.linear, body.angular);
        return Length(std::exchange(body.impulse, {})) / body.mass;
      };
      EXPECT_GT(project(), 0.05) << shape.name << " " << heavy;
      const Vec3d spin = body.angular;
      body.turn = {};
      EXPECT_LT(project(), 1e-6) << shape.name << " " << heavy;
      EXPECT_LT(Length(body.angular - spin) * 2 * kBoxCell, 1e-6) << shape.name << " " << heavy;
    }
}

// Where fluid lets go of a wall, one projection finds what is bound several times.
TEST(BodyCoupling, WhatIsBoundAnewTakesThePlaceOfWhatWasBound) {
  const Vec3d motion{0.1, -1.2, -0.1}, before{0, -0.3, 0}, push{3, 4, 5};
  FreeBody body;
  body.mass = 2;
  BodyCoupling once, twice;
  for (BodyCoupling* coupling : {&once, &twice}) coupling->Add(body);
  twice.Bind(0, {7, 0.5, -0.8}, motion * 3, before * 2);
  for (BodyCoupling* coupling : {&once, &twice}) coupling->Bind(0, {1, 3, -0.5}, motion, before);
  const auto own = [](const BodyCoupling& coupling, Vec3d impulse) {
    Vec3d turn{};
    coupling.TakeOwnPart(0, impulse, turn);
    return impulse;
  };
  Vec3d changes[2], turns[2];
  once.BoundChange(0, changes[0], turns[0]);
  twice.BoundChange(0, changes[1], turns[1]);
  EXPECT_EQ(changes[1], changes[0]);
  EXPECT_EQ(own(twice, push), own(once, push));
  // The body and its fluid move as one: of a push the body gets its share of the mass.
  const Vec3d still = own(once, {}), share = (own(once, push) - still) / 2.0;
  EXPECT_NEAR(share.x, 3.0 / (2 + 1), 1e-12);
  EXPECT_NEAR(share.y, 4.0 / (2 + 3), 1e-12);
  EXPECT_NEAR(share.z, 5.0 / (2 - 0.5), 1e-12);
}

// A piston in a closed tube moves as far as what it presses out of one side fits into the other:
// here not at all, whatever it weighs.
TEST(BodyCoupling, APistonInASealedTubeIsHeld) {
  const VecInt3D cells{20, 8, 8};
  projection::FormulaVolume piston(projection::MakeLayout(cells, kBoxCell), [](const Vec3d& p) {
    return std::fabs(p.x / kBoxCell - 10.3) * kBoxCell - 2 * kBoxCell;
  });
  Box box(cells, kBoxCell, kWallsAll, {&piston});
  box.projection.mDensity = kWaterDensity;
  box.projection.mLinearSolver = 2;
  box.projection.mMultigrid.mAccuracy.tolerance = 1e-12;
  FreeBody body;
  body.mass = 50;
  body.inertia = 1e6;
  body.linear = {0.7, 0, 0};
  box.projection.moving = {{&piston, Vec3d{1.03, 0.4, 0.4}, body.linear, {}, 0, &body}};
  box.Project();
  Vec3d v, w;
  body.GetFlowVelocities(v, w);
  EXPECT_LT(std::fabs(v.x), 1e-5);
  EXPECT_LT(box.LargestDivergence(), 1e-4);
}
