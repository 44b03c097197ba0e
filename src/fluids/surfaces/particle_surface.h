// Level sets round particles.
#pragma once
#include <optional>
#include <vector>

#include "fluids/particles/kernel.h"
#include "fluids/particles/particle_store.h"
#include "fluids/surfaces/deep_buckets.h"
#include "fluids/surfaces/half_space.h"
#include "grids/egrid.h"
#include "grids/point_lookup.h"
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class PlainScratch;

/// How particles become a surface.
struct SurfaceShape {
  enum Mode : i32 { kBlobs = 0, kAveragedPosition = 2 };

  i32 mode = kAveragedPosition;
  double radius = 0;               ///< r: the distance of the surface, simulation units
  double reach = 0;                ///< R: how far a particle counts, simulation units
  double blobScale = 1;            ///< simulation units for a sum of blobs
  double blobReach = 1;            ///< of blobs without a kernel
  i32 leastNeighbours = 1;         ///< with fewer in reach only the nearest one counts
  bool usesMass = true;            ///< weights count by mass over kernel sum
  const Kernel* kernel = nullptr;  ///< of all weights; without one (1 - d^2 / R^2)^3
  /// Particles in a cubed simulation unit of the liquid, for what fits. Samples far below its
  /// surface aren't computed then but take the least value, unless `skipsDeep` is off.
  double density = 0;
  bool skipsDeep = true;
  /// Above 0, each particle has the ellipsoid of those about it, this far off; otherwise its own.
  double ellipsoidRadius = 0;
  double cell = 1;        ///< of the scene, simulation units: what ellipsoids are measured in
  bool corrects = false;  ///< the surface comes closer where particles are few
  double correctLow = 0, correctHigh = 1.05;

  /// Whether the surface lies where that of the liquid does, whatever `radius` and the scale of
  /// blobs say: values are distances then, as far as particles tell them.
  bool fits = false;
  /// The shape whose surface lies where that of a liquid of `spacing` between its particles does.
  static SurfaceShape Fitted(i32 mode, double reach, double spacing);
};

/// Makes a level set of particles, negative inside.
///
/// The mean position x_m of the particles in reach, by weight, gives |x - x_m| - r (Zhu and Bridson
/// 2005, section 5); blobs give r less the sum of their weights, times a scale (Blinn 1982).
/// Distances of a particle are measured in the frame of its ellipsoid, if it has one.
///
/// Samples are made in blocks, each by one worker, who adds up what the particles about it bring:
/// blocks that none reaches, and those deep inside, cost next to nothing, and the result doesn't
/// depend on the number of workers.
class ParticleSurface {
 public:
  /// `points` are the places of the particles, with their rows in `store` as numbers, sorted for
  /// any radius. `store` is null where they carry nothing.
  ParticleSurface(const PointLookup& points, const ParticleStore* store, const SurfaceShape& shape);

  /// Writes all samples of a grid.
  void Fill(EGrid<double>& grid, i32 threads);
  /// What particles out of reach leave.
  double Outside() const;
  /// The value at a place; nothing where no particle is in reach.
  std::optional<double> ValueAt(const Vec3d& p) const;

 private:
  struct Sums;
  struct Block;
  /// Of an ellipsoid: what makes a ball of it, and its shortest axis over that ball's.
  struct Frame {
    Matrix frame;
    double thin = 1;
  };
  bool IsPlain() const;
  void FitEllipsoids(i32 threads);
  double LeastThin() const;
  void FillBlock(EGrid<double>& grid, const Block& block, Sums& sums, PlainScratch& scratch) const;
  void AddWithFrames(std::span<const PointLookup::Entry> points, const Block& block,
                     Sums& sums) const;
  Vec3d InFrame(const Vec3d& way, i32 row) const;
  double WeightOf(double distanceSquared) const;
  double ShareOf(i32 row) const;
  double ValueOf(const Sums& sums, i32 i) const;
  double ValueOfMean(double distance) const {
    return mShape.fits ? mShape.reach * mHalfSpace.OfMean(distance / mShape.reach - mGap)
                       : distance - mShape.radius;
  }

  const PointLookup& mPoints;
  SurfaceShape mShape;
  DeepBuckets mDeep;
  const PropertyColumn<Vec3d>* mAxes[3] = {};
  const PropertyColumn<double>*mMass = nullptr, *mKernelSum = nullptr;
  std::vector<Frame> mFrames;  ///< by row; empty unless they were fitted
  double mLeastThin = 1;       ///< of all frames
  HalfSpace mHalfSpace;
  double mGap = 0;      ///< what gaps between particles add to the mean's distance, over R
  double mFullSum = 0;  ///< the sum of weights amid a liquid
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
