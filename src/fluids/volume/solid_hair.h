// Where solids end.
#pragma once

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What lies nearer to a solid than this, in cells, is in it. A surface right through a sample would
/// else be found a rounding before or behind it, by the side of the obstacle that it is on.
inline constexpr double kSolidHair = 1e-5;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
