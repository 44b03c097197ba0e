// Smoke and fire along rays: what is prepared once a picture, and the walk of each ray.
#pragma once
#include <array>
#include <memory>
#include <vector>

#include "fluids/fields/channel.h"
#include "fluids/rendering/black_body.h"
#include "fluids/rendering/colour_grid.h"
#include "fluids/rendering/displacer.h"
#include "fluids/rendering/field_mapping.h"
#include "fluids/rendering/gas_look.h"
#include "fluids/rendering/multiple_scattering.h"
#include "fluids/rendering/phase_functions.h"
#include "fluids/rendering/volume_ray.h"
#include "framework/constraint.h"
#include "host/renderer.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// What a ray brings back: the light behind it, L, becomes transmittance * L + colour.
struct MarchResult {
  Vec3d colour{};
  Vec3d transmittance{1, 1, 1};
};

/// What else a march notes.
struct MarchRecord {
  i32 places = 0;              ///< looked at, in empty space too
  double length = 0;           ///< of the marched stretch, host units
  double firstDepth = -1;      ///< from the start of the stretch to the medium; below 0: none met
  double count[3] = {};        ///< samples of smoke, fire and the third field
  double sum[3] = {};          ///< while marching the sum of their values, then the mean
  Vec3d scattering{};          ///< part of the colour
  Vec3d emission{};            ///< part of the colour
  Vec3d fireLight{};           ///< light of the fire at the samples, summed
  Vec3d fireScattering{};      ///< part of `scattering` that is light of the fire
  double opacity[2] = {1, 1};  ///< of the largest transmittance, faded by the clip distances
};

/// One field: a private copy of the channel and what becomes of its values.
struct RenderField {
  MELDO_SULVA::ScalarField channel;
  FieldMapping mapping;
  FieldView view;
  bool exists = false;

  void Clear() {
    channel.mGrid.reset();
    mapping = {};
    view = {};
    exists = false;
  }
};

/// What a ray finds at one place.
struct MediumSample {
  Vec3d world{};  ///< where the smoke was read
  double smoke = 0, fire = 0, third = 0;
  bool hasSmoke = false, hasFire = false, hasThird = false;
};

/// The light of one lamp, or of the fire, that arrives in each cell of a coarser grid.
struct LightRecord {
  double scale = 1;
  std::shared_ptr<const host::RenderLight> light;
  std::array<MELDO_SULVA::ScalarField, 3> maps;  ///< red, green, blue
  ColourGrid packed;                             ///< the same, once they are finished
};

/// The fire as a lamp. All maps have the shape of the light maps.
struct FireLightRecord {
  MELDO_SULVA::LevelField levelSet;                    ///< distance to the fire, simulation units
  MELDO_SULVA::ScalarField reach;                      ///< how much of the light arrives, 0..1
  MELDO_SULVA::ScalarField strength;                   ///< temperature that the light comes from
  std::array<MELDO_SULVA::ScalarField, 3> directions;  ///< away from the fire; zero without one
  FieldView reachView, strengthView, levelSetView;
  ColourGrid packedDirections;
};

/// How a ray of light through the smoke is weakened.
struct ShadowWalk {
  WalkSteps steps;
  Vec3d density{};  ///< absorption per channel
  bool IsOff() const { return density == Vec3d{}; }
};

/// The engine behind the gas material. `Precompute` once, then any number of rays on any threads.
///
/// Places are in host units. The optical depth of a stretch of length ds (host units) is value *
/// density scale * colour * absorption * ds; scattering takes nothing from the ray.
class RayMarcher : public MELDO_SULVA::iObject {
 public:
  RayMarcher();
  RayMarcher(const RayMarcher&) = delete;
  ~RayMarcher() override;

  /// Takes the look of a material node, copies the fields that it links from the first of
  /// `scenes` that has one, and works out the light in them. False, with no medium to draw, when
  /// nothing is linked, no linked channel has data, a gradient or curve is missing, or the render
  /// was cancelled.
  virtual bool Precompute(host::BaseNode& container, const std::vector<MELDO_SULVA::Scene*>& scenes,
                          const host::RenderData& data);
  /// Light and transmittance along a ray, which lies inside the bounds. `u`, 0 to 1, is the random
  /// start; `worker` is the render thread.
  virtual void MarchRay(MarchResult& out, MarchRecord& record, VolumeRay ray, double u,
                        const host::RenderData& data, i32 worker) const;
  /// Multiplies `colour` by what the smoke on a ray inside the bounds leaves of it.
  /// Returns the number of places looked at.
  virtual i32 ShadowRay(Vec3d& colour, VolumeRay ray, const ShadowWalk& settings, double u) const;
  /// Adds the light that was scattered more than once, along a ray inside the bounds.
  /// Returns the number of places looked at.
  virtual i32 AddMultipleScattering(Vec3d& colour, VolumeRay ray, double u, i32 worker) const;

  void Begin() override;
  /// The light maps of a worker's share.
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  const WorldBox& Bounds() const { return mBounds; }
  /// Of the field that the bounds come from.
  const VecInt3D& Cells() const { return mCells; }
  bool HasSmoke() const { return mSmoke.exists; }
  bool HasFireOrThird() const { return mFire.exists || mThird.exists; }
  /// How the material weakens the rays of other objects.
  const ShadowWalk& ObjectShadow() const { return mObjectShadow; }
  bool HasMultipleScattering() const { return mMultiple.on; }
  const GasLook& Look() const { return mLook; }
  /// Samples of one pass: smoke, fire and third field at a place; false when all are empty.
  bool SampleMedium(const Vec3d& world, MediumSample& sample) const;
  /// Light that fire, and smoke that it lights, give at a place to all sides, per host unit.
  Vec3d GlowAt(const Vec3d& world) const;

