// The parameters of a cacher that others speak of.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::cache_row {

enum Row : i32 {
  kRenderOnly = 1000,
  kMode = 1001,
  kCustomFolder = 1003,
  kBaseName = 1004,
  kShowFrame = 1006,
  kFrameOffset = 1007,
  kCompression = 1009,
  kFormat = 1010,
  kNumbering = 1011,
  kObjects = 1012,
  kFolder = 1013,
  kBackwards = 1014,
  kTimeScale = 1005,   ///< of particles alone
  kProperties = 1019,  ///< of particles alone
};

/// Values of `kFormat` of caches of particles.
enum ParticleFormat : i32 { kPlainParticles = 0, kParticles = 21 };

/// Values of `kMode`.
enum Mode : i32 { kPlayBack = 0, kRecord = 1, kBoth = 2 };

}  // namespace MELDO_GLOBAL::MELDO_SULVA::cache_row
