#include "host/render_objects.h"

#include "host/image.h"

namespace MELDO_GLOBAL::host {

namespace {

/// A point that a new node doesn't hold.
ParameterRow TargetRow(i32 id, std::string_view help) {
  ParameterRow row = VectorRow(id, "target", {}, "host", help);
  row.creation = std::monostate{};
  return row;
}

ParameterRow BackgroundRow() {
  ParameterRow row =
      GradientRow(kRenderBackground, "background",
                  "colours of the sky, from straight below (0) to straight above (1)");
  row.creation = Gradient{{{0.5, {0.055, 0.06, 0.07}}, {0.62, {0.03, 0.036, 0.05}}}};
  return row;
}

}  // namespace

const ParameterTable& CameraParameters() {
  static const ParameterTable table = {
      RealRow(kCameraFieldOfView, "field_of_view", 40, "degrees",
              "angle of view across the picture")
          .Range(0.1, 170)
          .To(&CameraSettings::fieldOfView),
      TargetRow(kCameraTarget, "point to look at; without it the camera looks along its -z axis")
          .To(&CameraSettings::target),
      RealRow(kCameraNearClip, "near_clip", 1, "host",
              "hides what is nearer to the camera than this")
          .AtLeast(0)
          .To(&CameraSettings::nearClip),
      RealRow(kCameraFarClip, "far_clip", 1e6, "host",
              "hides what is farther from the camera than this")
          .AtLeast(1e-3)
          .To(&CameraSettings::farClip),
  };
  return table;
}

const ParameterTable& LightParameters() {
  static const ParameterTable table = {
      LongRow(
          kLightKind, "kind", 0, "",
          "point shines all round, spot in a cone, distant like the sun, area from a soft panel")
          .Choices({{0, "point"}, {1, "spot"}, {2, "distant"}, {3, "area"}})
          .To(&LightSettings::kind),
      VectorRow(kLightColour, "colour", {1, 1, 1}, "none",
                "tint of what it throws, linear: [1, 0.9, 0.8] is warm")
          .AtLeast(0)
          .To(&LightSettings::colour),
      RealRow(kLightBrightness, "brightness", 1, "none",
              "factor on the colour; 1 shows a white surface that faces the light as white")
          .AtLeast(0)
          .To(&LightSettings::brightness),
      LongRow(kLightFalloff, "falloff", 2, "", "how fast it gets darker with distance")
          .Choices({{0, "none"}, {1, "inverse"}, {2, "inverse_square"}})
          .To(&LightSettings::falloff),
      RealRow(kLightFalloffDistance, "falloff_distance", 300, "host",
              "distance at which the light has its brightness")
          .AtLeast(1e-3)
          .To(&LightSettings::falloffDistance),
      TargetRow(kLightTarget, "point to shine at; without it the light shines along its -z axis")
          .To(&LightSettings::target),
      RealRow(kLightConeAngle, "cone_angle", 60, "degrees", "opening of a spot's whole cone")
          .Range(0.1, 180)
          .To(&LightSettings::coneAngle),
      RealRow(kLightConeEdge, "cone_edge", 0.3, "none", "part of a spot's cone that fades to black")
          .Range(0, 1)
          .To(&LightSettings::coneEdge),
      VectorRow(kLightSize, "size", {100, 100, 0}, "host",
                "x and y extent of an area light: a larger one throws softer shadows")
          .AtLeast(0)
          .To(&LightSettings::size),
      BoolRow(kLightVolumes, "illuminates_volumes", true, "light smoke too")
          .To(&LightSettings::volumes),
      BoolRow(kLightShadows, "casts_shadows", true, "meshes and smoke block the light")
          .To(&LightSettings::shadows),
  };
  return table;
}

const ParameterTable& SurfaceParameters() {
  static const ParameterTable table = {
      VectorRow(kSurfaceColour, "colour", {0.6, 0.6, 0.6}, "none",
                "how much red, green and blue light it gives back, linear")
          .Range(0, 1)
          .To(&SurfaceSettings::colour),
      RealRow(kSurfaceReflection, "reflection", 0, "none",
              "mirrored part of light from straight ahead")
          .Range(0, 1)
          .To(&SurfaceSettings::reflection),
      RealRow(kSurfaceRoughness, "roughness", 0.2, "none", "0 mirrors sharply, 1 is dull")
          .Range(0, 1)
          .To(&SurfaceSettings::roughness),
      VectorRow(kSurfaceEmission, "emission", {0, 0, 0}, "none",
                "how brightly it shines by itself, in each colour")
          .AtLeast(0)
          .To(&SurfaceSettings::emission),
      LinkRow(kSurfaceColourShader, "colour_shader",
              "paints the surface: multiplies its colour, place by place", {kGridSamplerShader})
          .To(&SurfaceSettings::colourShader),
      LinkRow(kSurfaceEmissionShader, "emission_shader",
              "where it shines by itself: multiplies emission, place by place",
              {kGridSamplerShader})
          .To(&SurfaceSettings::emissionShader),
  };
  return table;
}

const ParameterTable& DielectricParameters() {
  static const ParameterTable table = {
      RealRow(kDielectricIndex, "index", 1.333, "none",
              "how strongly it bends light: water 1.333, ice 1.31, glass 1.5, diamond 2.42")
          .Range(1, 4)
          .To(&DielectricSettings::index),
      VectorRow(kDielectricAbsorption, "absorption", {0.35, 0.07, 0.03}, "1/m",
                "how much red, green and blue a metre of it takes away: the first is largest in "
                "water, which makes deep water blue; 0 is clear at any depth")
          .AtLeast(0)
          .To(&DielectricSettings::absorption),
      RealRow(kDielectricRoughness, "roughness", 0, "none",
              "0 is as smooth as a still surface, more is frosted")
          .Range(0, 1)
          .To(&DielectricSettings::roughness),
      LongRow(kDielectricPriority, "priority", 0, "",
              "where two such bodies overlap, the one with more fills the place: give glass more "
              "than the water in it and let the water reach into the glass")
          .Range(-1000, 1000)
          .To(&DielectricSettings::priority),
  };
  return table;
}

const ParameterTable& RenderParameters() {
  static const ParameterTable table = {
      LongRow(kRenderSamples, "samples", 16, "",
              "camera rays for each pixel: more is less grainy and slower")
          .Range(1, 65536)
          .To(&RenderSettings::samples),
      LongRow(kRenderBlurSamples, "blur_samples", 0, "",
              "moments in which a moving camera or mesh is seen; 0 = no motion blur")
          .Range(0, 256)
          .To(&RenderSettings::blurSamples),
      RealRow(kRenderShutter, "shutter", 0.5, "frames", "how long the shutter is open")
          .Range(0, 1)
          .To(&RenderSettings::shutter),
      RealRow(kRenderExposure, "exposure", 1, "none", "factor on all light of the picture")
          .AtLeast(0)
          .To(&RenderSettings::exposure),
      LongRow(kRenderTone, "tone_curve", 0, "", "soft bends bright light so that it isn't cut off")
          .Choices({{0, "soft"}, {1, "linear"}})
          .To(&RenderSettings::tone),
      BackgroundRow().To(&RenderSettings::background),
      VectorRow(kRenderEnvironment, "environment_colour", {1, 1, 1}, "none",
                "factor on the light that the sky throws on surfaces")
          .AtLeast(0)
          .To(&RenderSettings::environment),
      BoolRow(kRenderGround, "ground", true, "an endless floor to stand on, which takes shadows")
          .To(&RenderSettings::hasGround),
      RealRow(kRenderGroundHeight, "ground_height", 0, "host", "how high that floor lies")
          .To(&RenderSettings::groundHeight),
      VectorRow(kRenderGroundColour, "ground_colour", {0.3, 0.3, 0.3}, "none",
                "part of the light that the ground scatters")
          .Range(0, 1)
          .To(&RenderSettings::groundColour),
      RealRow(kRenderGroundFade, "ground_fade", 1500, "host",
              "distance at which the ground has faded into the sky; 0 = never")
          .AtLeast(0)
          .To(&RenderSettings::groundFade),
      BoolRow(kRenderBounce, "bounce_light", true, "fire, sky and meshes light surfaces")
          .To(&RenderSettings::bounce),
      LinksRow(kRenderHidden, "hidden_objects", "meshes that aren't drawn",
               {kMeshObject, kMesherNode, kGeometryNode})
          .To(&RenderSettings::hidden),
      RealRow(kRenderVolumeBrightness, "volume_brightness", 1, "none",
              "factor on the light of media")
          .AtLeast(0)
          .To(&RenderSettings::volumeBrightness),
      LinkRow(kRenderEnvironmentImage, "environment_image",
              "a picture all round, twice as wide as high, with straight up along its upper edge: "
              "takes the place of the background and lights the scene",
              {kImageObject})
          .To(&RenderSettings::environmentImage),
      RealRow(kRenderEnvironmentTurn, "environment_turn", 0, "degrees",
              "turns that picture about the vertical; at 0 its middle lies in the direction of -z")
          .To(&RenderSettings::environmentTurn),
  };
  return table;
}

}  // namespace MELDO_GLOBAL::host
