// Objects at particles.
#pragma once
#include <vector>

#include "fluids/operators/particle_operator.h"
#include "grids/grid_memory.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Places a copy of an object at each particle, behind all substeps: with a size and a turn that
/// belong to the particle as long as it lives.
///
/// Its node is the polygon object that holds the copies: files, pictures and mesh nodes name it as
/// any other. Copies have the velocity of their particles, and its colour where it has one.
class POP_Geometry : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kObjectRow = 1001, kDurationRow = 1003, kKindRow = 1005, kScaleRow = 1007,
                       kRandomZRow = 1008, kRotationRow = 1009, kRandomRotationRow = 1010,
                       kScaledByRow = 1013, kUniformRow = 1018, kRandomXRow = 1019,
                       kRandomYRow = 1020, kSourceRow = 1021;
  enum Source : i32 { kFromPosition = 0, kFromEllipsoid = 1, kFromDeformed = 2 };
  /// Where the copy of a particle stands, host units; id -1 for one that has none.
  struct Instance {
    Matrix place;
    i32 id = -1;
  };
  /// With others that draw alike.
  bool CommutesWith(const iBase& other) const override {
    const auto* copies = dynamic_cast<const POP_Geometry*>(&other);
    return copies && copies->mUniform == mUniform;
  }
  void Reset() override;
  void Release(bool full) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  /// By row of the particles, as they stood when it worked last.
  const std::vector<Instance>& Instances() const { return mInstances; }

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;
  bool ShowsParticles() const override { return true; }

 private:
  void Place(ParticleStore& store, i32 row, u32 worker);
  Vec3d DrawInto(PropertyColumn<Vec3d>& column, i32 row, i32 id, u64 purpose) const;
  host::Geometry Copies() const;
  void Write(host::Geometry geometry);

  host::PolygonObject* mObject = nullptr;
  i32 mSource = kFromPosition;
  Vec3d mScale{1, 1, 1}, mRotation{}, mRandomRotation{};  ///< turns in degrees
  double mRandomX = 0, mRandomY = 0, mRandomZ = 0;
  bool mUniform = true;
  ConstraintList mScaledBy;

  std::vector<Instance> mInstances;
  // For one frame.
  PropertyColumn<Vec3d>*mScales = nullptr, *mTurns = nullptr;
  const PropertyColumn<Vec3d>* mPlaces = nullptr;  ///< null for the positions
  u64 mSeed = 0;
  CountedMemory mHeld;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
