// Host nodes that pictures are made of: cameras, lights, materials of surfaces, settings.
//
// Cameras look, and lights shine, along their -z axis with y up, or towards their `target`. What
// their rows say fills a struct beside the numbers; pointers lead into the node, and are null where
// it doesn't hold the parameter.
#pragma once
#include "host/node.h"

namespace MELDO_GLOBAL::host {

/// Types of host nodes beside those of `HostType`.
inline constexpr i32 kRenderSettings = 5105;
inline constexpr i32 kSurfaceMaterial = 5106;
inline constexpr i32 kParticleMaterial = 5107;
inline constexpr i32 kDielectricMaterial = 5109;
/// A colour that fields of a simulation give.
inline constexpr i32 kGridSamplerShader = 1023637;

enum CameraParameter : i32 {
  kCameraFieldOfView = 1000,
  kCameraTarget = 1001,
  kCameraNearClip = 1002,
  kCameraFarClip = 1003,
};
struct CameraSettings : ParameterHolder {
  double fieldOfView = 40;  ///< degrees
  const Vec3d* target = nullptr;
  double nearClip = 1, farClip = 1e6;
};
const ParameterTable& CameraParameters();

enum LightParameter : i32 {
  kLightKind = 1000,
  kLightColour = 1001,
  kLightBrightness = 1002,
  kLightFalloff = 1003,
  kLightFalloffDistance = 1004,
  kLightTarget = 1005,
  kLightConeAngle = 1006,
  kLightConeEdge = 1007,
  kLightSize = 1008,
  kLightVolumes = 1009,
  kLightShadows = 1010,
};
enum class LightKind : i32 { Point, Spot, Distant, Area };
enum class Falloff : i32 { None, Inverse, InverseSquare };
struct LightSettings : ParameterHolder {
  LightKind kind = LightKind::Point;
  Vec3d colour{1, 1, 1};
  double brightness = 1;
  Falloff falloff = Falloff::InverseSquare;
  double falloffDistance = 300;
  const Vec3d* target = nullptr;
  double coneAngle = 60;  ///< degrees
  double coneEdge = 0.3;
  Vec3d size{100, 100, 0};
  bool volumes = true, shadows = true;
};
const ParameterTable& LightParameters();

enum SurfaceParameter : i32 {
  kSurfaceColour = 1000,
  kSurfaceReflection = 1001,
  kSurfaceRoughness = 1002,
  kSurfaceEmission = 1003,
  kSurfaceColourShader = 1004,
  kSurfaceEmissionShader = 1005,
};
struct SurfaceSettings : ParameterHolder {
  Vec3d colour{0.6, 0.6, 0.6};
  double reflection = 0, roughness = 0.2;
  Vec3d emission{};
  const Link* colourShader = nullptr;
  const Link* emissionShader = nullptr;
};
const ParameterTable& SurfaceParameters();

enum DielectricParameter : i32 {
  kDielectricIndex = 1000,
  kDielectricAbsorption = 1001,
  kDielectricRoughness = 1002,
  kDielectricPriority = 1003,
};
/// A body that light goes through: water, glass, ice.
struct DielectricSettings : ParameterHolder {
  double index = 1.333;
  Vec3d absorption{0.35, 0.07, 0.03};  ///< 1/m
  double roughness = 0;
  i32 priority = 0;
};
const ParameterTable& DielectricParameters();

enum RenderParameter : i32 {
  kRenderSamples = 1000,
  kRenderBlurSamples = 1001,
  kRenderShutter = 1002,
  kRenderExposure = 1003,
  kRenderTone = 1004,
  kRenderBackground = 1005,
  kRenderEnvironment = 1006,
  kRenderGround = 1007,
  kRenderGroundHeight = 1008,
  kRenderGroundColour = 1009,
  kRenderGroundFade = 1010,
  kRenderBounce = 1011,
  kRenderHidden = 1012,
  kRenderVolumeBrightness = 1013,
  kRenderEnvironmentImage = 1014,
  kRenderEnvironmentTurn = 1015,
};
enum class ToneCurve : i32 { Soft, Linear };
struct RenderSettings : ParameterHolder {
  i32 samples = 16, blurSamples = 0;
  double shutter = 0.5;  ///< frames
  double exposure = 1;
  ToneCurve tone = ToneCurve::Soft;
  const Gradient* background = nullptr;
  Vec3d environment{1, 1, 1};
  bool hasGround = true;
  double groundHeight = 0, groundFade = 1500;
  Vec3d groundColour{0.3, 0.3, 0.3};
  bool bounce = true;
  const InExcludeData* hidden = nullptr;
  double volumeBrightness = 1;
  const Link* environmentImage = nullptr;
  double environmentTurn = 0;  ///< degrees
};
const ParameterTable& RenderParameters();

}  // namespace MELDO_GLOBAL::host
