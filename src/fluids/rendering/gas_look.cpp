#include "fluids/rendering/gas_look.h"

#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/rendering/phase_functions.h"
#include "framework/scene.h"
#include "host/noise.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace host;
using namespace MELDO_SULVA;

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

ParameterRow FilterRow(i32 id, std::string_view name, std::string_view help) {
  return LinksRow(id, name, help, {ChannelOperator_Remap::kPluginId})
      .AcceptsAny({kListAuxiliary, kCategoryConstraint});
}

constexpr double kSmallestStep = 0.01;  ///< cells

ParameterTable FieldRows() {
  return {
      LinkRow(2200, "smoke", "channel that is seen as smoke")
          .AcceptsAny(kScalarChannels)
          .To(&FieldSettings::smoke),
      LinkRow(2225, "smoke_colour", "vector channel of the smoke's colour")
          .AcceptsAny(kVectorChannels)
          .To(&FieldSettings::smokeColour),
      LinkRow(2551, "fire", "channel of temperatures that is seen as fire")
          .AcceptsAny(kScalarChannels)
          .To(&FieldSettings::fire),
      LinkRow(2552, "third_field", "channel that may decide what glows")
          .AcceptsAny(kScalarChannels)
          .To(&FieldSettings::third),
      LinkRow(2203, "displacement_solver", "solver whose flow moves the samples")
          .AcceptsAny(kSolvers)
          .To(&FieldSettings::displacementSolver),
      RealRow(2202, "displacement", 0, "s", "time by which smoke is moved along the flow")
          .To(&DisplacementSettings::smoke),
      RealRow(2553, "fire_displacement", 0, "s", "the same for fire; 0 takes that of the smoke")
          .To(&DisplacementSettings::fire),
      RealRow(2201, "fire_density", 0.02, "none", "density of fire where there is no smoke")
          .To(&FireSettings::density),
      LinksRow(2158, "lights", "the lights that count; empty for all", {host::kLightObject})
          .To(&FieldSettings::lights),
  };
}

ParameterTable QualityRows() {
  return {
      RealRow(2150, "resolution", 1, "none",
              "finer or coarser copies of the fields to look at: below 1 is quicker and softer")
          .Range(0.05, 8)
          .To(&CopySettings::resolution),
      BoolRow(2151, "full_resolution_in_final", false,
              "pictures that are no previews use resolution 1")
          .To(&CopySettings::fullInFinal),
      LongRow(2152, "resolution_sampling", 0, "", "how those copies are made from the fields")
          .Choices(SamplingChoices())
          .To(&CopySettings::sampling),
      RealRow(2153, "jitter", 1, "steps", "grain instead of bands: each ray starts at random")
          .Range(0, 1)
          .To(&ViewSettings::jitter),
      RealRow(2154, "step", 1, "cells",
              "how finely a ray looks through smoke: longer is quicker and shows bands")
          .AtLeast(kSmallestStep)
          .To(&ViewSettings::step),
      RealRow(2155, "coarse_step", 2.5, "cells",
              "how finely a ray looks through empty air before it meets smoke")
          .AtLeast(kSmallestStep)
          .To(&ViewSettings::coarseStep),
      LongRow(2156, "filter", 0, "",
              "how smoke and third field are read between cells: smoother or sharper")
          .Choices(FilterChoices())
          .To(&ViewSettings::filter),
      BoolRow(2157, "early_exit", true, "a ray ends where nothing more shines through")
          .To(&ViewSettings::earlyExit),
      BoolRow(2159, "trapezoid", true, "average each step with the one before")
          .To(&ViewSettings::trapezoid),
  };
}

