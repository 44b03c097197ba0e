// What the rows of the gas material say, in groups by what they are for.
//
// Lengths are as the rows have them: steps in cells, light in host units.
#pragma once
#include <vector>

#include "fluids/fields/channel.h"
#include "fluids/rendering/black_body.h"
#include "fluids/rendering/volume_ray.h"
#include "framework/constraint.h"
#include "host/node.h"
#include "host/noise.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
class iFluidSolver;
class Scene;
}  // namespace MELDO_GLOBAL::MELDO_SULVA

namespace MELDO_GLOBAL::ZOLT_RENDERING {

inline constexpr double kShortestStep = 0.001;  ///< host units

/// What is seen. The links lead into the scene that the look is connected to.
struct FieldSettings : host::ParameterHolder {
  MELDO_SULVA::ScalarField* smoke = nullptr;
  MELDO_SULVA::VectorField* smokeColour = nullptr;
  MELDO_SULVA::ScalarField* fire = nullptr;
  MELDO_SULVA::ScalarField* third = nullptr;
  MELDO_SULVA::iFluidSolver* displacementSolver = nullptr;
  const host::InExcludeData* lights = nullptr;  ///< null or empty: all
};

/// By how many seconds the samples lag behind the flow.
struct DisplacementSettings : host::ParameterHolder {
  f32 smoke = 0;
  f32 fire = 0;  ///< 0 takes that of the smoke
};

/// The copies of the fields that rays read.
struct CopySettings : host::ParameterHolder {
  double resolution = 1;
  bool fullInFinal = false;
  i32 sampling = 0;
};

/// How a ray looks through the medium.
struct ViewSettings : host::ParameterHolder {
  double jitter = 1, step = 1, coarseStep = 2.5;
  i32 filter = 0;  ///< 1 is cubic
  bool earlyExit = true;
  bool trapezoid = true;
};

struct SmokeSettings : host::ParameterHolder {
  const host::Gradient* gradient = nullptr;
  bool bypass = false;
  double density = 1;
  const host::SplineData* curve = nullptr;
  i32 blurRounds = 0;
  double blur = 0.7;
};

struct NoiseSettings : host::ParameterHolder {
  bool on = false;
  i32 space = 0;  ///< 0: the position is taken in host units, else in simulation units
  const host::SplineData* curve = nullptr;
  i32 seed = 665;
  host::NoiseType type = host::NoiseType::Fbm;
  double scale = 1;
  Vec3d axes{1, 1, 1};
  i32 octaves = 3;
  double cutLow = 0, cutHigh = 1, offset = 0, contrast = 1;
};

struct ScatteringSettings : host::ParameterHolder {
  Vec3d ambient{};
  double absorption = 0.1, scattering = 0.6;
  i32 phase = 1;
  double anisotropy = 0.6, phaseScale = 1, anisotropy2 = 0;
  bool greyAbsorption = false;
};

struct MultipleSettings : host::ParameterHolder {
  bool on = false;
  bool uniform = false;  ///< light crosses a medium of the mean density
  double resolution = 0.5;
  double distanceScale = 1;
  double absorption = 0.1, scattering = 0.6;
  double spread = 0.2;  ///< mean square of the scattering angle
  double minimumDepth = 0.01;
  double step = 1;
  double blur = 1;     ///< cells
  double density = 1;  ///< weight of the smoke
  bool sameAbsorption = false, sameStep = false, ownViewSpread = false;
  double viewSpread = 0.55;
  double strength = 1;
};

/// Smoke's shadow on itself, and the maps of light that store it.
struct ShadowSettings : host::ParameterHolder {
  double jitter = 1, step = 1, coarseStep = 2.5;
  double density = 0.1;
  Vec3d colour{1, 1, 1};
  bool trapezoid = true;
  bool ignoresColour = false;
  double mapResolution = 0.5;
  i32 mapBlurRounds = 0;
  double mapBlur = 0.7;
  i32 mapLayers = 1;
};

/// Shadows of smoke on objects, and of objects in smoke.
struct ObjectShadowSettings : host::ParameterHolder {
  bool inSmoke = true, onObjects = true;
  double strength = 1;
  double jitter = 1, step = 1, coarseStep = 2.5;
  Vec3d colour{};
  double extra = 0;
  Vec3d extraColour{};
};

enum class Emitter : i32 { Fire, Third };
enum class FireColours : i32 { BlackBody, Gradient };

struct FireSettings : host::ParameterHolder {
  double density = 0.02;  ///< where there is no smoke
  double giScale = 5;
  Emitter emitter = Emitter::Fire;
  FireColours colours = FireColours::BlackBody;
  const host::Gradient* gradient = nullptr;
  double threshold = 800;
  const host::SplineData* curve = nullptr;
  i32 blurRounds = 0;
  double blur = 0.7;
  double intensity = 0.6, extinction = 0;
};

struct ThirdSettings : host::ParameterHolder {
  double threshold = 0.6;
  const host::SplineData* curve = nullptr;
  i32 blurRounds = 0;
  double blur = 0.7;
};

/// The fire as a lamp.
struct FireLightSettings : host::ParameterHolder {
  double radius = 100;
  FireColours colours = FireColours::BlackBody;
  const host::Gradient* gradient = nullptr;
  double scale = 2;
  double strength = 0;
  const host::SplineData* curve = nullptr;
  bool directed = false;
  bool trueDistances = false;
};

/// What becomes of a ray's colours, and which rays see any.
struct FinishSettings : host::ParameterHolder {
  double glow = 0;
  const host::Gradient* glowGradient = nullptr;
  double opacityLight = 0, contrast = 0, saturation = 1;
  bool byCamera = true, byGI = true, byTransparency = true, byRefraction = true;
  bool byReflection = true, byAmbientOcclusion = true;
};

/// Constraints, and the ramps named beside them, which change a grid before any ray reads it.
class FilterList : public MELDO_SULVA::ConstraintList {
 public:
  void Connect(std::span<const host::LinkTarget> targets) override;
  const std::vector<host::BaseNode*>& Ramps() const { return mRamps; }

