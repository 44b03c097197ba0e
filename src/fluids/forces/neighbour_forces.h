// Forces between particles that are near each other.
#pragma once
#include <vector>

#include "fluids/forces/force.h"
#include "fluids/particles/point_tree.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A particle as another one sees it.
struct SeenNeighbour {
  Vec3d offset{};    ///< from the one that looks, simulation units
  Vec3d velocity{};  ///< against the one that looks, simulation units a second
  double distance = 0;
};

/// dv = dt w s mean(Pull(j)), over the nearest 72 living particles j of the same group and kind
/// within a radius, with the weight w of the particle and the strength s; nothing where none is
/// near. The class `Law` has `Pull(const SeenNeighbour&)`, what one of them gives.
template <class Law>
class NeighbourForce : public ForceOf<Law> {
 public:
  using ForceOf<Law>::ForceOf;
  static constexpr i32 kStrengthRow = 1000, kDurationRow = 1001, kRadiusRow = 1003;
  bool ActsOnParticles() const override { return true; }
  bool AsksNeighbours() const override { return true; }

  bool ActsOn(const ForceSample& sample) const {
    return sample.particles && sample.around && sample.around->tree;
  }
  double Scale(double weight) const { return this->mTime->stepDuration * weight * this->mWeight; }
  bool IsAlikeInRows() const { return false; }
  void Push(ForceSample& sample, double s) const;
  void Push(const ForceRow& /*row*/, double /*s*/) const {}

 protected:
  bool PrepareForce() override;
  /// The rows of all laws; a strength has its own unit and sense in each.
  static host::ParameterTable Rows(std::string_view unit, std::string_view strengthHelp);

 private:
  double mStrength = 80;
  double mRadiusCells = 1;
  mutable std::vector<NeighbourBuffer> mBuffers;  ///< one for each worker
};

/// Turns particles to the mean velocity of those about them.
class Force_Alignment : public NeighbourForce<Force_Alignment> {
 public:
  using NeighbourForce::NeighbourForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static Vec3d Pull(const SeenNeighbour& other) { return other.velocity; }
};

/// Draws particles to the mean position of those about them.
class Force_Cohesion : public NeighbourForce<Force_Cohesion> {
 public:
  using NeighbourForce::NeighbourForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static Vec3d Pull(const SeenNeighbour& other) { return other.offset; }
};

/// Drives particles from each other, however near they are.
class Force_Separation : public NeighbourForce<Force_Separation> {
 public:
  using NeighbourForce::NeighbourForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  /// The direction to the other one; those in the same place have none.
  static Vec3d Pull(const SeenNeighbour& other) {
    return other.distance > 0 ? other.offset / other.distance : Vec3d{};
  }
};

extern template class NeighbourForce<Force_Alignment>;
extern template class NeighbourForce<Force_Cohesion>;
extern template class NeighbourForce<Force_Separation>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