ParameterTable SmokeRows() {
  return {
      FilledGradientRow(2227, "smoke_gradient", White(), "tint of thin (0) to thick (1) smoke")
          .To(&SmokeSettings::gradient),
      BoolRow(2250, "smoke_bypass", false, "smoke counts without curve and noise")
          .To(&SmokeSettings::bypass),
      RealRow(2251, "density", 1, "none",
              "thicker or thinner smoke in the picture alone, without a new simulation")
          .AtLeast(0)
          .To(&SmokeSettings::density),
      StraightCurveRow(2252, "smoke_curve",
                       "how thick thin and thick smoke look: below the diagonal clears the haze")
          .To(&SmokeSettings::curve),
      LongRow(2253, "smoke_blur_rounds", 0, "", "how often smoke is softened before it is drawn")
          .Range(0, 100)
          .To(&SmokeSettings::blurRounds),
      RealRow(2254, "smoke_blur", 0.7, "cells", "how far each softening of smoke reaches")
          .AtLeast(0)
          .To(&SmokeSettings::blur),
      FilterRow(2255, "smoke_filters",
                "constraints and ramps that say where smoke shows, and how thick")
          .To(&FilterSettings::smokeGrid),
      FilterRow(2461, "colour_filters", "constraints and ramps on the smoke's colour")
          .To(&FilterSettings::colourGrid),
      BoolRow(2301, "noise", false, "breaks smoke up with a pattern, finer than its cells")
          .To(&NoiseSettings::on),
      LongRow(2302, "noise_space", 0, "",
              "whether the pattern stands still or moves with the smoke")
          .Choices({{0, "world"}, {1, "simulation"}})
          .To(&NoiseSettings::space),
      StraightCurveRow(2303, "noise_curve",
                       "how much smoke is left where the pattern is low (0) and high (1)")
          .To(&NoiseSettings::curve),
      LongRow(2304, "noise_seed", 665, "", "another number gives another pattern")
          .To(&NoiseSettings::seed),
      LongRow(2305, "noise_type", 13, "", "what the pattern looks like: clouds, cells, veins")
          .Choices(NoiseChoices())
          .To(&NoiseSettings::type),
      RealRow(2306, "noise_scale", 1, "none", "large billows or fine grain, in units of the space")
          .To(&NoiseSettings::scale),
      VectorRow(2307, "noise_axes", {1, 1, 1}, "none", "stretches the pattern along each axis")
          .To(&NoiseSettings::axes),
      RealRow(2308, "noise_octaves", 3, "none",
              "how much fine grain lies on top of the large shapes")
          .Range(1, 16)
          .To(&NoiseSettings::octaves),
      RealRow(2314, "noise_cut_low", 0, "none",
              "where the pattern lies below this, smoke has a hole")
          .To(&NoiseSettings::cutLow),
      RealRow(2315, "noise_cut_high", 1, "none",
              "where the pattern lies above this, smoke stays whole")
          .To(&NoiseSettings::cutHigh),
      RealRow(2316, "noise_offset", 0, "none",
              "more (above 0) or less (below 0) smoke between the holes")
          .To(&NoiseSettings::offset),
      RealRow(2317, "noise_contrast", 1, "none",
              "hard holes or soft ones: stretches the pattern about 0.5")
          .To(&NoiseSettings::contrast),
  };
}

ParameterTable ScatteringRows() {
  return {
      VectorRow(2350, "ambient", {0, 0, 0}, "none", "light that comes from everywhere")
          .To(&ScatteringSettings::ambient),
      RealRow(2351, "absorption", 0.1, "1/host", "light lost on the way")
          .AtLeast(0)
          .To(&ScatteringSettings::absorption),
      RealRow(2352, "scattering", 0.6, "1/host", "light thrown to the viewer")
          .AtLeast(0)
          .To(&ScatteringSettings::scattering),
      LongRow(2353, "phase_function", 1, "", "where light is scattered to")
          .Choices(PhaseChoices())
          .To(&ScatteringSettings::phase),
      RealRow(2354, "anisotropy", 0.6, "none",
              "where light goes in smoke: towards 1 it glows against the lamp, towards -1 with it")
          .Range(-1, 1)
          .To(&ScatteringSettings::anisotropy),
      RealRow(2355, "phase_scale", 1, "none",
              "a handle on how much light the chosen phase function gives")
          .To(&ScatteringSettings::phaseScale),
      RealRow(2356, "anisotropy_2", 0, "none", "the same for the second lobe of light")
          .Range(-1, 1)
          .To(&ScatteringSettings::anisotropy2),
      FilterRow(2357, "absorption_filters", "constraints and ramps that say where smoke is dark")
          .To(&FilterSettings::absorption),
      FilterRow(2358, "scattering_filters", "constraints and ramps that say where smoke is bright")
          .To(&FilterSettings::scattering),
      FilterRow(2359, "anisotropy_filters",
                "constraints and ramps on where light goes in the smoke")
          .To(&FilterSettings::anisotropy),
      FilterRow(2360, "phase_scale_filters",
                "constraints and ramps on how bright the phase function is")
          .To(&FilterSettings::phaseScale),
      BoolRow(2456, "grey_absorption", false, "coloured smoke absorbs all colours alike")
          .To(&ScatteringSettings::greyAbsorption),
  };
}

