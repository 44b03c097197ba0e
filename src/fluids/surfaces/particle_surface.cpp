#include "fluids/surfaces/particle_surface.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "fluids/particles/ellipsoid.h"
#include "fluids/particles/particle_property_ids.h"
#include "fluids/surfaces/plain_sums.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kWide = PlainSums::kWide, kHigh = PlainSums::kHigh, kThick = PlainSums::kThick;
constexpr i32 kSamples = PlainSums::kSamples;

}  // namespace

/// What particles add to the samples of a block, in steps of samples.
struct ParticleSurface::Sums : PlainSums {
  double share[kSamples];    ///< of the weights with masses
  double thin[kSamples];     ///< of the weights with how thin an ellipsoid is
  double nearest[kSamples];  ///< squared distance of the nearest one, and what it brings
  Vec3d nearestWay[kSamples];
  double nearestShare[kSamples];
  i32 count[kSamples];
};

struct ParticleSurface::Block {
  VecInt3D first, size;  ///< samples
  Vec3d origin;          ///< of the first one, simulation units
  Vec3d step;            ///< from sample to sample, simulation units
};

SurfaceShape SurfaceShape::Fitted(i32 mode, double reach, double spacing) {
  SurfaceShape shape;
  shape.mode = mode;
  shape.reach = shape.blobReach = reach;
  shape.density = 1 / (spacing * spacing * spacing);
  shape.fits = true;
  return shape;
}

double ParticleSurface::Outside() const {
  if (mShape.fits)
    return mLeastThin * mShape.reach *
           (mShape.mode == SurfaceShape::kAveragedPosition ? mHalfSpace.OfMean(1 - mGap)
                                                           : mHalfSpace.OfShare(0));
  return mShape.mode == SurfaceShape::kAveragedPosition
             ? std::max(mShape.reach, mShape.radius) - mShape.radius
             : mShape.radius * mShape.blobScale;
}

ParticleSurface::ParticleSurface(const PointLookup& points, const ParticleStore* store,
                                 const SurfaceShape& shape)
    : mPoints(points),
      mShape(shape),
      mDeep(points),
      mHalfSpace([&](double q) { return WeightOf(q * shape.reach * shape.reach); }) {
  if (store && shape.ellipsoidRadius <= 0) {
    const i32 ids[] = {property_id::kEllipsoidX, property_id::kEllipsoidY,
                       property_id::kEllipsoidZ};
    for (int a = 0; a < 3; ++a) mAxes[a] = store->Find<Vec3d>(ids[a]);
  }
  // What fits counts particles, however heavy they are.
  if (store && shape.usesMass && !shape.fits) {
    mMass = store->Find<double>(property_id::kMass);
    mKernelSum = store->Find<double>(property_id::kKernelSum);
  }
  mFullSum = mHalfSpace.FullSum() * shape.reach * shape.reach * shape.reach * shape.density;
  // As measured on lattices with and without noise.
  if (shape.density > 0)
    mGap = 0.358 * std::pow(std::min(1 / (std::cbrt(shape.density) * shape.reach), 0.6), 3.2);
}

bool ParticleSurface::IsPlain() const {
  return mShape.mode == SurfaceShape::kAveragedPosition && !mShape.kernel && !mAxes[0] &&
         !mAxes[1] && !mAxes[2] && mShape.ellipsoidRadius <= 0 && mShape.leastNeighbours <= 1 &&
         !mShape.corrects;
}

Vec3d ParticleSurface::InFrame(const Vec3d& way, i32 row) const {
  if (!mFrames.empty()) return mFrames[row].frame.Rotate(way);
  const auto axis = [&](int a, const Vec3d& unit) {
    return mAxes[a] ? mAxes[a]->Get(row, unit) : unit;
  };
  return axis(0, {1, 0, 0}) * way.x + axis(1, {0, 1, 0}) * way.y + axis(2, {0, 0, 1}) * way.z;
}

double ParticleSurface::WeightOf(double distanceSquared) const {
  const double reach = mShape.mode == SurfaceShape::kAveragedPosition || mShape.kernel
                           ? mShape.reach
                           : mShape.blobReach;
  if (distanceSquared >= reach * reach) return 0;
  if (mShape.kernel)
    return mShape.kernel->EvaluateSquared(distanceSquared, reach * reach, reach * reach * reach);
  const double q = 1 - distanceSquared / (reach * reach);
  return q * q * q;
}

