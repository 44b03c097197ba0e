// Bodies that the pressure moves while they push the fluid.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "host/matrix.h"
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class BodyState;

/// What a body's velocities add to the balance of a cell: the area of the body's faces there, each
/// with its direction, in faces of a cell, and their moments about its centre of mass.
struct BodyRow {
  i32 cell = 0;
  Vec3d area{};
  Vec3d moment{};  ///< simulation units
  double Of(const Vec3d& linear, const Vec3d& angular) const {
    return Dot(area, linear) + Dot(moment, angular);
  }
};

/// The coupling of pressure and rigid bodies (Batty, Bertails and Bridson 2007, section 5).
///
/// A body with the velocities V = (v, w) adds J_c . V / h to the balance of cell c, J_c being the
/// area and moment of its faces there. Pressure p presses with the force and torque -h^2 sum p_c
/// J_c, the transpose of that, so that no work is lost, and in a step it changes V by what that
/// impulse over mass and inertia is. Pressures stand at centres of cells, so that fluid between
/// these and the body moves with it: it is bound to the body, and counts in M and V. So the
/// balance, with the velocities that bodies have without pressure, gets the matrix dt h J M^-1 J^T,
/// symmetric, of rank 6 for each body.
class BodyCoupling {
 public:
  void Clear() { mBodies.clear(); }
  bool IsEmpty() const { return mBodies.empty(); }
  /// A body, with the cells that it touches to come. Returns its number.
  i32 Add(BodyState& body);
  std::vector<BodyRow>& Rows(i32 body) { return mBodies[body].rows; }
  std::span<const BodyRow> Rows(i32 body) const { return mBodies[body].rows; }
  i32 Count() const { return static_cast<i32>(mBodies.size()); }
  /// Drops the rows of cells whose entry on the diagonal is 0, and takes scale and step.
  void Close(const double* diagonal, double cellSize, double dt);
  /// Fluid of this mass along each axis moves with a body, and brings this momentum, where the body
  /// moves at `own` without the pressure. Its weight and inertia count with the body's, in place of
  /// what was bound before.
  void Bind(i32 body, const Vec3d& mass, const Vec3d& momentum, const Vec3d& own);
  /// What pressures do that rise along each axis, beside moving the body and what is bound along
  /// it: times the velocity from which they bring it there, pushes in kg and turns in kg times
  /// simulation units. They would bring it from `before` to `guess`. To be called behind `Bind`.
  struct Skew {
    std::array<Vec3d, 3> push{}, turn{};
    Vec3d before{}, guess{};
  };
  void Straighten(i32 body, const Skew& skew);
  /// What that changes of the velocities that a body has without pressure.
  void BoundChange(i32 body, Vec3d& linear, Vec3d& angular) const;
  /// The part of an impulse on a body and the fluid bound to it that the body gets.
  void TakeOwnPart(i32 body, Vec3d& impulse, Vec3d& turn) const;
  /// z += dt h J M^-1 J^T s; returns s times what was added. In the order of bodies and rows.
  double AddProduct(const double* s, double* z) const;
  /// What the pressure of a step does to a body, in newton seconds and their moments.
  void ImpulseOf(i32 body, const double* pressure, Vec3d& linear, Vec3d& angular) const;
  /// The velocities that an impulse changes.
  void Answer(i32 body, const Vec3d& impulse, const Vec3d& turn, Vec3d& linear,
              Vec3d& angular) const;
  BodyState& Of(i32 body) const { return *mBodies[body].state; }

 private:
  struct Body {
    BodyState* state;
    Vec3d ownInverseMass;
    Vec3d inverseMass;  ///< with what is bound
    Matrix inverseInertia;
    std::vector<BodyRow> rows;
    Vec3d boundExcess{};  ///< momentum beyond what it has at the body's velocity
    Vec3d inert{};        ///< of the mass that is bound, what counts while the pressure acts
    Vec3d ownVelocity{};
    Skew skew{};
  };
  /// What a body gets of its skew if the pressure brings it to a velocity.
  static void Straightened(const Skew& skew, const Vec3d& velocity, Vec3d& push, Vec3d& turn);
  std::vector<Body> mBodies;
  double mScale = 0;  ///< dt h
  double mPress = 0;  ///< dt h^2
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