ParameterTable MultipleRows() {
  return {
      BoolRow(2400, "multiple_scattering", false, "light spreads inside the smoke")
          .To(&MultipleSettings::on),
      BoolRow(2401, "multiple_uniform", false, "take smoke of its mean density")
          .To(&MultipleSettings::uniform),
      RealRow(2402, "multiple_resolution", 0.5, "none",
              "finer or coarser maps of the light that spreads: below 1 is quicker and softer")
          .Range(0.05, 2)
          .To(&MultipleSettings::resolution),
      RealRow(2403, "multiple_distance", 1, "none", "scales the way of the light")
          .To(&MultipleSettings::distanceScale),
      RealRow(2405, "multiple_absorption", 0.1, "1/host",
              "how soon spreading light dies out in the smoke")
          .AtLeast(0)
          .To(&MultipleSettings::absorption),
      RealRow(2406, "multiple_scattering_rate", 0.6, "1/host",
              "how much light spreads: higher makes clouds glow from inside")
          .AtLeast(0)
          .To(&MultipleSettings::scattering),
      RealRow(2407, "multiple_spread", 0.2, "none", "mean square of the angle of an event")
          .AtLeast(0)
          .To(&MultipleSettings::spread),
      RealRow(2408, "multiple_minimum_depth", 0.01, "none",
              "smoke in front, in scattering depth, before anything counts")
          .To(&MultipleSettings::minimumDepth),
      RealRow(2409, "multiple_step", 1, "cells",
              "how finely spreading light is followed: longer is quicker and rougher")
          .AtLeast(kSmallestStep)
          .To(&MultipleSettings::step),
      RealRow(2410, "multiple_blur", 1, "cells", "blur between two levels")
          .AtLeast(0)
          .To(&MultipleSettings::blur),
      RealRow(2411, "multiple_density", 1, "none",
              "how thick the smoke is to light that spreads inside of it")
          .AtLeast(0)
          .To(&MultipleSettings::density),
      BoolRow(2412, "multiple_same_absorption", false, "takes the rate of the parameter absorption")
          .To(&MultipleSettings::sameAbsorption),
      BoolRow(2413, "multiple_same_step", false, "takes the length of the parameter step")
          .To(&MultipleSettings::sameStep),
      BoolRow(
          2414, "multiple_own_view_spread", false,
          "multiple_view_spread stands for the angle instead of multiple_spread, as a second look")
          .To(&MultipleSettings::ownViewSpread),
      RealRow(2415, "multiple_view_spread", 0.55, "none",
              "mean square of the angle of an event, where that is chosen")
          .AtLeast(0)
          .To(&MultipleSettings::viewSpread),
      RealRow(2416, "multiple_strength", 1, "none", "how bright the spread light is in the end")
          .AtLeast(0)
          .To(&MultipleSettings::strength),
      FilterRow(2417, "multiple_rate_filters", "constraints and ramps that say where light spreads")
          .To(&FilterSettings::multipleRate),
      FilterRow(2418, "multiple_density_filters",
                "constraints and ramps on how thick the smoke is to spreading light")
          .To(&FilterSettings::multipleDensity),
      FilterRow(2419, "multiple_anisotropy_filters",
                "constraints and ramps on where spreading light goes")
          .To(&FilterSettings::multipleAnisotropy),
      FilterRow(2420, "multiple_strength_filters",
                "constraints and ramps on how bright spread light is")
          .To(&FilterSettings::multipleStrength),
  };
}

