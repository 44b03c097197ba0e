// Forces: what velocity change does this step add at a point?
#pragma once
#include <array>

#include "fluids/channels/channel.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The record that a force reads and adds to; one serves a whole loop, refilled for every cell.
struct ForceSample {
  u32 worker = 0;                   ///< index of the calling worker
  i32 particleMode = 0;             ///< 0 for a grid cell, else a particle
  i32 cellIndex = 0;                ///< linear index in a centred grid of the solver
  std::array<i32, 3> faceIndex{};   ///< index of the cell's low face in the u, v, w grids
  std::array<double, 3> fraction{}; ///< open fractions of the three low faces
  double weight = 1.0;
  Vec3d position{};                 ///< cell centre, simulation units
  Vec3d force{};                    ///< accumulator, a velocity change in simulation units per second
  Vec3d hostPosition{};             ///< cell centre, host units
};

/// The frame of every force: links, time window, constraints. What a force adds is already a
/// velocity change: the step length is applied inside.
class Force : public iObject {
 public:
  using iObject::iObject;
  Force() = default;
  Force(const Force&) = default;
  i32 GetListIndex() const override { return kListForces; }
  bool ResolveLinks() override;
  void ClearLinks() override;
  /// Takes the solver's `VelocityField*` and `GridBoundary*`.
  bool Attach(void* velocity, void* boundary) override;
  void Prepare(void* context = nullptr) override;
  void Finish() override;

  using iObject::Evaluate;
  /// Adds to `sample.force`; nothing without `FLAG_ACTIVE`. Runs on all workers at once.
  virtual void Evaluate(ForceSample& sample) = 0;

 protected:
  /// Class work of `Prepare`; false leaves the force inactive.
  virtual bool PrepareForce() { return true; }
  virtual void FinishForce() {}

  VelocityField* mVelocity = nullptr;
  ConstraintList mConstraints;
  Duration* mDuration = nullptr;
  double mWeight = 1.0;  ///< 1, or the window's weight in this step
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
