// Particles that fill a volume.
#pragma once
#include <algorithm>

#include "fluids/emission/filled_volume.h"
#include "fluids/emission/particle_emitter.h"
#include "fluids/flow/ifluid_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Fills a volume with particles, cell by cell on a finer lattice, and tops up cells from which
/// particles have gone: a cell gets as many as are missing from its lattice, at places in whose
/// parts no particle stands. Distances of the limits are shares of the volume's greatest depth M,
/// outwards positive: the volume reaches from -inner M to outer M.
///
/// What a liquid gets with a velocity comes through the volume as through a pipe: once that is
/// filled the lattice goes with the water, and those of its places that come into the volume get
/// their particles, so that the volume gives its cross section times the speed, in steps of any
/// length. The speed is that of the property times the strength of the time window's curve, as seen
/// from a volume that moves. The liquid holds it within the volume (`Inflows`). Where it has no room
/// left (`FullRooms`) nothing comes, and the user is told.
///
/// Liquids limit it: nothing is made outside of the cells of those that it names, or where it names
/// none, of those that its particles belong to.
class ObjectParticleGridEmitter : public ParticleEmitter {
 public:
  ObjectParticleGridEmitter(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kVolumeRow = 1005, kSolversRow = 1006, kOuterRow = 1016, kInnerRow = 1017,
                       kRelativeRow = 1030;
  bool ReadParameters() override;
  void Reset() override;
  void Persist(StateArchive& archive) override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  /// After its run in a step: water comes through its volume into this liquid, at a speed above 0.
  bool Feeds(const iFluidSolver& liquid) const;
  /// The velocity of that water, simulation units a second.
  const Vec3d& InflowVelocity() const { return mTemplate.velocity; }
  /// It waits, since there is no room for that water.
  bool HasStopped() const { return mHasStopped; }
  /// The cells of a lattice that its volume reaches into, by index.
  std::vector<i32> CellsIn(const GridLayout& layout) const;

 private:
  /// The lattice in the cells of a zone.
  struct Lattice {
    i32 perAxis = 1;
    double step = 0, spacing = 0;  ///< simulation units
    double jitter = 0;             ///< how far off its place a particle may be, along an axis
    double Count() const { return double(perAxis) * perAxis * perAxis; }
  };
  class Filler;

  /// Between which distances from the surface of a volume it fills, simulation units.
  struct Limits {
    double low, high;
    bool hasLow;
    bool Hold(double distance) const {
      return static_cast<f32>(distance - high) < 0 &&
             !(hasLow && static_cast<f32>(distance - low) < 0);
    }
  };

  bool LooksAtOthers() const override { return true; }
  bool IsDue() const;
  /// A window that the first step closes has been served in the start frame: no time lies between.
  bool IsRepeated() const;
  Limits LimitsIn(const VolumeBase& volume) const;
  Lattice LatticeOf(i32 subdivision, double cell) const;
  /// None are named, or this one is.
  bool MayFill(const iFluidSolver& solver) const;
  /// Collects the liquids that limit it, and those that it feeds.
  void FindLiquids();
  /// What it makes in a step: what is missing, or what has come in since the last one.
  void BeginInflow(bool wasFlowing, bool didHold);
  /// The share of its speed that the curve of the time window leaves in the mean over the step.
  double CurveShare() const;
  /// The velocity of its volume as a whole, simulation units a second.
  Vec3d OwnVelocity() const;
  /// All of its cells are full in a liquid.
  bool IsBlocked() const;
  /// Collects the obstacles, other than its own volume, that keep a liquid out.
  void FindSolids();
  bool IsInSolid(const Vec3d& p) const {
    return std::any_of(mSolids.begin(), mSolids.end(), [&](const VolumeBase* solid) {
      return solid->IsInBounds(p) && solid->DistanceAtWorld(p) < 0;
    });
  }
  bool IsInReach(const Vec3d& p) const {
    return mLiquids.empty() ||
           std::any_of(mLiquids.begin(), mLiquids.end(),
                       [&](const Flow* liquid) { return liquid->ContainsPoint(p); });
  }
  /// As many as a volume that is empty takes, and some more along its limits.
  double CountWanted() const;

  std::vector<iFluidSolver*> mNamedSolvers;
  bool mPerSample = true;
  double mInnerLimit = 1, mOuterLimit = 0;
  double mBandCells = 0, mBand = 0;
  i32 mOuterSubdivision = 1, mInnerSubdivision = 1;
  double mMinSpacing = 0.5;
  bool mIsRelative = false;  ///< its velocity is that as seen from the volume

  // Of a liquid that comes through.
  bool mIsFlowing = false;  ///< the volume has been filled and given water since
  bool mHolds = false;      ///< it has given its water a velocity since the last step
  double mLastTime = 0;     ///< of the last step that made particles
  Vec3d mShift{};           ///< the way of the lattice since the volume was filled
  Vec3d mHeld{};            ///< the velocity that it has since the last step

  // Of one step.
  bool mIsOpen = false;                ///< a liquid comes through it, at a speed that isn't 0
  bool mAdmits = false;                ///< it makes what has come in, not what is missing
  bool mMoves = false;                 ///< something has come in
  bool mHasStopped = false;            ///< it would, but there is no room
  Vec3d mAdvance{};                    ///< the way of the water since the last step
  std::vector<Flow*> mFed;             ///< the liquids that its particles belong to
  std::vector<FilledVolume> mMembers;  ///< of the volume, those with a grid
  std::vector<const Flow*> mLiquids;   ///< outside of which nothing is made, unless there are none
  std::vector<VolumeBase*> mSolids;    ///< in which no liquid is made
  std::optional<host::ImageObject::Sampler> mColour;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