double ParticleSurface::ShareOf(i32 row) const {
  const double mass = mMass ? mMass->Get(row, 1) : 1;
  return mass / (mKernelSum ? mKernelSum->Get(row, 1) : 1);
}

void ParticleSurface::AddWithFrames(std::span<const PointLookup::Entry> points, const Block& block,
                                    Sums& sums) const {
  const double limit = mShape.reach * mShape.reach;
  for (const PointLookup::Entry& point : points) {
    const Vec3d from = point.position - block.origin;
    VecInt3D first, last;
    for (int a = 0; a < 3; ++a) {
      first[a] = std::max(0, static_cast<i32>(std::ceil((from[a] - mShape.reach) / block.step[a])));
      last[a] = std::min(block.size[a] - 1,
                         static_cast<i32>(std::floor((from[a] + mShape.reach) / block.step[a])));
    }
    const double share = ShareOf(point.index);
    const double thin = mFrames.empty() ? 1 : mFrames[point.index].thin;
    for (i32 k = first.z; k <= last.z; ++k)
      for (i32 j = first.y; j <= last.y; ++j)
        for (i32 i = first.x; i <= last.x; ++i) {
          const Vec3d way = ToReal({i, j, k}) * block.step - from;
          const double squared = Dot(way, way);
          if (squared >= limit) continue;
          const Vec3d d = InFrame(way, point.index);
          const double w = WeightOf(Dot(d, d));
          const i32 at = (k * kHigh + j) * kWide + i;
          sums.weight[at] += w;
          sums.x[at] += w * d.x;
          sums.y[at] += w * d.y;
          sums.z[at] += w * d.z;
          sums.share[at] += w * share;
          sums.thin[at] += w * thin;
          if (sums.count[at]++ > 0 && squared >= sums.nearest[at]) continue;
          sums.nearest[at] = squared;
          sums.nearestWay[at] = d;
          sums.nearestShare[at] = w * share;
        }
  }
}

double ParticleSurface::ValueOf(const Sums& sums, i32 i) const {
  const bool isLonely =
      mShape.leastNeighbours > 1 && sums.count[i] > 0 && sums.count[i] < mShape.leastNeighbours;
  const double share = isLonely ? sums.nearestShare[i] : sums.share[i];
  if (mShape.mode != SurfaceShape::kAveragedPosition)
    return mShape.fits ? mShape.reach * mHalfSpace.OfShare(mFullSum > 0 ? share / mFullSum : 0)
                       : (mShape.radius - share) * mShape.blobScale;
  if (!isLonely && !(sums.weight[i] > 0)) return Outside();
  const Vec3d mean =
      isLonely ? sums.nearestWay[i] : Vec3d{sums.x[i], sums.y[i], sums.z[i]} / sums.weight[i];
  // Where frames stretch space, distances come out larger than they are.
  const double length = Length(mean);
  const double scale = mFrames.empty() || isLonely ? 1 : sums.thin[i] / sums.weight[i];
  if (!mShape.corrects) return scale * ValueOfMean(length);
  const double filled = mKernelSum || !(mFullSum > 0) ? share : share / mFullSum;
  const double lack = std::min(filled, mShape.correctHigh) - mShape.correctHigh;
  const double range = mShape.correctHigh - mShape.correctLow;
  const double left = range > 0 ? std::max(0.0, 1 - lack * lack / (range * range)) : 1.0;
  const double radius =
      mShape.fits ? mShape.reach * (mHalfSpace.MeanAtSurface() + mGap) : mShape.radius;
  return scale * ValueOfMean(length + radius * (1 - left * left));
}