ParameterTable ShadowRows() {
  return {
      RealRow(2450, "shadow_jitter", 1, "steps", "grain instead of bands in the shadows of smoke")
          .Range(0, 1)
          .To(&ShadowSettings::jitter),
      RealRow(2451, "shadow_step", 1, "cells",
              "how finely shadows are worked out inside smoke: longer is quicker and rougher")
          .AtLeast(kSmallestStep)
          .To(&ShadowSettings::step),
      RealRow(2452, "shadow_coarse_step", 2.5, "cells", "the same in the empty air round it")
          .AtLeast(kSmallestStep)
          .To(&ShadowSettings::coarseStep),
      RealRow(2453, "shadow_density", 0.1, "1/host",
              "how dark the shadows are that smoke throws, on itself and the ground")
          .AtLeast(0)
          .To(&ShadowSettings::density),
      VectorRow(2454, "shadow_colour", {1, 1, 1}, "none", "which light is absorbed")
          .To(&ShadowSettings::colour),
      RealRow(2455, "light_map_resolution", 0.5, "none",
              "finer or coarser stored light, in its cells per cell of smoke: lower is "
              "quicker and softer")
          .Range(0.05, 2)
          .To(&ShadowSettings::mapResolution),
      LongRow(2457, "light_map_blur_rounds", 0, "", "how often the stored light is softened")
          .Range(0, 100)
          .To(&ShadowSettings::mapBlurRounds),
      RealRow(2458, "light_map_blur", 0.7, "cells", "how far each softening of the light reaches")
          .AtLeast(0)
          .To(&ShadowSettings::mapBlur),
      BoolRow(2460, "shadow_trapezoid", true, "average each step with the one before")
          .To(&ShadowSettings::trapezoid),
      LongRow(2463, "light_map_layers", 1, "cells",
              "how far stored light goes on beyond the smoke's edge")
          .Range(0, 16)
          .To(&ShadowSettings::mapLayers),
      BoolRow(2464, "shadow_ignores_smoke_colour", false, "coloured smoke absorbs all light alike")
          .To(&ShadowSettings::ignoresColour),
      BoolRow(2500, "object_shadows", true, "objects throw shadows into the smoke")
          .To(&ObjectShadowSettings::inSmoke),
      BoolRow(2501, "shadow_on_objects", true, "darkens the ground and meshes behind smoke")
          .To(&ObjectShadowSettings::onObjects),
      RealRow(2502, "object_shadow_strength", 1, "none",
              "how dark smoke's shadow on objects is: 0 none, 1 full")
          .Range(0, 1)
          .To(&ObjectShadowSettings::strength),
      RealRow(2503, "object_shadow_jitter", 1, "steps",
              "grain instead of bands in smoke's shadow on objects")
          .Range(0, 1)
          .To(&ObjectShadowSettings::jitter),
      RealRow(2504, "object_shadow_step", 1, "cells",
              "how finely that shadow is worked out inside smoke")
          .AtLeast(kSmallestStep)
          .To(&ObjectShadowSettings::step),
      RealRow(2505, "object_shadow_coarse_step", 2.5, "cells", "the same in the empty air round it")
          .AtLeast(kSmallestStep)
          .To(&ObjectShadowSettings::coarseStep),
      VectorRow(2506, "object_shadow_colour", {0, 0, 0}, "none",
                "tint of the shadow that smoke throws on objects")
          .To(&ObjectShadowSettings::colour),
      RealRow(2507, "extra_object_shadow", 0, "none",
              "objects shadow each sample again, finer than the light maps")
          .To(&ObjectShadowSettings::extra),
      VectorRow(2508, "extra_object_shadow_colour", {0, 0, 0}, "none",
                "tint of the finer shadow of objects in smoke")
          .To(&ObjectShadowSettings::extraColour),
  };
}

