// Host nodes that pictures are made of: cameras, lights, materials of surfaces, settings.
//
// Cameras look, and lights shine, along their -z axis with y up, or towards their `target`.
#pragma once
#include "host/node.h"

namespace MELDO_GLOBAL::host {

/// Types of host nodes beside those of `HostType`.
inline constexpr i32 kRenderSettings = 5105;
inline constexpr i32 kSurfaceMaterial = 5106;
/// A colour that fields of a simulation give.
inline constexpr i32 kGridSamplerShader = 1023637;

enum CameraParameter : i32 {
  kCameraFieldOfView = 1000,
  kCameraTarget = 1001,
  kCameraNearClip = 1002,
  kCameraFarClip = 1003,
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
const ParameterTable& LightParameters();

enum SurfaceParameter : i32 {
  kSurfaceColour = 1000,
  kSurfaceReflection = 1001,
  kSurfaceRoughness = 1002,
  kSurfaceEmission = 1003,
  kSurfaceColourShader = 1004,
  kSurfaceEmissionShader = 1005,
};
const ParameterTable& SurfaceParameters();

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
};
enum class ToneCurve : i32 { Soft, Linear };
const ParameterTable& RenderParameters();

}  // namespace MELDO_GLOBAL::host
