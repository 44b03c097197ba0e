// Particles that follow splines.
#pragma once
#include <vector>

#include "fluids/operators/particle_operator.h"
#include "host/spline_line.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Leads particles to places on splines and, once there, along them.
///
/// A particle is free, approaches (`PF_SPLINE_APPROACH`), follows (`PF_SPLINE_FOLLOW`) or has
/// finished (`PF_SPLINE_DONE`). What belongs to it stands in three of its vectors: A, the place
/// that it is led to, or was put at last; B, the u on its segment, the number of the segment among
/// those of all splines + 0.1, and the speed; C, the angle and radius of its offset from the line,
/// and a random number of its own. Velocities change while it approaches, which something else has
/// to carry it by; a particle that follows is put onto its place, whatever else moves it.
class Pop_FollowSpline : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kKindRow = 1002, kDurationRow = 1003, kApproachSpeedRow = 1004,
                       kApproachModeRow = 1005, kApproachForceRow = 1006, kApproachWeightRow = 1007,
                       kSpeedModeRow = 1008, kDirectionRow = 1009, kEndRow = 1010, kSpeedRow = 1011,
                       kSpeedFactorRow = 1012, kArrivalRow = 1013, kPickRow = 1014,
                       kShareRow = 1015, kSplinesRow = 1016, kPlaceRow = 1020, kAgainRow = 1021,
                       kSwirlRow = 1022, kAngleRangeRow = 1023, kSwirlVariationRow = 1024,
                       kAngleRow = 1025, kRadiusRow = 1026, kSpreadRow = 1027,
                       kInnerRadiusRow = 1028, kTaperRow = 1029, kBlendPaceRow = 1030,
                       kFramesRow = 1031, kBlendRow = 1032, kBlendVariationRow = 1033;
  enum Pick : i32 { kNearest = 0, kRandom = 1, kById = 2 };
  enum ApproachMode : i32 { kOwnApproach = 0, kFixedApproach = 4 };
  enum SpeedMode : i32 { kOwnSpeed = 0, kFixedSpeed = 1, kByFrames = 2 };
  enum Direction : i32 { kForwards = 0, kBackwards = 1 };
  enum End : i32 { kRelease = 0, kWrap = 1, kFinishThere = 2 };
  enum Spread : i32 { kDisc = 0, kEvenRadius = 1, kRim = 2 };
  void ClearLinks() override;
  void Evaluate(const EvaluationThreadData& data) override;

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;

 private:
  /// A segment of one of the splines.
  struct Way {
    const host::SplineLine* line;
    i32 segment;
    double Length() const { return line->LengthOf(segment); }
  };
  struct Picked {
    std::size_t line;
    host::SplinePlace place;
  };
  void Lead(ParticleStore& store, i32 row, double weight);
  Picked PickPlace(const Vec3d& position, i32 id) const;
  void Catch(ParticleStore& store, i32 row);
  void Approach(ParticleStore& store, i32 row, double weight);
  void Follow(ParticleStore& store, i32 row, double weight);
  /// The segment of a following particle; null where it isn't there any more.
  const Way* WayOf(i32 row) const;
  Matrix FrameOf(const Way& way, double u) const { return way.line->FrameAt({way.segment, u}); }
  /// Where a particle with the offset of `c` belongs at u.
  Vec3d PositionOf(const Way& way, double u, const Vec3d& c) const;
  double SpeedOn(const Way& way, double own) const;
  double RadiusFor(i32 id) const;

  std::vector<host::SplineObject*> mSplines;
  double mApproachSpeed = 800;  ///< host units, as all lengths and speeds here
  i32 mApproachMode = kFixedApproach;
  double mApproachForce = 150, mApproachWeight = 1, mArrival = 20;
  i32 mSpeedMode = kByFrames, mFrames = 60;
  double mSpeed = 300, mSpeedFactor = 0.8;
  i32 mDirection = kBackwards, mEnd = kRelease;
  i32 mPick = kNearest, mPlace = kRandom;
  double mShare = 1;
  bool mAgain = false;
  double mSwirl = 0, mSwirlVariation = 1;
  double mAngle = 0, mAngleRange = 0;
  double mRadius = 1, mInnerRadius = 0, mTaper = 0;
  i32 mSpread = kDisc;
  double mBlend = 1, mBlendVariation = 0, mBlendPace = 25;

  std::vector<host::SplineTracker> mTrackers;  ///< by the order of `mSplines`
  // For one step, simulation units.
  std::vector<const host::SplineLine*> mLines;
  std::vector<Way> mWays;
  std::vector<i32> mFirstWay;  ///< by line
  PropertyColumn<Vec3d>*mA = nullptr, *mB = nullptr, *mC = nullptr;
  double mToSim = 1;
  u64 mSeed = 0, mStepSeed = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