ParameterTable FireRows() {
  return {
      RealRow(2554, "gi_scale", 5, "none", "multiplies what indirect light sees")
          .AtLeast(0)
          .To(&FireSettings::giScale),
      LongRow(2556, "emission_by", 0, "", "which field glows")
          .Choices({{0, "fire"}, {1, "third_field"}})
          .To(&FireSettings::emitter),
      LongRow(2600, "fire_colour_mode", 0, "",
              "whether fire looks like glowing bodies do, or takes the colours of fire_gradient")
          .Choices(ColourModes())
          .To(&FireSettings::colours),
      FilledGradientRow(2602, "fire_gradient", Flames(), "colour over the range")
          .To(&FireSettings::gradient),
      LongRow(2603, "blackbody_system", 4, "",
              "which screen the glow is meant for: its primaries and white")
          .Choices(SystemChoices())
          .To(&BlackBodySettings::system),
      VectorRow(2604, "blackbody_tint", {1, 1, 1}, "none", "multiplies X, Y, Z")
          .To(&BlackBodySettings::tint),
      RealRow(2605, "blackbody_scale", 1, "none",
              "redder (below 1) or whiter (above) fire: multiplies its temperature")
          .AtLeast(0)
          .To(&BlackBodySettings::scale),
      BoolRow(2607, "blackbody_gamma", true, "apply the display's curve")
          .To(&BlackBodySettings::gamma),
      BoolRow(2608, "blackbody_adapt", false, "the hottest colour is white")
          .To(&BlackBodySettings::adapt),
      RealRow(2650, "fire_threshold", 800, "K", "colder fire is not seen")
          .To(&FireSettings::threshold),
      StraightCurveRow(2651, "fire_curve", "seen temperature, 0..1 of the range")
          .To(&FireSettings::curve),
      LongRow(2652, "fire_blur_rounds", 0, "", "how often fire is softened before it is drawn")
          .Range(0, 100)
          .To(&FireSettings::blurRounds),
      RealRow(2653, "fire_blur", 0.7, "cells", "how far each softening of fire reaches")
          .AtLeast(0)
          .To(&FireSettings::blur),
      FilterRow(2654, "fire_filters", "constraints and ramps that say where fire shows")
          .To(&FilterSettings::fireGrid),
      RealRow(2700, "third_threshold", 0.6, "none", "third field up to this is not seen")
          .To(&ThirdSettings::threshold),
      StraightCurveRow(2701, "third_curve", "seen third field, 0..1 of the range")
          .To(&ThirdSettings::curve),
      LongRow(2702, "third_blur_rounds", 0, "",
              "how often the third field is softened before it is drawn")
          .Range(0, 100)
          .To(&ThirdSettings::blurRounds),
      RealRow(2703, "third_blur", 0.7, "cells", "how far each softening of the third field reaches")
          .AtLeast(0)
          .To(&ThirdSettings::blur),
      FilterRow(2704, "third_filters", "constraints and ramps that say where the third field shows")
          .To(&FilterSettings::thirdGrid),
      RealRow(2750, "fire_intensity", 0.6, "1/host", "how bright flames look themselves")
          .AtLeast(0)
          .To(&FireSettings::intensity),
      RealRow(2756, "fire_extinction", 0, "1/host", "how much flames hide what is behind them")
          .AtLeast(0)
          .To(&FireSettings::extinction),
  };
}

