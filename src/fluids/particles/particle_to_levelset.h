// The level set of a liquid, from its particles.
#pragma once
#include "fluids/particles/particle_sort.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a level set (simulation units, negative inside) of the cells that hold particles. A liquid
/// solver embeds one.
///
/// By count, a cell with more than `mCountThreshold` particles lies inside: the outermost ones get
/// minus half a cell, the rest the distance to them. By density, each cell gets the density that
/// its particles lack, which is no distance. At the end surface cells inside solids count as
/// liquid, so that the surface doesn't pull away from walls.
class ParticleToLevelset {
 public:
  static constexpr double kFar = 1e308;  ///< where no distance reaches

  /// Fills `phi` from particles that are sorted by the same cells; `solid` is the level set of what
  /// is solid, at the nodes of these cells, or null. False without grids of these shapes or without
  /// memory. Runs on all workers, with one result for any number.
  bool Run(const ParticleSort& sort, const EGrid<double>* solid, EGrid<double>& phi,
           host::HostThread* thread = nullptr);

  bool mUseDensity = false;
  double mDensityThreshold = 0.2;  ///< per an eighth of a cell
  u8 mCountThreshold = 4;          ///< cells with more than so many particles lie inside
  /// Distances as they are along every direction (`EikonalSweeper`), instead of counted in steps to
  /// neighbours (`FastSweeper`).
  bool mTrueDistances = false;

 private:
  void FillByDensity(const ParticleSort& sort, EGrid<double>& phi) const;
  bool FillByCount(const ParticleSort& sort, EGrid<double>& phi, host::HostThread* thread) const;
  bool IsInside(const ParticleSort& sort, const VecInt3D& cell) const;
  void EnterSolids(const EGrid<double>& solid, EGrid<double>& phi) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