 private:
  std::vector<host::BaseNode*> mRamps;
};

struct FilterSettings : host::ParameterHolder {
  FilterList smokeGrid, colourGrid, fireGrid, thirdGrid;
  FilterList absorption, scattering, anisotropy, phaseScale;
  FilterList multipleRate, multipleDensity, multipleAnisotropy, multipleStrength;

  template <class F>
  void ForEach(F&& f) {
    for (FilterList* list :
         {&smokeGrid, &colourGrid, &fireGrid, &thirdGrid, &absorption, &scattering, &anisotropy,
          &phaseScale, &multipleRate, &multipleDensity, &multipleAnisotropy, &multipleStrength})
      f(*list);
  }
};

/// All that a material's node says. Curves and gradients point into the node.
struct GasLook {
  FieldSettings fields;
  DisplacementSettings displacement;
  CopySettings copies;
  ViewSettings view;
  SmokeSettings smoke;
  NoiseSettings noise;
  ScatteringSettings scattering;
  MultipleSettings multiple;
  ShadowSettings shadow;
  ObjectShadowSettings objectShadow;
  FireSettings fire;
  BlackBodySettings blackBody;
  ThirdSettings third;
  FireLightSettings fireLight;
  FinishSettings finish;
  FilterSettings filters;

  static const host::ParameterTable& Rows();
  void Fill(const host::BaseNode& node);
  void Connect(const host::BaseNode& node, const MELDO_SULVA::Scene& scene);
  /// Every curve and gradient is there.
  bool IsComplete() const;

 private:
  template <class F>
  void ForEachGroup(F&& f);
};

/// The steps of a group in host units, of fields with cells of `cell`.
template <class Group>
WalkSteps StepsOf(const Group& group, double cell) {
  return {std::max(group.step * cell, kShortestStep),
          std::max(group.coarseStep * cell, kShortestStep), group.jitter};
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
