// Surfaces round particles, and what particles carry, at any point.
#pragma once
#include <optional>

#include "fluids/particles/kernel.h"
#include "fluids/particles/particle_set.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How particles become a surface. Distances of a particle are measured in the frame of its
/// ellipsoid, if it has one.
struct ImplicitShape {
  enum Mode : i32 { kBlobs = 0, kAveragedPosition = 2 };

  double radiusFactor = 1;  ///< times the size of a cell of the particles' store: their radius r
  double searchFactor = 2;  ///< times r: how far their weight reaches, R
  i32 leastNeighbours = 1;  ///< with fewer of them only the nearest one counts
  bool weighted = true;     ///< properties are means by weight, otherwise plain ones
  i32 mode = kAveragedPosition;
  const Kernel* kernel = nullptr;  ///< of all weights; without one each use has its own polynomial
};

/// Values round the particles of one kind, whose tree has been built. Any number of workers may ask
/// at once, each with a buffer of its own.
///
/// The mean position of the neighbours x_m gives |x - x_m| - r (Zhu and Bridson 2005, section 5),
/// limited to -r and 0; blobs give r less the sum of the weights, times the size of a cell of the
/// store (Blinn 1982), each weight times the mass of its particle over its kernel sum.
class PointsToImplicitGrid {
 public:
  PointsToImplicitGrid(const ParticleSet& particles, i32 kind, const ImplicitShape& shape);

  double Radius() const { return mRadius; }
  double Reach() const { return mReach; }
  /// The value at a point, simulation units; nothing where no particle counts.
  std::optional<double> ValueAt(const Vec3d& p, NeighbourBuffer& buffer) const;
  /// Writes the samples of the layers from `first` to below `last`; those without a particle in
  /// reach keep what they hold.
  void Fill(EGrid<double>& grid, i32 first, i32 last, NeighbourBuffer& buffer) const;

  /// The mean of a property over the particles in reach, of which those without it count as
  /// `fallback`; that itself where there are none.
  double SampleScalar(const Vec3d& p, const PropertyKey& key, double fallback,
                      NeighbourBuffer& buffer) const;
  Vec3d SampleVector(const Vec3d& p, const PropertyKey& key, const Vec3d& fallback,
                     NeighbourBuffer& buffer) const;

 private:
  std::span<const TreeHit> Find(const Vec3d& p, NeighbourBuffer& buffer) const;
  Vec3d OffsetTo(const Vec3d& p, i32 row) const;
  double KernelAt(double distanceSquared) const;
  std::optional<double> AveragedPosition(const Vec3d& p, std::span<const TreeHit> hits) const;
  double Blobs(const Vec3d& p, std::span<const TreeHit> hits) const;
  template <class T, class ValueOf>
  T MeanOf(const Vec3d& p, const T& fallback, NeighbourBuffer& buffer, ValueOf&& valueOf) const;

  const ParticleStore& mStore;
  const PointTree* mTree;
  ImplicitShape mShape;
  double mSpacing, mRadius, mReach;
  const PropertyColumn<Vec3d>* mAxes[3];
  const PropertyColumn<double>*mMass, *mKernelSum;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
