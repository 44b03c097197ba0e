#include "fluids/pressure/body_coupling.h"

#include <algorithm>

#include "framework/body_state.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

i32 BodyCoupling::Add(BodyState& body) {
  const Vec3d inverseMass = body.FlowInverseMass();
  mBodies.push_back({.state = &body,
                     .ownInverseMass = inverseMass,
                     .inverseMass = inverseMass,
                     .inverseInertia = body.FlowInverseInertia(),
                     .rows = {}});
  return Count() - 1;
}

void BodyCoupling::Close(const double* diagonal, double cellSize, double dt) {
  mScale = dt * cellSize;
  mPress = dt * cellSize * cellSize;
  for (Body& body : mBodies)
    std::erase_if(body.rows, [&](const BodyRow& row) { return diagonal[row.cell] == 0; });
}

void BodyCoupling::Answer(i32 body, const Vec3d& impulse, const Vec3d& turn, Vec3d& linear,
                          Vec3d& angular) const {
  linear = impulse * mBodies[body].inverseMass;
  angular = mBodies[body].inverseInertia.Rotate(turn);
}

void BodyCoupling::Bind(i32 body, const Vec3d& mass, const Vec3d& momentum, const Vec3d& own) {
  constexpr double kLeast =
      0.5;  // of a body's mass: what the lattice doesn't see of it may be more
  Body& b = mBodies[body];
  for (int a = 0; a < 3; ++a) {
    const double inverse = b.ownInverseMass[a];
    b.inert[a] = inverse > 0 ? std::max(mass[a], (kLeast - 1) / inverse) : mass[a];
    b.inverseMass[a] = inverse > 0 ? 1 / (1 / inverse + b.inert[a]) : 0;
  }
  b.boundExcess = momentum - mass * own;
  b.ownVelocity = own;
  b.skew = {};
}

void BodyCoupling::Straightened(const Skew& skew, const Vec3d& velocity, Vec3d& push, Vec3d& turn) {
  push = turn = {};
  const Vec3d change = skew.before - velocity;
  for (int axis = 0; axis < 3; ++axis) {
    push += skew.push[axis] * change[axis];
    turn += skew.turn[axis] * change[axis];
  }
}

void BodyCoupling::Straighten(i32 body, const Skew& skew) {
  Body& b = mBodies[body];
  b.skew = skew;
  Vec3d push, turn;
  Straightened(skew, skew.guess, push, turn);
  b.boundExcess += push;
}

void BodyCoupling::BoundChange(i32 body, Vec3d& linear, Vec3d& angular) const {
  const Body& b = mBodies[body];
  Vec3d push, turn;
  Straightened(b.skew, b.skew.guess, push, turn);
  linear = b.boundExcess * b.inverseMass;
  angular = b.inverseInertia.Rotate(turn);
}

void BodyCoupling::TakeOwnPart(i32 body, Vec3d& impulse, Vec3d& turn) const {
  const Body& b = mBodies[body];
  const Vec3d change = (b.boundExcess + impulse) * b.inverseMass;
  Vec3d guessed, push, none, straight;
  Straightened(b.skew, b.skew.guess, guessed, none);
  Straightened(b.skew, b.ownVelocity + change, push, straight);
  impulse += b.boundExcess - b.inert * change + (push - guessed);
  turn += straight;
}

double BodyCoupling::AddProduct(const double* s, double* z) const {
  double product = 0;
  for (i32 b = 0; b < Count(); ++b) {
    Vec3d force{}, torque{}, linear, angular;
    for (const BodyRow& row : mBodies[b].rows) {
      force += row.area * s[row.cell];
      torque += row.moment * s[row.cell];
    }
    Answer(b, force, torque, linear, angular);
    linear *= mScale;
    angular *= mScale;
    for (const BodyRow& row : mBodies[b].rows) z[row.cell] += row.Of(linear, angular);
    product += Dot(force, linear) + Dot(torque, angular);
  }
  return product;
}

void BodyCoupling::ImpulseOf(i32 body, const double* pressure, Vec3d& linear,
                             Vec3d& angular) const {
  linear = angular = {};
  for (const BodyRow& row : mBodies[body].rows) {
    linear -= row.area * (pressure[row.cell] * mPress);
    angular -= row.moment * (pressure[row.cell] * mPress);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
