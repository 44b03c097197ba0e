// Velocity between the particles of a liquid and its grid.
#pragma once
#include <array>

#include "fluids/flow/flow.h"
#include "fluids/particles/kernel.h"
#include "fluids/particles/particle_sort.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Carries the velocity of particles to the faces of a flow, and what becomes of it there back to
/// them (Zhu and Bridson 2005): the change of the grid, and to a part what the grid has. Or they
/// take what the grid has, and how it changes about them, which they give back on the next way: no
/// noise, and the spin is kept (Jiang, Schroeder, Selle, Teran and Stomakhin 2015).
///
/// A face takes the mean velocity of the particles about it, by the weights of linear
/// interpolation. Slabs of fixed thickness add up one after the other in two colours, in the order
/// of the sort, so that sums don't depend on the number of workers.
class HybridFlip {
 public:
  /// Replaces the velocity of the flow by that of sorted particles, 0 where none is near, and keeps
  /// a copy in the flow's second buffers. False without grids, particles or memory; the velocity is
  /// 0 then.
  bool ToGrid(const ParticleSort& sort, Flow& flow);
  /// Gives the particles what the flow has become since `ToGrid`: with the share r of `mRatio`
  /// v <- r (v + du) + (1 - r) u, for the change du and the velocity u at their places, or with
  /// `mIsAffine` v <- u and the slope of u.
  void ToParticles(const ParticleSort& sort, Flow& flow) const;
  /// Gives the particles the velocity of the flow.
  static void TakeFlow(const ParticleSort& sort, Flow& flow);

  double mRatio = 0;                ///< 0 takes the grid's velocity, 1 the change alone
  bool mIsAffine = false;           ///< particles carry slopes, and `mRatio` doesn't count
  bool mGathers = false;            ///< faces weigh by a kernel, in place of linear interpolation
  double mKernelRadius = 1;         ///< of that kernel, cells
  const Kernel* mKernel = nullptr;  ///< null: max(r^2 / d^2 - 1, 0) at the distance d

 private:
  bool Scatter(const ParticleSort& sort, Flow& flow) const;
  void Gather(const ParticleSort& sort, Flow& flow) const;
  void TakeChange(const ParticleSort& sort, Flow& flow) const;
  static void TakeSlopes(const ParticleSort& sort, Flow& flow);
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
