// The curl of what constraints measure.
#pragma once
#include <array>

#include "fluids/forces/field_force.h"
#include "fluids/forces/nearby_solids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// du = dt w s curl(psi), with the weight w of the place and the strength s: curl noise (Bridson,
/// Houriham and Nordenstam 2007). The three potentials psi are what the constraints leave of 1 at
/// three places far apart, less their mean near solids, and fade to 0 there, odd across the
/// surface: so the field, which is free of divergence, goes along walls and never through flat
/// ones. What is taken off changes no curl elsewhere; left in, its fade would be a wind along walls.
///
/// Derivatives are differences over twice the spacing. On a lattice of that spacing the divergence
/// that its faces see is 0 but for roundings, wherever all six of them are open.
class Force_Curl : public FieldForce {
 public:
  using FieldForce::FieldForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kStrengthRow = 1000, kSpacingRow = 1003, kFadeRow = 1004;
  /// How far the places of the potentials are off along every axis, host units.
  static constexpr std::array<double, 3> kOffsets = {931.43, 223.4, 454.32};

 protected:
  void Open() override;
  bool PrepareForce() override;
  void FinishForce() override { mSolids = {}; }
  void AddField(const FieldPoints& points) const override;
  bool WeighsByConstraints() const override { return false; }

 private:
  /// The points of a run, moved by the spacing along an axis, and what solids leave of potentials
  /// there.
  struct Shifted {
    std::array<Vec3d, kRun> positions;
    std::array<double, kRun> share;
  };
  void Shift(const FieldPoints& points, i32 axis, double way, Shifted& out) const;
  /// What `mMeans` are: of the potentials, by what the fade takes of them.
  void FindMeans();
  /// What the constraints leave of 1 at some places, moved to those of a potential.
  void Ask(i32 which, std::span<const Vec3d> positions, u32 worker, double* out) const;
  /// A potential at shifted points.
  void Potential(i32 which, const Shifted& at, std::size_t count, u32 worker, double* out) const;

  double mStrength = 1, mSpacing = 1, mFade = 3;  ///< cells

  // For one step, simulation units.
  double mPush = 0, mStep = 0, mFadeLength = 0;
  std::array<Vec3d, 3> mPlaces{};
  std::array<double, 3> mMeans{};
  NearbySolids mSolids;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
