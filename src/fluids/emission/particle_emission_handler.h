// Makes the particles of an emitter.
#pragma once
#include "fluids/emission/particle_emission_settings.h"
#include "fluids/particles/particle_births.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes particles in the shares of a pass. Each share has its own births and its own stream of
/// random numbers, so that neither depends on the threads.
class ParticleEmissionHandler {
 public:
  /// Before a step: streams that no other step, share or emitter has (`seed` tells emitters apart).
  void Begin(const ParticleEmissionSettings& settings, u64 seed);
  RandomStream& Random(i32 share) { return mStreams[share]; }
  /// The index that the next draw of a share picks among `count`.
  i32 Pick(i32 share, i32 count);

  /// Gives a template what all that is made of it has beside its own: the old position, and what
  /// the kind is born with, so that the room for particles is reckoned with that.
  static void Complete(ParticleTemplate& particle);
  /// Makes a particle like the template, which has its position already: alive, with its old
  /// position, or that of who it comes from, as property 36. A carrier of vorticity gets the
  /// direction of the settings; `normal` is that of the surface on which it is born, or zero. The
  /// template's age and life span are those of the longest life.
  void Emit(const ParticleTemplate& particle, i32 share, const Vec3d& normal = {},
            const Vec3d* oldPosition = nullptr);

  ParticleBirths& Births() { return mBirths; }
  const ParticleBirths& Births() const { return mBirths; }

 private:
  const ParticleEmissionSettings* mSettings = nullptr;
  std::vector<RandomStream> mStreams;
  ParticleBirths mBirths;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
