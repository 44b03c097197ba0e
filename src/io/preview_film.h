// What becomes of the light that a preview gathers.
#pragma once
#include <vector>

#include "io/fire_light.h"

namespace MELDO_GLOBAL::app {

/// Light that reaches the eye, by what it comes from, and what is left of the background, for one
/// column of cells along the view.
struct ViewColumn {
  Colour light{};  ///< of lamp and sky
  Colour glow{};   ///< of fire, its own and what it lights
  float through = 1;
};

/// Pixels in linear light, rows from the top, out of `nu` times `nv` columns, rows from below: a
/// cubic filter (Mitchell and Netravali 1988) over the columns, a dark background behind what
/// they let through, and film that fire saturates.
std::vector<Colour> Expose(const std::vector<ViewColumn>& columns, i32 nu, i32 nv, i32 width,
                           i32 height);

/// A channel of a pixel as a screen wants it: clamped, by the curve of sRGB (IEC 61966-2-1).
u8 ToByte(float linear);

}  // namespace MELDO_GLOBAL::app
