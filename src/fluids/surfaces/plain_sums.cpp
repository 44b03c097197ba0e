#include "fluids/surfaces/plain_sums.h"

#include <algorithm>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// How far a coordinate lies off the samples from 0 to below n.
double OffLine(double v, i32 n) { return std::max({0.0, -v, v - (n - 1)}); }

using Lane = double __attribute__((vector_size(32)));
constexpr i32 kLanes = 4;

/// Adds up the weights of particles, and their ways to the samples times those, along a line of
/// samples; `reach2` is the squared reach.
SULVA_WIDE_KERNEL void AddLine(std::size_t count, const double* px, const double* py,
                               const double* pz, const double* left, double reach2, double* weight,
                               double* sumX, double* sumY, double* sumZ) {
  static_assert(PlainSums::kWide == 2 * kLanes);
  const double perLimit = 1 / reach2;
  const Lane first = {0, 1, 2, 3}, second = {4, 5, 6, 7}, none = {};
  Lane w0 = none, w1 = none, x0 = none, x1 = none, y0 = none, y1 = none, z0 = none, z1 = none;
  for (std::size_t p = 0; p < count; ++p) {
    const Lane d0 = first - px[p], d1 = second - px[p];
    Lane q0 = left[p] - d0 * d0 * perLimit, q1 = left[p] - d1 * d1 * perLimit;
    q0 = q0 > none ? q0 : none;
    q1 = q1 > none ? q1 : none;
    q0 = q0 * q0 * q0;
    q1 = q1 * q1 * q1;
    w0 += q0;
    w1 += q1;
    x0 += q0 * d0;
    x1 += q1 * d1;
    y0 += q0 * py[p];
    y1 += q1 * py[p];
    z0 += q0 * pz[p];
    z1 += q1 * pz[p];
  }
  for (i32 i = 0; i < kLanes; ++i) {
    weight[i] = w0[i];
    weight[i + kLanes] = w1[i];
    sumX[i] = x0[i];
    sumX[i + kLanes] = x1[i];
    sumY[i] = y0[i];
    sumY[i + kLanes] = y1[i];
    sumZ[i] = z0[i];
    sumZ[i + kLanes] = z1[i];
  }
}

}  // namespace

void PlainScratch::Gather(std::span<const PointLookup::Entry> points, const Vec3d& origin,
                          double perStep, double reach) {
  mBlock.Grow(points.size());
  for (const PointLookup::Entry& point : points) {
    const Vec3d p = (point.position - origin) * perStep;
    const double x = OffLine(p.x, PlainSums::kWide), y = OffLine(p.y, PlainSums::kHigh),
                 z = OffLine(p.z, PlainSums::kThick);
    mBlock.Add(p.x, p.y, p.z, 0, x * x + y * y + z * z < reach * reach);
  }
}

void PlainScratch::SumLine(const NearPoints& line, double reach2, PlainSums& sums, i32 row) {
  AddLine(line.count, line.x.data(), line.y.data(), line.z.data(), line.left.data(), reach2,
          sums.weight + row, sums.x + row, sums.y + row, sums.z + row);
}

void PlainScratch::AddUp(double reach, PlainSums& sums) {
  const double reach2 = reach * reach;
  mLayer.count = mLine.count = 0;
  mLayer.Grow(mBlock.count);
  mLine.Grow(mBlock.count);
  for (i32 k = 0; k < PlainSums::kThick; ++k) {
    mLayer.count = 0;
    for (std::size_t p = 0; p < mBlock.count; ++p) {
      const double dz = k - mBlock.z[p], left = 1 - dz * dz / reach2;
      mLayer.Add(mBlock.x[p], mBlock.y[p], dz, left, left > 0);
    }
    for (i32 j = 0; j < PlainSums::kHigh; ++j) {
      mLine.count = 0;
      for (std::size_t p = 0; p < mLayer.count; ++p) {
        const double dy = j - mLayer.y[p], left = mLayer.left[p] - dy * dy / reach2;
        mLine.Add(mLayer.x[p], dy, mLayer.z[p], left, left > 0);
      }
      SumLine(mLine, reach2, sums, (k * PlainSums::kHigh + j) * PlainSums::kWide);
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
