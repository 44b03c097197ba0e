// Velocity of faces that lie closed inside solids.
#pragma once
#include <array>
#include <vector>

#include "fluids/fields/channel.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class FluidSolver;
class VolumeBase;

/// Gives closed faces the solid's velocity, or what slides along it.
class VelocityConstrain : public iObject {
 public:
  VelocityConstrain() { mPassCount = 2; }
  VelocityConstrain(const VelocityConstrain& other);
  bool ReadParameters(void* context = nullptr) override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override { Release(false); }

  FluidSolver* mSolver = nullptr;

 private:
  /// The new velocity of a closed face.
  struct ClosedFace {
    i32 axis;
    i32 index;
    double value;
  };
  void Compute(const EvaluationThreadData& data, i32 axis);
  double SolidFace(i32 axis, i32 x, i32 y, i32 z) const;
  Vec3d BodyVelocity(const Vec3d& p) const;

  std::vector<VolumeBase*> mBodies;
  bool mFollowObstacles = true;
  bool mUseBodyVelocity = false;
  double mBlend = 1.0;  ///< 0 sticks to the solid, 1 slides freely
  /// What pass 0 computed, by worker; pass 1 writes it. Open faces aren't touched.
  std::array<std::vector<ClosedFace>, host::kMaxWorkers> mFaces;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