void ParticleSurface::FillBlock(EGrid<double>& grid, const Block& block, Sums& sums,
                                PlainScratch& scratch) const {
  const Vec3d wide{mShape.reach, mShape.reach, mShape.reach};
  const Vec3d high = block.origin + ToReal(block.size - VecInt3D{1, 1, 1}) * block.step;
  const bool isDeep = mDeep.Holds(block.origin, high);
  const bool isPlain = IsPlain();
  bool isReached = false;
  if (!isDeep && isPlain) {
    const double perStep = 1 / block.step.x, reach = mShape.reach * perStep;
    scratch.Clear();
    mPoints.ForEachRow(block.origin - wide, high + wide,
                       [&](auto points) { scratch.Gather(points, block.origin, perStep, reach); });
    isReached = !scratch.IsEmpty();
    if (isReached) scratch.AddUp(reach, sums);
  } else if (!isDeep) {
    for (double* sum : {sums.weight, sums.x, sums.y, sums.z, sums.share, sums.thin})
      std::fill_n(sum, kSamples, 0.0);
    std::fill_n(sums.count, kSamples, 0);
    mPoints.ForEachRow(block.origin - wide, high + wide, [&](auto points) {
      isReached = true;
      AddWithFrames(points, block, sums);
    });
  }
  const double blank = isDeep ? -HalfSpace::kDeepest * mShape.reach : Outside();
  const double step = isPlain ? block.step.x : 1;
  for (i32 k = 0; k < block.size.z; ++k)
    for (i32 j = 0; j < block.size.y; ++j) {
      double* out = grid.mData + grid.Index(block.first.x, block.first.y + j, block.first.z + k);
      const i32 row = (k * kHigh + j) * kWide;
      if (!isReached) {
        std::fill_n(out, block.size.x, blank);
        continue;
      }
      for (i32 i = row; i < row + block.size.x; ++i) {
        if (!isPlain) {
          out[i - row] = ValueOf(sums, i);
        } else if (const double w = sums.weight[i]; w > 0) {
          const double squared =
              sums.x[i] * sums.x[i] + sums.y[i] * sums.y[i] + sums.z[i] * sums.z[i];
          out[i - row] = ValueOfMean(std::sqrt(squared) / w * step);
        } else {
          out[i - row] = blank;
        }
      }
    }
}

void ParticleSurface::FitEllipsoids(i32 threads) {
  mFrames.clear();
  if (mShape.ellipsoidRadius <= 0) return;
  const VecInt3D n = mPoints.Buckets();
  i32 rows = 0;
  for (i32 z = 0; z < n.z; ++z)
    for (i32 y = 0; y < n.y; ++y)
      for (const auto& point : mPoints.Row(0, n.x - 1, y, z))
        rows = std::max(rows, point.index + 1);
  mFrames.resize(rows);
  const auto fit = [&](const PointLookup::Entry& point) {
    const Ellipsoid ellipsoid =
        FitEllipsoid(point.position, mPoints, mShape.ellipsoidRadius, mShape.cell);
    mFrames[point.index] = {ellipsoid.frame, 1 / Largest(ellipsoid.scales)};
  };
  ForEachBlock(n.z, threads, [&](i32 z) {
    for (i32 y = 0; y < n.y; ++y)
      for (const auto& point : mPoints.Row(0, n.x - 1, y, z))
        if (!mDeep.Holds(point.position, point.position)) fit(point);
  });
}

double ParticleSurface::LeastThin() const {
  double least = 1;
  for (const Frame& frame : mFrames) least = std::min(least, frame.thin);
  return least;
}

void ParticleSurface::Fill(EGrid<double>& grid, i32 threads) {
  if (mShape.fits && mShape.skipsDeep) mDeep.Find(mShape.reach, mShape.density, threads);
  FitEllipsoids(threads);
  mLeastThin = LeastThin();
  const VecInt3D n = grid.Dims();
  const i32 linesY = (n.y + kHigh - 1) / kHigh, linesZ = (n.z + kThick - 1) / kThick;
  const i32 lines = linesY * linesZ;
  // Each worker has lines from everywhere: a liquid lies in one part of the box.
  const i32 half = (lines + 1) / 2;
  ForEachBlock(lines, threads, [&](i32 turn) {
    const i32 line = turn < half ? 2 * turn : 2 * (turn - half) + 1;
    thread_local Sums sums;
    thread_local PlainScratch scratch;
    const i32 y = line % linesY * kHigh, z = line / linesY * kThick;
    for (i32 x = 0; x < n.x; x += kWide) {
      Block block;
      block.first = {x, y, z};
      block.size = {std::min(kWide, n.x - x), std::min(kHigh, n.y - y), std::min(kThick, n.z - z)};
      block.origin = grid.PositionOf(x, y, z);
      block.step = grid.mLayout.simCell;
      FillBlock(grid, block, sums, scratch);
    }
  });
}

std::optional<double> ParticleSurface::ValueAt(const Vec3d& p) const {
  auto sums = std::make_unique<Sums>();
  const Block block{{0, 0, 0}, {1, 1, 1}, p, {1, 1, 1}};
  const Vec3d wide{mShape.reach, mShape.reach, mShape.reach};
  mPoints.ForEachRow(p - wide, p + wide, [&](auto points) { AddWithFrames(points, block, *sums); });
  if (sums->count[0] == 0) return {};
  return ValueOf(*sums, 0);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
