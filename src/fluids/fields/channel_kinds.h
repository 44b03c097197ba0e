// What links to fields accept.
#pragma once
#include "framework/object_ids.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

inline constexpr host::KindGroup kScalarChannels{kListChannels, kCategoryGrid | kCategoryScalar};
inline constexpr host::KindGroup kVectorChannels{kListChannels, kCategoryGrid | kCategoryVector};
inline constexpr host::KindGroup kAllChannels{kListChannels, kCategoryGrid};
/// They have fields of their own.
inline constexpr host::KindGroup kSolvers{kListSolvers, 0};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