ParameterTable FireLightRows() {
  return {
      RealRow(2752, "fire_light_radius", 100, "host", "how far flames light what stands round them")
          .AtLeast(0)
          .To(&FireLightSettings::radius),
      LongRow(2753, "fire_light_mode", 0, "",
              "whether that light has one colour, or that of each flame")
          .Choices(ColourModes())
          .To(&FireLightSettings::colours),
      FilledGradientRow(2754, "fire_light_gradient", Flames(),
                        "tint of the light that weak (0) and strong (1) flames throw")
          .To(&FireLightSettings::gradient),
      RealRow(2755, "fire_light_scale", 2, "none",
              "warmer or colder colour of that light: scales its temperature")
          .AtLeast(0)
          .To(&FireLightSettings::scale),
      RealRow(2757, "fire_light", 0, "none",
              "how brightly flames light the smoke and what stands round; 0 doesn't")
          .AtLeast(0)
          .To(&FireLightSettings::strength),
      StraightCurveRow(2759, "fire_light_curve", "what becomes of reach and strength")
          .To(&FireLightSettings::curve),
      BoolRow(2760, "fire_light_directed", false,
              "that light comes from the side of the flames, so that things have a dark side")
          .To(&FireLightSettings::directed),
      BoolRow(2761, "fire_light_true_distances", false,
              "it reaches as far along every direction; switched off, ways are counted in steps "
              "from cell to cell, which are shorter along diagonals")
          .To(&FireLightSettings::trueDistances),
  };
}

ParameterTable FinishRows() {
  return {
      RealRow(2800, "glow", 0, "none", "makes thick smoke shine by itself")
          .To(&FinishSettings::glow),
      FilledGradientRow(2801, "glow_gradient", White(),
                        "tint of that shine in thin (0) and thick (1) smoke")
          .To(&FinishSettings::glowGradient),
      RealRow(2802, "opacity_light", 0, "none",
              "brightens thick smoke: opacity added to the colour")
          .To(&FinishSettings::opacityLight),
      RealRow(2803, "transmission_contrast", 0, "none", "contrast of what shines through")
          .To(&FinishSettings::contrast),
      RealRow(2804, "saturation", 1, "none", "more or less colourful smoke: 0 is grey")
          .AtLeast(0)
          .To(&FinishSettings::saturation),
      BoolRow(2862, "seen_by_camera", true, "false: only shadows are left")
          .To(&FinishSettings::byCamera),
      BoolRow(2863, "seen_by_gi", true, "indirect light sees it").To(&FinishSettings::byGI),
      BoolRow(2864, "seen_by_transparency", true, "rays through glass see it")
          .To(&FinishSettings::byTransparency),
      BoolRow(2865, "seen_by_refraction", true, "refracted rays see it")
          .To(&FinishSettings::byRefraction),
      BoolRow(2866, "seen_by_reflection", true, "reflected rays see it")
          .To(&FinishSettings::byReflection),
      BoolRow(2867, "seen_by_ao", true, "ambient occlusion sees it")
          .To(&FinishSettings::byAmbientOcclusion),
  };
}

}  // namespace

const ParameterTable& GasLook::Rows() {
  static const ParameterTable table = [] {
    ParameterTable all;
    for (const auto part : {FieldRows, QualityRows, SmokeRows, ScatteringRows, MultipleRows,
                            ShadowRows, FireRows, FireLightRows, FinishRows})
      for (ParameterRow& row : part()) all.push_back(std::move(row));
    return all;
  }();
  return table;
}

template <class F>
void GasLook::ForEachGroup(F&& f) {
  for (ParameterHolder* group : std::initializer_list<ParameterHolder*>{
           &fields, &displacement, &copies, &view, &smoke, &noise, &scattering, &multiple, &shadow,
           &objectShadow, &fire, &blackBody, &third, &fireLight, &finish, &filters})
    f(*group);
}

void GasLook::Fill(const BaseNode& node) {
  ForEachGroup([&](ParameterHolder& group) { FillMembers(Rows(), &node, group); });
}

void GasLook::Connect(const BaseNode& node, const Scene& scene) {
  ForEachGroup([&](ParameterHolder& group) { ConnectLinks(Rows(), node, group, scene); });
}

bool GasLook::IsComplete() const {
  return smoke.curve && fire.curve && third.curve && noise.curve && smoke.gradient &&
         fire.gradient && fireLight.gradient;
}

void FilterList::Connect(std::span<const LinkTarget> targets) {
  ConstraintList::Connect(targets);
  mRamps.clear();
  for (const LinkTarget& target : targets)
    if (target.node->Type() == ChannelOperator_Remap::kPluginId && target.node->IsEnabled())
      mRamps.push_back(target.node);
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
