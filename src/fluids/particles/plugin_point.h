// Particles, as plug-ins are told of them.
#pragma once
#include "fluids/particles/particle_columns.h"
#include "fluids/particles/particle_flags.h"
#include "framework/plugin_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Fills what a point knows of the particle that it is.
inline void TellParticle(const ParticleColumns& particles, i32 row, plugin_api::Point& point) {
  constexpr u16 kKindFlags[] = {PF_KIND_PASSIVE, PF_KIND_VORTICITY, PF_KIND_LIQUID,
                                PF_KIND_DIFFUSE};
  point.velocity = PluginVector(particles.Velocities()[row]);
  point.particle = row;
  point.particleId = particles.Ids()[row];
  for (i32 kind = 0; kind < 4; ++kind)
    if (particles.Flags()[row] & kKindFlags[kind]) point.particleKind = kind;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
