// Particles between groups and objects of the scene.
#pragma once
#include <vector>

#include "exchange/particles_object.h"
#include "fluids/operators/particle_operator.h"
#include "fluids/particles/particle_property.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Hands the particles of a group over to an object of particles, or those of such an object to a
/// group: places, velocities, radii, lives, colours and whatever properties it names. What the
/// target hasn't got is made; what the source hasn't got any more leaves it.
///
/// An object that takes particles is one that no file fills: it shows them in host units, in its
/// own axes, to whatever reads objects, in this server or in another one.
class ParticleConverter : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSourceRow = 1000, kSourceKindRow = 1001, kTargetRow = 1002,
                       kTargetKindRow = 1003, kKeepIdsRow = 1005, kRemoveRow = 1006,
                       kDurationRow = 1007, kPlaceBlendRow = 1008, kVelocityBlendRow = 1009,
                       kRadiusFactorRow = 1010, kLifeFactorRow = 1011, kColourRow = 1012,
                       kColourBlendRow = 1013, kPropertiesRow = 1014, kOnceRow = 1019;
  static constexpr const char* kNoPairReason =
      "one of its 'source' and 'target' has to be a group, the other one an object";
  static constexpr const char* kHeldReason =
      "its target holds what the scene or a file says; an object of the type 'particles' without a "
      "file takes particles";
  void Reset() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Persist(StateArchive& archive) override;

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;

 private:
  /// A property that goes over: what it is called on either side, and what becomes of its value.
  struct Carried {
    PropertyKey from, to;
    std::string name;
    double factor = 1;
    double blend = 1;  ///< how much of the way to the source's value a target goes in a step
  };
  /// A particle of the source and the one of the target that it is, by rows.
  struct Pair {
    i32 from, to;
    double weight;  ///< 0 for one that stays as it is
    bool isNew;
  };

  static constexpr double kDead = -1;  ///< in place of a weight

  void Open(const host::PointsObject& object);
  std::vector<Pair> MatchParticles() const;
  void RemoveMissing(const std::vector<Pair>& pairs);
  /// False where there is no room for them.
  bool MakeMissing(std::vector<Pair>& pairs);
  void CarryAll(const std::vector<Pair>& pairs);
  template <class T>
  void Carry(const Carried& property, const std::vector<Pair>& pairs);
  void Show();

  ParticleGroup *mSourceGroup = nullptr, *mTargetGroup = nullptr;
  host::PointsObject *mSourcePoints = nullptr, *mTargetPoints = nullptr;
  i32 mSourceKind = kPassive, mTargetKind = kPassive;
  bool mKeepsIds = true, mRemoves = true, mOnce = false;
  double mPlaceBlend = 1, mVelocityBlend = 1, mColourBlend = 1;
  double mRadiusFactor = 1, mLifeFactor = 1;
  iProperty* mColour = nullptr;  ///< null for the property `color`
  std::vector<iProperty*> mProperties;

  ParticleStore mObject;  ///< what the object holds, simulation units
  host::BaseLink mShown;  ///< the object that it fills
  CountedMemory mHeld;    ///< of that object
  // For one run of a stage.
  const ParticleStore* mSource = nullptr;
  ParticleStore* mTarget = nullptr;
  std::vector<double> mWeights;  ///< by row of the source; kDead of the dead
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
