// Points to grids.
#pragma once
#include "fluids/emission/carried_value.h"
#include "fluids/emission/channel_value.h"
#include "fluids/emission/emission_reach.h"
#include "fluids/emission/operator_to_grid.h"
#include "fluids/mesh/multi_mesh.h"
#include "framework/constraint.h"
#include "grids/point_lookup.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Gathers the points of a source round every cell near it, and emits the mean of what they carry.
/// The source is a mesh or a group of meshes, each vertex of which carries the values of the linked
/// channel values, an object of points, which do the same, or a group of particles, which carry
/// these or properties of their own.
class ParticleToGridEmitter : public Operator_ToGrid {
 public:
  ParticleToGridEmitter();
  ParticleToGridEmitter(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  ConstraintList* Constraints() override { return &mConstraints; }
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSourceRow = 1000, kDistanceModeRow = 1003, kFalloffRow = 1004,
                       kMassScaleRow = 1005, kRadiusScaleRow = 1006, kConstraintModeRow = 1013,
                       kRadiusRow = 1014, kParticleTypeRow = 1001;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  void Prepare() override;
  void Begin() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  static constexpr i32 kMostNeighbours = 100;
  enum DistanceMode : i32 { kByGradient = 2 };

  /// Cells of one row with the weight of their points.
  struct Row {
    std::vector<PointNeighbour> neighbours;  ///< of a mesh
    NeighbourBuffer particles{kMostNeighbours};
    std::vector<Vec3d> positions;
    std::vector<double> weights;  ///< mean over the points of a cell
    /// For each channel value that reads a property, the mean of what the particles bring.
    std::vector<std::vector<Vec3d>> carried;
    std::vector<double> scalars;
    std::vector<Vec3d> vectors;
    std::vector<Vec3d> places;
  };

  iBase* Source() const { return mSource && mSource->HasCategory(kBitMesh) ? mSource : nullptr; }
  bool PreparePoints();
  bool PrepareParticles();
  CellBox CellsOfTargets() const;
  std::vector<Mesh*> SourceMeshes() const;
  bool TestDuration();
  void GatherRow(i32 y, i32 z, Row& row, u32 worker) const;
  bool GatherCell(const Vec3d& p, double& weight, Row& row, u32 worker) const;
  /// The weight that a cell gives to each of its points; false where it gets none.
  bool WeighCell(const Vec3d& p, double& weight, u32 worker) const;
  /// What one point at a distance counts, which may be a particle of some; false where a constraint
  /// leaves it out.
  bool WeighPoint(const Vec3d& point, double distanceSquared, double& weight, u32 worker,
                  const ParticleStore* particles = nullptr, i32 particle = 0) const;
  bool GatherParticles(const Vec3d& p, double& weight, Row& row, u32 worker) const;
  void EmitRow(Row& row, bool owned, const LayerOwner& owner) const;
  /// Why nothing of what it emitted in this step is seen; null where something is.
  const char* WhyUnseen() const;

  iBase* mSource = nullptr;  ///< a mesh or a group of meshes
  ParticleGroup* mGroup = nullptr;
  host::PointsObject* mPointsObject = nullptr;
  i32 mParticleType = kPassive;
  Duration* mDuration = nullptr;
  std::vector<ChannelValue*> mValues;
  ConstraintList mConstraints;
  GridEmissionSettings mSettings;  ///< of all emissions: as a class that reads no parameters has it
  i32 mDistanceMode = 0;
  const host::Gradient* mFalloffGradient = nullptr;
  double mMassScale = 1;
  double mRadiusScale = 1;
  bool mPerSecond = false;
  i32 mConstraintMode = 0;  ///< 0: constraints weigh cells, otherwise points
  double mRadiusCells = 1.4;
  double mRadius = 1.4;  ///< simulation units
  double mWeight = 1;    ///< of the duration
  // From `Prepare` to `Finish`:
  std::vector<Vec3d> mPoints;  ///< loose ones, or the vertices of all meshes
  Vec3d mPointsMin{}, mPointsMax{};
  PointLookup mLookup;
  std::vector<CarriedValue> mCarried;  ///< of the channel values, where particles are the source
  const PropertyColumn<double>*mMass = nullptr, *mRadii = nullptr;
  mutable EmissionReach mReach;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
