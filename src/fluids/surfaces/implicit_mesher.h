// Meshes of level sets.
#pragma once
#include <utility>

#include "fluids/surfaces/polygoniser.h"
#include "fluids/surfaces/surface_reconstructor.h"
#include "fluids/volume/volume_base.h"
#include "grids/grid_memory.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Turns a level set into polygons once a frame, behind all substeps: that of a
/// volume, or that of particles, with their velocities and colours.
///
/// Its node is the polygon object itself: files, pictures and mesh nodes name it as any other, and
/// mesh nodes see the polygons in the next step.
class ImplicitMesher : public iObject {
 public:
  ImplicitMesher(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kRenderOnlyRow = 1000, kSourceRow = 1001, kMethodRow = 1002,
                       kColourRadiusRow = 1007, kLevelRow = 1008, kColourGroupRow = 1009,
                       kVelocitiesRow = 1101, kVelocityFieldRow = 1102, kColourPropertyRow = 1103,
                       kColourFieldRow = 1104;
  void CheckDirty() override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  std::vector<std::string> TakeWarnings() override { return std::exchange(mWarnings, {}); }
  /// The polygons of the last frame, in host units and the node's own frame; null without a node.
  const host::Geometry* Polygons() const {
    const host::PolygonObject* output = Output();
    return output ? &output->GetGeometry() : nullptr;
  }
  bool HasPolygons() const { return Polygons() && !Polygons()->polygons.empty(); }
  /// Hands polygons of a cache to the document, in place of own ones.
  void TakePlayed(host::Geometry geometry);
  /// Bytes of the polygons of the last frame.
  double HeldBytes() const { return mBytes; }

 private:
  host::PolygonObject* Output() const { return dynamic_cast<host::PolygonObject*>(Node()); }
  /// The source's level set, or why there is none.
  const EGrid<double>* FindGrid();
  /// Why there are no polygons.
  const char* ReasonOfNone() const;
  /// Adds a warning, once a run.
  void Tell(u32 what, std::string_view text);
  void AddVelocities(SurfaceMesh& mesh);
  void AddColours(SurfaceMesh& mesh);
  /// The particles that colour the surface.
  std::vector<const ParticleStore*> ColourStores() const;
  /// Hands the polygons to the document, in host units and the node's own frame.
  void Write(const SurfaceMesh& mesh);
  /// Gives the document polygons that took `workBytes` to make.
  void HandOver(host::Geometry geometry, double workBytes);

  iVolume* mVolume = nullptr;
  SurfaceReconstructor* mReconstructor = nullptr;
  CachedGrids* mVelocityField = nullptr;
  CachedGrids* mColourField = nullptr;
  ParticleGroup* mColourGroup = nullptr;
  i32 mColourProperty = property_id::kColor;
  double mColourRadius = 0.033;
  double mColourFull = 1;
  const host::Gradient* mColourGradient = nullptr;
  bool mHasVelocities = true;
  i32 mMethod = Polygoniser::kCubes;
  i32 mSampleMode = SAMPLE_LINEAR;
  double mLevel = 0.3;
  double mResolution = 1;
  bool mMakesNormals = true;
  bool mRenderOnly = false;

  const EGrid<double>* mGrid = nullptr;  ///< of one step
  enum Told : u32 { kToldRim = 1, kToldVelocities = 2, kToldColours = 4 };
  u32 mTold = 0;
  double mBytes = 0;
  CountedMemory mHeld;  ///< what the document has of them, with the grids
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
