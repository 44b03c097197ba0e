// Emission into channels inside a volume.
#pragma once
#include <set>
#include <string>

#include "fluids/emission/channel_pair.h"
#include "fluids/emission/emission_reach.h"
#include "fluids/emission/object_volume.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Writes into channels every cell whose centre lies inside a volume.
///
/// A cell of the volume's node grid is inside if the mean of its eight distances isn't above 0; the
/// outermost layers of that grid are left out. Workers own whole layers of the world's lattice, so
/// that the result doesn't depend on their number.
class ObjectGridEmitter : public ObjectVolume {
 public:
  ObjectGridEmitter();
  ObjectGridEmitter(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  ConstraintList* Constraints() override { return &mConstraints; }
  static const host::ParameterTable& Parameters();
  static constexpr i32 kVolumeRow = 1002;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  bool ComesBefore(const iBase& other) const override;
  bool Commutes() const override;
  void Prepare() override;
  void Begin() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  std::vector<double> mWeights;  ///< per pair, of its duration in this step; 0 rests
  std::vector<ChannelPair*> mPairs;
  ConstraintList mConstraints;

 private:
  static constexpr i32 kRun = 64;  ///< cells that go to a channel in one call

  /// A pair that runs in this step.
  struct Target {
    ScalarField* scalar;  ///< one of both is null
    VectorField* vector;
    const GridEmissionSettings* settings;
    EmissionWrite write;
    double duration;  ///< weight of the duration
    bool handsOver;   ///< what comes into solids goes on to the gas beside them
  };
  /// Inside cells of one row of a volume.
  struct CellRun {
    i32 count = 0;
    Vec3d positions[kRun];
  };

  void EmitLayer(const VolumeBase& volume, i32 z, bool owned,
                 const EvaluationThreadData& data) const;
  void EmitRun(const VolumeBase& volume, const CellRun& run, bool owned,
               const EvaluationThreadData& data) const;
  /// Gives a run of cells to a field, as scalars or vectors.
  template <class Field, class Amount>
  void EmitInto(Field& field, const Amount& amount, const Target& target, const VolumeBase& volume,
                const CellRun& run, const EvaluationThreadData& data) const;
  void AddTarget(const ChannelPair& pair, double duration);
  /// Keeps whether a cell that is filled lies in the open, or else in which obstacle.
  void NoteSolid(const Vec3d& p) const;
  bool IsInSolid(const Vec3d& p) const;
  bool ReachesBeyondSolids() const;
  /// Why nothing of what it emitted in this step is seen; null where something is.
  const char* WhyUnseen();
  /// What scales the amount of a cell, of the weight that constraints left; 0 leaves it alone.
  double WithFalloff(double weight, const Target& target, const VolumeBase& volume,
                     const Vec3d& p) const;

  std::vector<Target> mTargets;
  std::vector<VolumeBase*> mMembers;    ///< of the volume, those with a grid
  std::vector<VolumeBase*> mObstacles;  ///< of the scene, by name
  bool mSetsOutside = false;            ///< what it sets isn't for solids
  mutable EmissionReach mReach;
  mutable std::atomic<bool> mHasOpened = false;  ///< a cell that isn't solid took something
  mutable std::atomic<i32> mSolid = 0;           ///< the first obstacle that filled cells lie in
  std::set<std::string> mReasons;                ///< texts that `Deactivate` was given
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
