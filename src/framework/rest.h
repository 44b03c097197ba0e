// Reasons to sleep that are as they should be.
#pragma once
#include <algorithm>
#include <iterator>
#include <string_view>

namespace MELDO_GLOBAL::MELDO_SULVA {

// For `iBase::Deactivate`.
inline constexpr const char* kNoStepReason = "the step has no length";
inline constexpr const char* kClosedReason = "its time window is closed";
inline constexpr const char* kOverReason = "its duration is over";
inline constexpr const char* kPlayedReason = "its channel plays from a cache";
inline constexpr const char* kPlayedTargetReason = "its target plays from a cache";
inline constexpr const char* kNotDueReason = "none of its emissions is due";
inline constexpr const char* kNoRateReason = "its rate is 0";
inline constexpr const char* kPlayedParticlesReason = "its particles play from a cache";
inline constexpr const char* kPlayedPolygonsReason = "its polygons play from a cache";
inline constexpr const char* kNoParticlesReason = "its group holds no particles of its kind";
inline constexpr const char* kEmptySourceReason = "its source holds no particles";
inline constexpr const char* kNoStrengthReason = "its strength is 0";

// Of a fire: what may well end in some later frame.
inline constexpr const char* kNoFuelReason = "its fuel channel holds no fuel";
inline constexpr const char* kColdFuelReason =
    "no fuel is as hot as the 'ignition' of its channel asks for";
inline constexpr const char* kNoAirReason = "fuel and smoke leave no air where its fuel is hot";
inline constexpr const char* kNoFlameReason = "no cell of its fire channel burns";

// Of a tap: keys, or the curve of a window, may open it.
inline constexpr const char* kShutReason = "the velocity of its liquid is 0: nothing comes through";

// Of an emitter of particles: images, limits and constraints may let through the next ones.
inline constexpr const char* kNoPlaceReason =
    "none of the places that it tried may have a particle";

/// Whether a reason tells of nothing amiss before the run is over: what never worked until then is
/// warned of at its end.
inline bool MayPass(std::string_view reason) {
  constexpr std::string_view kReasons[] = {kNoFuelReason,  kColdFuelReason, kNoAirReason,
                                           kNoFlameReason, kNoPlaceReason,  kShutReason};
  return std::find(std::begin(kReasons), std::end(kReasons), reason) != std::end(kReasons);
}

/// Whether a reason is one of these: the user asked for the sleep, so that no warning tells of it.
inline bool IsRest(std::string_view reason) {
  constexpr std::string_view kReasons[] = {
      kNoStepReason,      kClosedReason,       kOverReason,           kPlayedReason,
      kNotDueReason,      kPlayedTargetReason, kNoStrengthReason,     kPlayedParticlesReason,
      kNoParticlesReason, kNoRateReason,       kPlayedPolygonsReason, kEmptySourceReason};
  return std::find(std::begin(kReasons), std::end(kReasons), reason) != std::end(kReasons);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
