// The node that makes level sets of particles.
#pragma once
#include "fluids/particles/particle_group.h"
#include "fluids/surfaces/particle_surface.h"
#include "fluids/surfaces/surface_smoothing.h"
#include "fluids/volume/volume_base.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a level set of particles once a frame, behind all substeps: on nodes, negative inside,
/// simulation units. Meshers turn it into polygons, and caches keep it.
///
/// Its grid covers the particles and five cells more on each side; without particles there is none.
class SurfaceReconstructor : public iObject, public CachedGrids {
 public:
  SurfaceReconstructor(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kHostRow = 1000, kSourceRow = 1001, kKindRow = 1002, kShiftRow = 1004,
                       kModeRow = 1005, kLeastRow = 1006, kSearchRow = 1008, kRadiusRow = 1009,
                       kThresholdRow = 1010, kBoundaryRow = 1011, kMassRow = 1012,
                       kFilterRow = 1013, kResolutionRow = 1017, kLimitRow = 1019,
                       kCorrectRow = 1021, kPositionRow = 1027, kFitRow = 1100, kPerCellRow = 1101,
                       kSmoothingRow = 1102, kEllipsoidRow = 1103;

  void CheckDirty() override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  std::vector<std::string> TakeWarnings() override { return std::exchange(mWarnings, {}); }
  ConstraintList* Constraints() override { return &mConstraints; }

  /// The level set of the frame; null without one.
  EGrid<double>* GetResult() const { return mResult && mResult->mData ? mResult.get() : nullptr; }
  /// The particles that the surface is made of, by their rows in `Store`, until the next frame.
  const PointLookup& Points() const { return mPoints; }
  /// What they carry; null where they come from the document.
  ParticleStore* Store() const { return mGroup && !mUsesHost ? &mGroup->Store(mKind) : nullptr; }
  /// How far a particle counts, simulation units.
  double Reach() const;

  std::array<EGrid<double>*, 3> GetCachedGrids() override {
    return {GetResult(), nullptr, nullptr};
  }
  i32 CachedKind() const override { return kNode; }
  bool TakeCachedPlace(const GridLayout& layout, i32 kind) override;
  /// Bytes of a level set about the particles where they are, and of their lookup.
  double ExpectedBytes() const;

 private:
  enum PositionKind : i32 { kPositionItself = 0, kEllipsoidCentre = 1, kDeformedPosition = 2 };

  /// The cells that its lengths count in: of the scene, or of the one that its particles are played
  /// from, whose number and distances follow from those.
  double Cell() const;
  SurfaceShape Shape() const;
  /// The places of the particles that count; those of the others aren't finite.
  std::vector<Vec3d> CollectPlaces();
  void Filter(std::vector<Vec3d>& places);
  /// Makes room for the surface round the places; what is too far off for that is left out.
  bool AllocateResult(std::vector<Vec3d>& places);
  double SamplesIn(const Bounds& box) const;
  bool TakeLayout(const GridLayout& layout);
  void TakePlayedPoints();
  std::vector<const EGrid<double>*> LimitGrids() const;
  /// What the surface has to hold.
  SurfaceLiquid Liquid() const;
  /// Keeps by how much particles overfill full places, and tells if they do.
  void TakeFull(double full);
  /// The surface ends where the boundary begins.
  void CutOff();
  void CutOff(const VolumeBase& boundary);

  ParticleGroup* mGroup = nullptr;
  host::PointsObject* mPointsObject = nullptr;
  host::PolygonObject* mPolygonObject = nullptr;
  Kernel* mKernel = nullptr;
  iVolume* mBoundary = nullptr;
  iVolume* mLimitVolume = nullptr;
  CachedGrids* mLimitField = nullptr;
  bool mUsesHost = false;
  i32 mKind = kLiquid;
  i32 mMode = SurfaceShape::kAveragedPosition;
  i32 mPosition = kPositionItself;
  double mThreshold = 0;
  double mShift = 0;      ///< cells
  double mSearch = 1;     ///< times the radius
  double mRadius = 1.25;  ///< cells
  double mResolution = 1;
  bool mUsesMass = true;
  bool mCorrects = false;
  double mCorrectLow = 0, mCorrectHigh = 1.05;
  bool mFilters = false;
  i32 mLeastNeighbours = 1;
  bool mFits = true;
  double mPerCell = 8;
  i32 mSmoothing = 2;
  double mEllipsoidRadius = 0;  ///< cells
  ConstraintList mConstraints;

  double mFull = 0;     ///< as `SurfaceLiquid` has it,
  double mFullFor = 0;  ///< with so many particles to a cell as told
  bool mToldStrays = false;
  std::vector<std::string> mWarnings;
  std::unique_ptr<EGrid<double>> mResult;
  PointLookup mPoints;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
