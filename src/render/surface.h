// Surfaces as rays meet them.
#pragma once
#include <array>

#include "host/renderer.h"

namespace MELDO_GLOBAL::app {

/// How a surface answers to light.
struct Surface {
  Vec3d colour;
  double reflection = 0;  ///< part that is mirrored of light from straight ahead
  double roughness = 0;
  Vec3d emission;
  const host::Shader* colourShader = nullptr;    ///< times the colour
  const host::Shader* emissionShader = nullptr;  ///< times the emission

  bool isClear = false;  ///< light goes on behind it; what follows is of clear bodies
  double index = 1;      ///< of refraction
  Vec3d absorption;      ///< per host unit
  i32 priority = 0;      ///< among bodies that overlap
};

struct SurfaceHit {
  double distance = 0;
  Vec3d point;
  Vec3d facing;  ///< of the flat surface, towards the ray
  Vec3d normal;  ///< of the smooth surface
  const Surface* surface = nullptr;
  Vec3d colour, emission;     ///< of the surface here
  double fade = 0;            ///< part of the ground that has become sky
  double cover = 1;           ///< part of the light from behind that it takes away
  bool isSphere = false;      ///< a particle
  bool isFromInside = false;  ///< of a mesh: the ray comes from within it
  /// Boundaries of other clear bodies that lie in the same place, those that are left first.
  struct Boundary {
    const Surface* surface = nullptr;
    bool isFromInside = false;
  };
  std::array<Boundary, 4> others{};
  i32 otherCount = 0;
};

}  // namespace MELDO_GLOBAL::app
