#include "fluids/levelset/eikonal_sweeper.h"

#include <cmath>
#include <vector>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kSideKind = 13;

/// The distance at a sample whose nearest neighbours on the three axes have a, b and c, from those
/// of them that lie upwind.
double GodunovDistance(double a, double b, double c, double h) {
  const double low = std::min(a, b), high = std::max(a, b);
  const double first = std::min(low, c), last = std::max(high, c);
  const double middle = std::max(low, std::min(high, c));
  double d = first + h;
  if (d <= middle) return d;
  d = (first + middle + std::sqrt(2 * h * h - (first - middle) * (first - middle))) / 2;
  if (d <= last) return d;
  // About the middle value, so that far-off distances lose no digits.
  const double p = first - middle, q = last - middle;
  const double sum = p + q;
  return middle + (sum + std::sqrt(sum * sum - 3 * (p * p + q * q - h * h))) / 3;
}

/// A row and those beside it; at a border the inner one stands for both.
struct NearRows {
  double* own;
  const u8* sides;
  const double *yLow, *yHigh, *zLow, *zHigh;
};

/// What a row gathers from its neighbours before it is swept.
struct GatheredRow {
  double* sign;
  double* y;
  double* z;
};

void GatherNeighbours(const NearRows& rows, i32 n, const GatheredRow& to) {
  for (i32 x = 0; x < n; ++x) {
    const double s = rows.sides[x] == EikonalSweeper::kInside ? -1.0 : 1.0;
    to.sign[x] = s;
    to.y[x] = std::min(s * rows.yLow[x], s * rows.yHigh[x]);
    to.z[x] = std::min(s * rows.zLow[x], s * rows.zHigh[x]);
  }
}

void SweepEikonalRow(const NearRows& rows, i32 n, i32 di, double h, const GatheredRow& gathered) {
  GatherNeighbours(rows, n, gathered);
  const i32 last = n - 1;
  for (i32 x = di > 0 ? 0 : last; x >= 0 && x <= last; x += di) {
    if (rows.sides[x] == EikonalSweeper::kKnown) continue;
    const double s = gathered.sign[x], now = s * rows.own[x];
    const double low = s * rows.own[x > 0 ? x - 1 : 1];
    const double high = s * rows.own[x < last ? x + 1 : last - 1];
    const double along = std::min(low, high), y = gathered.y[x], z = gathered.z[x];
    if (std::min({along, y, z}) >= now) continue;
    const double d = GodunovDistance(along, y, z, h);
    if (d < now) rows.own[x] = s * d;
  }
}

/// Part of the way to a neighbour at which the field is 0 between them; 1 without a change of sign.
double CrossingTo(double value, double other) {
  if ((other < 0) == (value < 0)) return 1;
  return std::abs(value) / (std::abs(value) + std::abs(other));
}

/// The slope of the field at a sample along an axis without a crossing: the smaller one to both
/// sides, so that what is no distance far from the surface doesn't reach into it.
double CalmSlope(double low, double value, double high) {
  const double a = value - low, b = high - value;
  if ((a < 0) != (b < 0)) return 0;
  return std::abs(a) < std::abs(b) ? a : b;
}

/// The distance of a sample beside a change of sign to the plane that its neighbours tell of; far
/// for all others.
double DistanceBesideSurface(const EGrid<double>& phi, const VecInt3D& at, double h) {
  const i32 i = phi.Index(at.x, at.y, at.z);
  const i32 steps[3] = {1, phi.mNx, phi.mSlice};
  const VecInt3D last = phi.Dims() - VecInt3D{1, 1, 1};
  const double value = phi[i];
  double crossed = 0, calm = 0;  // squared slopes over the value, of both kinds of axes
  for (int axis = 0; axis < 3; ++axis) {
    const double low = at[axis] > 0 ? phi[i - steps[axis]] : value;
    const double high = at[axis] < last[axis] ? phi[i + steps[axis]] : value;
    const double part = std::min(CrossingTo(value, low), CrossingTo(value, high));
    const bool isCrossed = (low < 0) != (value < 0) || (high < 0) != (value < 0);
    const double slope = isCrossed ? 1 / part : CalmSlope(low, value, high) / value;
    (isCrossed ? crossed : calm) += slope * slope;
  }
  if (value == 0 && crossed > 0) return 0;
  return crossed > 0 ? h / std::sqrt(crossed + calm) : EikonalSweeper::kFar;
}

}  // namespace

EikonalSweeper::EikonalSweeper(EGrid<double>& phi, host::HostThread* thread)
    : mPhi(phi), mThread(thread), mSides(phi.Dims(), kSideKind) {}

bool EikonalSweeper::MarkBesideSurface() {
  const EGrid<double> old(mPhi);
  if (!old.mData) return false;
  const double h = mPhi.mLayout.cellSize;
  ForEachBlock(mPhi.mNz, host::ThreadCount(), [&](i32 z) {
    for (i32 y = 0; y < mPhi.mNy; ++y)
      for (i32 x = 0; x < mPhi.mNx; ++x) {
        const i32 i = mPhi.Index(x, y, z);
        const double distance = DistanceBesideSurface(old, {x, y, z}, h);
        const bool inside = old[i] < 0;
        mSides[i] = distance < kFar ? kKnown : inside ? kInside : kOutside;
        mPhi[i] = inside ? -distance : distance;
      }
  });
  return true;
}

void EikonalSweeper::Sweep(i32 di, i32 dj, i32 dk) {
  const i32 nx = mPhi.mNx, ny = mPhi.mNy, nz = mPhi.mNz;
  const double h = mPhi.mLayout.cellSize;
  std::vector<double> space(static_cast<std::size_t>(nx) * 3 * std::min(ny, nz));
  const auto row = [&](i32 y, i32 z) { return mPhi.mData + mPhi.Index(0, y, z); };
  ForEachDiagonalRow(ny, nz, nx, host::ThreadCount(), mThread, [&](i32 m, i32 n, i32 slot) {
    const i32 y = dj > 0 ? m : ny - 1 - m, z = dk > 0 ? n : nz - 1 - n;
    const NearRows rows{row(y, z),
                        mSides.mData + mSides.Index(0, y, z),
                        row(y > 0 ? y - 1 : 1, z),
                        row(y < ny - 1 ? y + 1 : y - 1, z),
                        row(y, z > 0 ? z - 1 : 1),
                        row(y, z < nz - 1 ? z + 1 : z - 1)};
    double* own = space.data() + static_cast<std::size_t>(slot) * 3 * nx;
    SweepEikonalRow(rows, nx, di, h, {own, own + nx, own + 2 * nx});
  });
}

void EikonalSweeper::Run() {
  if (mPhi.mNx < 2 || mPhi.mNy < 2 || mPhi.mNz < 2) return;
  for (const auto& [i, j, k] : kSweepDirections) Sweep(i, j, k);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
