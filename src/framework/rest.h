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
inline constexpr const char* kNoStrengthReason = "its strength is 0";

/// Whether a reason is one of these: the user asked for the sleep, so that no warning tells of it.
inline bool IsRest(std::string_view reason) {
  constexpr std::string_view kReasons[] = {kNoStepReason,    kClosedReason, kOverReason,
                                           kPlayedReason,    kNotDueReason, kPlayedTargetReason,
                                           kNoStrengthReason};
  return std::find(std::begin(kReasons), std::end(kReasons), reason) != std::end(kReasons);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
