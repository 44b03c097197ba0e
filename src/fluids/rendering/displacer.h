// Sample points that lag behind or run ahead of the flow.
#pragma once
#include <array>
#include <optional>

#include "fluids/fields/trace_path.h"
#include "fluids/rendering/gas_look.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
class Flow;
}

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Moves points (simulation units) before a field is read at them.
class Displacer {
 public:
  /// The point at which the smoke is read, and that of the fire.
  using Points = std::array<Vec3d, 2>;
  virtual ~Displacer() = default;
  /// Takes the source of the motion, and the amounts; without `amounts` they stay.
  virtual void Set(const MELDO_SULVA::Flow* flow, const DisplacementSettings* amounts) = 0;
  virtual void Displace(Points& points) const = 0;
  virtual Vec3d DisplaceBy(const Vec3d& point, double amount) const = 0;
  virtual Vec3d DisplaceFirst(const Vec3d& point) const = 0;
};

/// Traces points back along a flow (Heun) by an amount of seconds.
class VelocityGridDisplacer : public Displacer {
 public:
  void Set(const MELDO_SULVA::Flow* flow, const DisplacementSettings* amounts) override;
  void Displace(Points& points) const override;
  Vec3d DisplaceBy(const Vec3d& point, double amount) const override;
  Vec3d DisplaceFirst(const Vec3d& point) const override;

  bool mEnabled = false;
  const MELDO_SULVA::Flow* mFlow = nullptr;
  f32 mAmount = 0;      ///< seconds, of the first point
  f32 mAmount2 = 0;     ///< seconds, of the second point
  bool mSingle = true;  ///< both points go the same way

 private:
  std::optional<MELDO_SULVA::StaggeredVelocity> mVelocity;
  const GridLayout* mLayout = nullptr;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