 private:
  // Precompute, in order.
  bool PrecomputeFields(const std::vector<MELDO_SULVA::Scene*>& scenes,
                        const host::RenderData& data);
  bool PrecomputeMaps();
  bool FindFields(const std::vector<MELDO_SULVA::Scene*>& scenes, const host::RenderData& data);
  bool CopyField(RenderField& field, const MELDO_SULVA::ScalarField& source, double factor);
  bool CopyColours(const MELDO_SULVA::VectorField& source, double factor);
  void SetWalks();
  void SetMultipleScattering(double cell);
  void SetMappings();
  void GatherLights(const host::RenderData& data);
  void Preprocess(const FilterList& list, MELDO_SULVA::ScalarField* target,
                  MELDO_SULVA::VectorField* colours);
  void BlurFields();
  void BuildOccupancy();
  void MarkBricks(const RenderField& field, double threshold, const VecInt3D& bricks);
  bool BuildFireLevelSet();
  bool AllocateMaps();
  void ComputeMaps();
  void FinishScattering();
  void FinishLightMaps();
  void FinishFireMaps();
  void PackMaps();

  // Light maps, by cell.
  void LightCell(const Vec3d& world, i32 cell);
  void FireCell(const Vec3d& world, i32 cell);
  void ScatterCell(const Vec3d& world, i32 cell, i32 worker);
  /// The way out of the fire at a place, of length 1; zero where none is shorter than others.
  Vec3d AwayFromFire(const Vec3d& place) const;
  /// A place in the fire next to a place, or the place itself inside.
  Vec3d NearestFire(const Vec3d& place) const;
  /// Whether a cell of the smoke within a box round a place, or next to it, holds any.
  bool HasSmokeAround(const Vec3d& world, const Vec3d& extent) const;
  Vec3d ToBounds(const Vec3d& world, const Vec3d& direction, double length) const;

  // Rays.
  /// What a place does to a ray, per host unit.
  struct Optics {
    Vec3d sigma{};    ///< extinction
    Vec3d scatter{};  ///< light of lamps, fire and all around
    Vec3d fire{};     ///< part of that
    Vec3d emit{};     ///< light of its own
  };
  class Accumulator;
  void Displaced(const Vec3d& world, Vec3d& smoke, Vec3d& fire) const;
  bool SampleSmoke(const Vec3d& world, MediumSample& sample) const;
  bool SampleFire(const Vec3d& world, double& value) const;
  bool MapSmoke(const Vec3d& place, double& value) const;
  Vec3d SmokeColour(const MediumSample& sample) const;
  Vec3d Absorbance(const Vec3d& colour) const;
  Vec3d FireColour(double value) const;
  bool Glows(const MediumSample& sample) const {
    return mLook.fire.emitter == Emitter::Fire ? sample.hasFire : sample.hasThird;
  }
  void AddEmission(const MediumSample& sample, Optics& optics) const;
  void AddScattering(const MediumSample& sample, const Vec3d& place, const Vec3d& toViewer,
                     i32 worker, Optics& optics, MarchRecord& record) const;
  Vec3d LampLight(const Vec3d& place, const Vec3d& toViewer, double g, double k) const;
  Vec3d FireLight(const Vec3d& place) const;
  double FirePhase(const Vec3d& place, const Vec3d& toViewer, double g, double k) const;
  double Filtered(const FilterList& list, const Vec3d& world, i32 worker, double value) const;
  void FadeOpacity(const MarchResult& result, const host::RenderData& data,
                   MarchRecord& record) const;

  // Multiple scattering.
  struct ScatterDepths {
    double distance = 0, scattering = 0, absorption = 0;
    double density = 0;  ///< at the last place
    bool fresh = true;   ///< there was none
  };
  ScatterDepths ScatterMarch(VolumeRay ray, double u, i32 worker) const;
  void AddDepth(double smoke, const Vec3d& place, double ds, i32 worker,
                ScatterDepths& depths) const;
  Vec3d Spread(const MediumSample& sample, const Vec3d& place, const Vec3d& toViewer, double way,
               double depth, i32 worker) const;

  GasLook mLook;
  i32 mState = 0;  ///< 1 once the precomputation has run
  host::HostThread* mThread = nullptr;
  WorldBox mBounds;
  VecInt3D mCells{};
  Vec3d mWorldToSim{1, 1, 1};
  Occupancy mOccupancy;
  VelocityGridDisplacer mDisplacer;
  RenderField mSmoke, mFire, mThird;
  MELDO_SULVA::VectorField mSmokeColour;
  bool mHasSmokeColour = false;
  ColourGrid mPackedColour;
  Ramp<Vec3d> mSmokeGradient, mFireGradient, mFireLightGradient;
  BlackBody mBlackbody;
  WalkSteps mSteps;
  ShadowWalk mShadow, mObjectShadow;
  std::unique_ptr<PhaseFunction> mPhase;
  double mFireReach = 100;    ///< host units
  bool mFireLightOn = false;  ///< there is fire, smoke, and light between them
  std::vector<std::unique_ptr<LightRecord>> mLights;
  std::unique_ptr<FireLightRecord> mFireRecord;
  MultipleScattering mMultiple;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
