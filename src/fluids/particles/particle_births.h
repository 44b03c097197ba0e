// Particles that the workers of a pass make.
#pragma once
#include <vector>

#include "fluids/particles/particle_columns.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The space that particles fill at rest, as those who made them tell it.
struct FilledSpace {
  i64 particles = 0;
  double volume = 0;  ///< cubic simulation units

  void Add(const FilledSpace& other) {
    particles += other.particles;
    volume += other.volume;
  }
};

/// Births of a pass, apart for each share of the work: no worker waits, and what comes of them
/// depends on the shares alone. `ParticleSet::Take` appends them in the order of the shares.
///
///     births.Of(data.index).Append(mTemplate);      // in Evaluate, on any worker
///     mGroup->Take(mKind, births);                  // in Finish
class ParticleBirths {
 public:
  ParticleBirths() : mShares(kShares), mSpaces(kShares) {}
  ParticleColumns& Of(i32 share) { return mShares[share]; }
  const ParticleColumns& Of(i32 share) const { return mShares[share]; }
  i64 Count() const {
    i64 count = 0;
    for (const ParticleColumns& share : mShares) count += share.Count();
    return count;
  }
  i64 Bytes() const {
    i64 bytes = 0;
    for (const ParticleColumns& share : mShares) bytes += share.Bytes();
    return bytes;
  }
  void Clear() {
    for (ParticleColumns& share : mShares) share = ParticleColumns();
    mSpaces.assign(kShares, {});
  }

  /// Tells, from the share's worker, that one of its births fills `volume`: its part of a lattice.
  void FillSpace(i32 share, double volume) { mSpaces[share].Add({1, volume}); }
  /// What those of all shares fill that told it.
  FilledSpace Filled() const {
    FilledSpace all;
    for (const FilledSpace& space : mSpaces) all.Add(space);
    return all;
  }

 private:
  std::vector<ParticleColumns> mShares;
  std::vector<FilledSpace> mSpaces;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
