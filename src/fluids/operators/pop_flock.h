// Flocks and what hunts them.
#pragma once
#include <vector>

#include "fluids/operators/particle_operator.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Steers particles as flocks fly (Reynolds, "Flocks, Herds, and Schools", 1987, and "Steering
/// Behaviors for Autonomous Characters", 1999): to the middle of their neighbours, the way these
/// fly and out of each other's way, or away from a predator that is near. Predators hunt what is
/// near to them and keep apart.
///
/// Three passes: all of the flock choose their way by velocities that nobody has changed yet, then
/// predators turn and kill, then the flock turns.
class POP_Flock : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kPredatorsRow = 1001, kDurationRow = 1003, kKindRow = 1008,
                       kPredatorKindRow = 1009, kCohesionRow = 1011, kSeparationRow = 1012,
                       kAlignmentRow = 1013, kSeparationRadiusRow = 1014, kCohesionRadiusRow = 1015,
                       kAlignmentRadiusRow = 1016, kSpeedRow = 1017, kPursuitRow = 1018,
                       kPursuitRadiusRow = 1019, kPredatorSeparationRow = 1020,
                       kPredatorSeparationRadiusRow = 1021, kPredatorSpeedRow = 1022,
                       kFlightRow = 1025, kFlightRadiusRow = 1026, kKillsRow = 1027,
                       kKillRadiusRow = 1028;
  static constexpr const char* kOwnPreyReason =
      "its predators are its flock; name another kind or group";
  void Evaluate(const EvaluationThreadData& data) override;

 protected:
  bool PrepareOperator() override;

 private:
  /// How fast something of a kind flies, and how hard it turns.
  struct Pace {
    double speed = 0;  ///< simulation units a second
    double force = 0;  ///< simulation units a second squared
  };
  static constexpr double kForceShare = 0.25;  ///< of a speed, which may be gained in a second

  /// The change from `velocity` to the pace's speed along `direction`, at most the pace's force,
  /// times `weight`; none without a direction.
  static Vec3d Steer(const Vec3d& direction, const Vec3d& velocity, const Pace& pace,
                     double weight);
  void ChooseWay(i32 row, u32 worker);
  bool Flee(i32 row, NeighbourBuffer& near);
  void Hunt(i32 row, double weight, u32 worker);
  void Turn(i32 row, double weight);
  /// Runs f(rows, worker) for the shares of a store's rows.
  template <class F>
  void Pass(const ParticleStore& store, const EvaluationThreadData& data, F&& f) const;
  double Cells(double cells) const;

  ParticleGroup* mPredatorGroup = nullptr;
  i32 mPredatorKind = kPassive;
  double mCohesion = 0.5, mSeparation = 0.3, mAlignment = 0.15, mFlight = 0.8;
  double mPursuit = 0.5, mPredatorSeparation = 0.3;
  bool mKills = true;
  // In cells, and cells a second.
  double mSeparationCells = 2, mCohesionCells = 2, mAlignmentCells = 2, mFlightCells = 3;
  double mPursuitCells = 5, mPredatorSeparationCells = 3, mKillCells = 0.5;
  double mSpeedCells = 10, mPredatorSpeedCells = 10;

  // For one run of a stage.
  ParticleStore *mFlock = nullptr, *mPredators = nullptr;  ///< no predators: null
  const PointTree *mFlockTree = nullptr, *mPredatorTree = nullptr;
  Pace mPace, mPredatorPace;
  std::vector<Vec3d> mSteering;  ///< what each of the flock has chosen
  std::vector<u8> mIsCaught;     ///< which of the flock predators have killed
  std::vector<NeighbourBuffer> mBuffers;
  CountedMemory mHeld;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
