// Particles from a surface.
#pragma once
#include <memory>

#include "fluids/emission/mesh_points.h"
#include "fluids/emission/particle_emitter.h"
#include "fluids/emission/source_particles.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a number of particles in each step on the triangles or vertices of a mesh, at loose
/// points, or at the passive particles of a group. Spread over triangles they are even by area. Of
/// the places that it picks it leaves out those that are too near to a particle, where constraints
/// or images say so, and where the mesh is less bent than a threshold.
///
/// A rate has parts of a particle in most steps: they are kept and added to the next one's, so that
/// 1000 a second are that however a second is cut.
class ObjectParticleMeshEmitter : public ParticleEmitter {
 public:
  ObjectParticleMeshEmitter(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSourceRow = 1003, kLookupRow = 1010, kWriteNormalRow = 1013,
                       kWriteUvRow = 1014, kColourImageRow = 1015, kDensityImageRow = 1016,
                       kDensityThresholdRow = 1017, kWriteColourRow = 1018,
                       kInvertCurvatureRow = 1020, kCurvatureRow = 1021, kFromRow = 1024,
                       kVertexNormalsRow = 1025, kEveryPointRow = 1026, kPointPropertiesRow = 1027;
  static constexpr const char* kNoPointsReason =
      "its source is no object of points and no group; name one, or change 'emit_from'";
  static constexpr const char* kOfVolumesReason =
      "its source is a group of volumes, which has no mesh of its own; name one of its members";
  static constexpr const char* kBareVolumeReason = "the volume under 'source' has no mesh";
  enum From : i32 { kTriangles = 0, kVertices = 1, kPoints = 2 };
  bool ReadParameters() override;
  void Reset() override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;

 private:
  enum Lookup : i32 { kByUv = 0, kByPlace = 1 };
  class Placer;

  bool LooksAtOthers() const override { return mSpacing > 0; }
  const Mesh* SourceMesh() const;
  bool IsDue() const;
  /// All points give one particle each, whatever the rate.
  bool TakesEach() const;
  double TimeGiven() const override;
  /// Calls f(low, high) with the boxes of what it emits on while it is due.
  template <class F>
  void ForEachSourceBox(F&& f) const;
  bool FindPoints();
  bool FindLoosePoints();
  /// Particles of this step; takes them off what is owed.
  i32 CountDue();
  void EmitShare(const EvaluationThreadData& share);

  Mesh* mMesh = nullptr;
  host::PointsObject* mPointsObject = nullptr;
  ParticleGroup* mSourceGroup = nullptr;
  std::vector<iProperty*> mHandedOn;
  host::ImageObject* mDensityImage = nullptr;
  i32 mFrom = kTriangles;
  i32 mLookup = kByPlace;
  bool mWritesNormal = false, mWritesUv = false, mWritesColour = false;
  double mDensityThreshold = 0.01;
  bool mInvertsCurvature = false;
  double mCurvature = 0.2;
  double mSpacingCells = 0.5;
  bool mSumsNormals = false;
  bool mEveryPoint = true;
  i32 mRepeats = 0;

  double mOwed = 0;  ///< parts of a particle that the steps so far have left

  // Of one step.
  From mUsed = kTriangles;
  const TriMeshSTL* mRecord = nullptr;
  MeshPoints mPoints;
  std::vector<Vec3d> mLoose;                      ///< loose points, simulation units
  std::unique_ptr<ParticleStore> mFileParticles;  ///< those of an object of particles
  SourceParticles mSourceParticles;
  std::optional<host::ImageObject::Sampler> mColour, mDensity;
  i32 mCount = 0;
  double mSpacing = 0;
  bool mTestsCurvature = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
