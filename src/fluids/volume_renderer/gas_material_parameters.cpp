// The rows of the gas material.
#include "fluids/emitters/channel_kinds.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/volume_renderer/gas_material.h"
#include "fluids/volume_renderer/phase_functions.h"
#include "host/noise.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace host;

namespace {

ParameterRow StraightCurveRow(i32 id, std::string_view name, std::string_view help) {
  ParameterRow row = CurveRow(id, name, help);
  row.creation = SplineData{{{0, 0}, {1, 1}}};
  row.missing = Value{};
  return row;
}

ParameterRow FilledGradientRow(i32 id, std::string_view name, Gradient value,
                               std::string_view help) {
  ParameterRow row = GradientRow(id, name, help);
  row.creation = std::move(value);
  row.missing = Value{};
  return row;
}

Gradient White() { return {{{0, {1, 1, 1}}, {1, {1, 1, 1}}}}; }
Gradient Flames() {
  return {{{0, {0, 0, 0}}, {0.25, {0.6, 0.05, 0}}, {0.6, {1, 0.45, 0.05}}, {1, {1, 0.95, 0.7}}}};
}

std::vector<Choice> PhaseChoices() {
  using Phase = PhaseFunction;
  return {{Phase::kIsotropic, "isotropic"},
          {Phase::kHenyeyGreenstein, "henyey_greenstein"},
          {Phase::kRayleigh, "rayleigh"},
          {Phase::kMie, "mie"},
          {Phase::kMieHazy, "mie_hazy"},
          {Phase::kMieMurky, "mie_murky"},
          {Phase::kSchlick, "schlick"},
          {Phase::kDoubleHenyeyGreenstein, "double_henyey_greenstein"},
          {Phase::kCornetteShanks, "cornette_shanks"}};
}

std::vector<Choice> FilterChoices() { return {{0, "linear"}, {1, "cubic"}}; }
std::vector<Choice> SamplingChoices() {
  return {{0, "linear"}, {1, "cosine"}, {2, "cubic"}, {3, "monotonic"}, {4, "bspline"}};
}
std::vector<Choice> SystemChoices() {
  return {{0, "ntsc"}, {1, "ebu"}, {2, "smpte"}, {3, "hdtv"}, {4, "cie"}, {5, "rec709"}};
}
std::vector<Choice> ColourModes() { return {{0, "blackbody"}, {1, "gradient"}}; }

constexpr double kSmallestStep = 0.01;  ///< cells

void AddFields(ParameterTable& t) {
  const std::vector<i32> kinds = MELDO_SULVA::ChannelKinds();
  t.push_back(LinkRow(2200, "smoke", "channel that is seen as smoke", kinds));
  t.push_back(LinkRow(2225, "smoke_colour", "vector channel of the smoke's colour", kinds));
  t.push_back(LinkRow(2551, "fire", "channel of temperatures that is seen as fire", kinds));
  t.push_back(LinkRow(2552, "third_field", "channel that may decide what glows", kinds));
  t.push_back(LinkRow(2203, "displacement_solver", "solver whose flow moves the samples", {}));
  t.push_back(RealRow(2202, "displacement", 0, "s", "time by which smoke is moved along the flow"));
  t.push_back(
      RealRow(2553, "fire_displacement", 0, "s", "the same for fire; 0 takes that of the smoke"));
  t.push_back(RealRow(2201, "fire_density", 0.02, "", "density of fire where there is no smoke"));
  t.push_back(LinksRow(2158, "lights", "the lights that count; empty for all", {}));
}

void AddQuality(ParameterTable& t) {
  t.push_back(RealRow(2150, "resolution", 1, "", "of the copies of the fields").Range(0.05, 8));
  t.push_back(BoolRow(2151, "full_resolution_in_final", false,
                      "pictures that are no previews use resolution 1"));
  t.push_back(LongRow(2152, "resolution_sampling", 0, "", "how the copies are read")
                  .Choices(SamplingChoices()));
  t.push_back(RealRow(2153, "jitter", 1, "steps", "random start of a ray").Range(0, 1));
  t.push_back(RealRow(2154, "step", 1, "cells", "step inside the medium").AtLeast(kSmallestStep));
  t.push_back(
      RealRow(2155, "coarse_step", 2.5, "cells", "step in empty space").AtLeast(kSmallestStep));
  t.push_back(
      LongRow(2156, "filter", 0, "", "reading of smoke and third field").Choices(FilterChoices()));
  t.push_back(BoolRow(2157, "early_exit", true, "a ray ends where nothing more shines through"));
  t.push_back(BoolRow(2159, "trapezoid", true, "average each step with the one before"));
}

void AddSmoke(ParameterTable& t) {
  t.push_back(FilledGradientRow(2227, "smoke_gradient", White(), "colour by smoke value"));
  t.push_back(BoolRow(2250, "smoke_bypass", false, "smoke counts without curve and noise"));
  t.push_back(RealRow(2251, "density", 1, "", "multiplies the smoke").AtLeast(0));
  t.push_back(StraightCurveRow(2252, "smoke_curve", "seen smoke by smoke, 0..1 of the range"));
  t.push_back(LongRow(2253, "smoke_blur_rounds", 0, "", "rounds of blur").Range(0, 100));
  t.push_back(RealRow(2254, "smoke_blur", 0.7, "cells", "width of a round").AtLeast(0));
  t.push_back(LinksRow(2255, "smoke_filters", "constraints and ramps on the smoke", {}));
  t.push_back(LinksRow(2461, "colour_filters", "constraints and ramps on the smoke's colour", {}));
  t.push_back(BoolRow(2301, "noise", false, "noise multiplies the smoke"));
  t.push_back(LongRow(2302, "noise_space", 0, "", "where the noise rests")
                  .Choices({{0, "world"}, {1, "simulation"}}));
  t.push_back(StraightCurveRow(2303, "noise_curve", "factor by noise, 0..1"));
  t.push_back(LongRow(2304, "noise_seed", 665, "", "seed of the noise"));
  t.push_back(LongRow(2305, "noise_type", 13, "", "kind of noise").Choices(NoiseChoices()));
  t.push_back(RealRow(2306, "noise_scale", 1, "", "size of its features, in units of the space"));
  t.push_back(VectorRow(2307, "noise_axes", {1, 1, 1}, "", "size along each axis"));
  t.push_back(RealRow(2308, "noise_octaves", 3, "", "octaves").Range(1, 16));
  t.push_back(RealRow(2314, "noise_cut_low", 0, "", "noise below is 0"));
  t.push_back(RealRow(2315, "noise_cut_high", 1, "", "noise above is 1"));
  t.push_back(RealRow(2316, "noise_offset", 0, "", "added to the noise"));
  t.push_back(RealRow(2317, "noise_contrast", 1, "", "stretches the noise about 0.5"));
}

void AddScattering(ParameterTable& t) {
  t.push_back(VectorRow(2350, "ambient", {0, 0, 0}, "", "light that comes from everywhere"));
  t.push_back(RealRow(2351, "absorption", 0.1, "1/host", "light lost on the way").AtLeast(0));
  t.push_back(RealRow(2352, "scattering", 0.6, "1/host", "light thrown to the viewer").AtLeast(0));
  t.push_back(LongRow(2353, "phase_function", 1, "", "where light is scattered to")
                  .Choices(PhaseChoices()));
  t.push_back(RealRow(2354, "anisotropy", 0.6, "", "1 straight on, -1 straight back").Range(-1, 1));
  t.push_back(RealRow(2355, "phase_scale", 1, "", "multiplies the phase function"));
  t.push_back(RealRow(2356, "anisotropy_2", 0, "", "of the second lobe").Range(-1, 1));
  t.push_back(LinksRow(2357, "absorption_filters", "constraints on absorption", {}));
  t.push_back(LinksRow(2358, "scattering_filters", "constraints on scattering", {}));
  t.push_back(LinksRow(2359, "anisotropy_filters", "constraints on anisotropy", {}));
  t.push_back(LinksRow(2360, "phase_scale_filters", "constraints on phase_scale", {}));
  t.push_back(BoolRow(2456, "grey_absorption", false, "coloured smoke absorbs all colours alike"));
}

void AddMultiple(ParameterTable& t) {
  t.push_back(BoolRow(2400, "multiple_scattering", false, "light spreads inside the smoke"));
  t.push_back(BoolRow(2401, "multiple_uniform", false, "take smoke of its mean density"));
  t.push_back(RealRow(2402, "multiple_resolution", 0.5, "", "of its maps").Range(0.05, 2));
  t.push_back(RealRow(2403, "multiple_distance", 1, "", "scales the way of the light"));
  t.push_back(RealRow(2405, "multiple_absorption", 0.1, "1/host", "as absorption").AtLeast(0));
  t.push_back(RealRow(2406, "multiple_scattering_rate", 0.6, "1/host", "as scattering").AtLeast(0));
  t.push_back(
      RealRow(2407, "multiple_spread", 0.2, "", "mean square of the angle of an event").AtLeast(0));
  t.push_back(RealRow(2408, "multiple_minimum_depth", 0.01, "",
                      "smoke in front, in scattering depth, before anything counts"));
  t.push_back(
      RealRow(2409, "multiple_step", 1, "cells", "step of its rays").AtLeast(kSmallestStep));
  t.push_back(RealRow(2410, "multiple_blur", 1, "cells", "blur between two levels").AtLeast(0));
  t.push_back(RealRow(2411, "multiple_density", 1, "", "weight of the smoke").AtLeast(0));
  t.push_back(BoolRow(2412, "multiple_same_absorption", false, "use absorption"));
  t.push_back(BoolRow(2413, "multiple_same_step", false, "use step"));
  t.push_back(BoolRow(2414, "multiple_own_view_spread", false, "use multiple_view_spread"));
  t.push_back(RealRow(2415, "multiple_view_spread", 0.55, "", "spread for the angle to the viewer")
                  .AtLeast(0));
  t.push_back(RealRow(2416, "multiple_strength", 1, "", "multiplies it").AtLeast(0));
  t.push_back(LinksRow(2417, "multiple_rate_filters", "constraints on its scattering", {}));
  t.push_back(LinksRow(2418, "multiple_density_filters", "constraints on its density", {}));
  t.push_back(LinksRow(2419, "multiple_anisotropy_filters", "constraints on its anisotropy", {}));
  t.push_back(LinksRow(2420, "multiple_strength_filters", "constraints on its strength", {}));
}

void AddShadows(ParameterTable& t) {
  t.push_back(RealRow(2450, "shadow_jitter", 1, "steps", "random start").Range(0, 1));
  t.push_back(RealRow(2451, "shadow_step", 1, "cells", "step inside").AtLeast(kSmallestStep));
  t.push_back(
      RealRow(2452, "shadow_coarse_step", 2.5, "cells", "step outside").AtLeast(kSmallestStep));
  t.push_back(RealRow(2453, "shadow_density", 0.1, "1/host", "absorption of light").AtLeast(0));
  t.push_back(VectorRow(2454, "shadow_colour", {1, 1, 1}, "", "which light is absorbed"));
  t.push_back(RealRow(2455, "light_map_resolution", 0.5, "", "cells of the light maps per cell")
                  .Range(0.05, 2));
  t.push_back(LongRow(2457, "light_map_blur_rounds", 0, "", "rounds of blur").Range(0, 100));
  t.push_back(RealRow(2458, "light_map_blur", 0.7, "cells", "width of a round").AtLeast(0));
  t.push_back(BoolRow(2460, "shadow_trapezoid", true, "average each step with the one before"));
  t.push_back(
      LongRow(2463, "light_map_layers", 1, "cells", "light beyond the smoke's edge").Range(0, 16));
  t.push_back(BoolRow(2464, "shadow_ignores_smoke_colour", false,
                      "coloured smoke absorbs all light alike"));
  t.push_back(BoolRow(2500, "object_shadows", true, "objects throw shadows into the smoke"));
  t.push_back(BoolRow(2501, "shadow_on_objects", true, "smoke throws shadows on objects"));
  t.push_back(RealRow(2502, "object_shadow_strength", 1, "", "of that shadow").Range(0, 1));
  t.push_back(RealRow(2503, "object_shadow_jitter", 1, "steps", "random start").Range(0, 1));
  t.push_back(
      RealRow(2504, "object_shadow_step", 1, "cells", "step inside").AtLeast(kSmallestStep));
  t.push_back(RealRow(2505, "object_shadow_coarse_step", 2.5, "cells", "step outside")
                  .AtLeast(kSmallestStep));
  t.push_back(VectorRow(2506, "object_shadow_colour", {0, 0, 0}, "", "colour of that shadow"));
  t.push_back(RealRow(2507, "extra_object_shadow", 0, "",
                      "objects shadow each sample again, finer than the light maps"));
  t.push_back(VectorRow(2508, "extra_object_shadow_colour", {0, 0, 0}, "", "colour of that"));
}

void AddFire(ParameterTable& t) {
  t.push_back(RealRow(2554, "gi_scale", 5, "", "multiplies what indirect light sees").AtLeast(0));
  t.push_back(LongRow(2556, "emission_by", 0, "", "which field glows")
                  .Choices({{0, "fire"}, {1, "third_field"}}));
  t.push_back(LongRow(2600, "fire_colour_mode", 0, "", "colour of fire").Choices(ColourModes()));
  t.push_back(FilledGradientRow(2602, "fire_gradient", Flames(), "colour over the range"));
  t.push_back(LongRow(2603, "blackbody_system", 4, "", "primaries of the display")
                  .Choices(SystemChoices()));
  t.push_back(VectorRow(2604, "blackbody_tint", {1, 1, 1}, "", "multiplies X, Y, Z"));
  t.push_back(RealRow(2605, "blackbody_scale", 1, "", "multiplies the temperature").AtLeast(0));
  t.push_back(BoolRow(2607, "blackbody_gamma", true, "apply the display's curve"));
  t.push_back(BoolRow(2608, "blackbody_adapt", false, "the hottest colour is white"));
  t.push_back(RealRow(2650, "fire_threshold", 800, "K", "colder fire is not seen"));
  t.push_back(StraightCurveRow(2651, "fire_curve", "seen temperature, 0..1 of the range"));
  t.push_back(LongRow(2652, "fire_blur_rounds", 0, "", "rounds of blur").Range(0, 100));
  t.push_back(RealRow(2653, "fire_blur", 0.7, "cells", "width of a round").AtLeast(0));
  t.push_back(LinksRow(2654, "fire_filters", "constraints and ramps on the fire", {}));
  t.push_back(RealRow(2700, "third_threshold", 0.6, "", "third field up to this is not seen"));
  t.push_back(StraightCurveRow(2701, "third_curve", "seen third field, 0..1 of the range"));
  t.push_back(LongRow(2702, "third_blur_rounds", 0, "", "rounds of blur").Range(0, 100));
  t.push_back(RealRow(2703, "third_blur", 0.7, "cells", "width of a round").AtLeast(0));
  t.push_back(LinksRow(2704, "third_filters", "constraints and ramps on the third field", {}));
  t.push_back(RealRow(2750, "fire_intensity", 0.6, "1/host", "brightness of fire").AtLeast(0));
  t.push_back(RealRow(2756, "fire_extinction", 0, "1/host", "absorption of fire").AtLeast(0));
}

void AddFireLight(ParameterTable& t) {
  t.push_back(
      RealRow(2752, "fire_light_radius", 100, "host", "reach of the fire's light").AtLeast(0));
  t.push_back(
      LongRow(2753, "fire_light_mode", 0, "", "colour of that light").Choices(ColourModes()));
  t.push_back(FilledGradientRow(2754, "fire_light_gradient", Flames(), "its colour by strength"));
  t.push_back(RealRow(2755, "fire_light_scale", 2, "", "scales its temperature").AtLeast(0));
  t.push_back(RealRow(2757, "fire_light", 0, "", "brightness; 0 for none").AtLeast(0));
  t.push_back(StraightCurveRow(2759, "fire_light_curve", "what becomes of reach and strength"));
  t.push_back(BoolRow(2760, "fire_light_directed", false, "that light has a direction"));
}

void AddOutput(ParameterTable& t) {
  t.push_back(RealRow(2800, "glow", 0, "", "light added by opacity"));
  t.push_back(FilledGradientRow(2801, "glow_gradient", White(), "its colour by opacity"));
  t.push_back(RealRow(2802, "opacity_light", 0, "", "opacity added to the colour"));
  t.push_back(RealRow(2803, "transmission_contrast", 0, "", "contrast of what shines through"));
  t.push_back(RealRow(2804, "saturation", 1, "", "of the colour").AtLeast(0));
  t.push_back(BoolRow(2862, "seen_by_camera", true, "false: only shadows are left"));
  t.push_back(BoolRow(2863, "seen_by_gi", true, "indirect light sees it"));
  t.push_back(BoolRow(2864, "seen_by_transparency", true, "rays through glass see it"));
  t.push_back(BoolRow(2865, "seen_by_refraction", true, "refracted rays see it"));
  t.push_back(BoolRow(2866, "seen_by_reflection", true, "reflected rays see it"));
  t.push_back(BoolRow(2867, "seen_by_ao", true, "ambient occlusion sees it"));
}

}  // namespace

const ParameterTable& C4D_GasRenderer_Material::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable t;
    AddFields(t);
    AddQuality(t);
    AddSmoke(t);
    AddScattering(t);
    AddMultiple(t);
    AddShadows(t);
    AddFire(t);
    AddFireLight(t);
    AddOutput(t);
    return t;
  }();
  return table;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
