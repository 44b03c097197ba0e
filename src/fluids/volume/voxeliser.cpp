// Distances are kept squared until the sign is set: a root per node, not per candidate.
#include "fluids/volume/voxeliser.h"

#include <limits>

#include "fluids/volume/solid_hair.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr double kHuge = std::numeric_limits<double>::max();
constexpr i32 kBlockLayers = 8;
/// A squared bound, times this, is below the squared distance whatever the rounding.
constexpr double kRelax = 1.0 - 1e-6;

i32 ClampIndex(double c, i32 n) { return c <= 0 ? 0 : c >= n - 1 ? n - 1 : static_cast<i32>(c); }

bool IsFinite(const Vec3d& v) { return std::isfinite(v.x + v.y + v.z); }

/// How far `p` lies outside [low, high].
double Outside(double p, double low, double high) {
  return std::max(std::max(low - p, p - high), 0.0);
}

template <class T>
bool Fit(std::unique_ptr<Grid<T>>& grid, const VecInt3D& dims, T value) {
  if (!grid || !grid->mData || grid->Dims() != dims) {
    grid.reset();
    grid = std::make_unique<Grid<T>>(dims, 3);
  }
  if (!grid->mData) return false;
  grid->Fill(value);
  return true;
}
}  // namespace

i32 VolumeVoxeliser::Blocks() const { return (mTarget->mNz + kBlockLayers - 1) / kBlockLayers; }

void VolumeVoxeliser::Release() {
  mClosest.reset();
  mCrossings.reset();
  mChanged.reset();
  mRecords = {};
  mBands = {};
  mBinned = {};
}

bool VolumeVoxeliser::AllocateWork(const VecInt3D& dims) {
  if (mProgressSize < dims.z) {
    mProgress = std::make_unique<std::atomic<i32>[]>(dims.z);
    mProgressSize = dims.z;
  }
  for (int a = 0; a < 3; ++a) {
    mCoordinates[a].resize(dims[a]);
    const double offset = OffsetOf(mTarget->mKind)[a];
    for (i32 i = 0; i < dims[a]; ++i)
      mCoordinates[a][i] =
          (i + offset) * mTarget->mLayout.simCell[a] + mTarget->mLayout.simOrigin[a];
  }
  return Fit(mClosest, dims, i32{-1}) && Fit(mCrossings, dims, u8{0}) && Fit(mChanged, dims, u8{0});
}

bool VolumeVoxeliser::Voxelise(const TriMeshSTL& mesh, EGrid<double>& target, bool isSigned,
                               i32 threads, const host::HostThread* thread) {
  mMaximumDistance = -1e7;
  mTarget = &target;
  if (mesh.GetTriangleCount() == 0 || !target.mData || !AllocateWork(target.Dims())) return false;
  const auto isStopped = [&] { return thread && thread->TestBreak(); };
  const double cell = target.mLayout.cellSize;
  mSlack = 1e-12 * cell * cell;
  target.Fill(kHuge);
  BuildRecords(mesh, threads);
  BinTriangles();
  ForEachBlock(Blocks(), threads, [&](i32 block) {
    if (!isStopped()) ExactBandPass(mesh, block);
  });
  for (i32 sweep = 0; isSigned && sweep < 8 && !isStopped(); ++sweep) SweepPass(sweep, threads);
  if (isStopped()) return false;
  SignPass(isSigned, threads);
  if (mShellThickness < 1.0) ShellPass(threads);
  return true;
}

// ---- pass 0: exact distances near the triangles ----------------------------------------------

void VolumeVoxeliser::BuildRecords(const TriMeshSTL& mesh, i32 threads) {
  const i32 count = mesh.GetTriangleCount();
  mRecords.resize(count);
  mBands.resize(count);
  const GridLayout& layout = mTarget->mLayout;
  const Vec3d offset = OffsetOf(mTarget->mKind);
  const VecInt3D dims = mTarget->Dims();
  constexpr i32 chunk = 1024;
  ForEachBlock((count + chunk - 1) / chunk, threads, [&](i32 block) {
    for (i32 t = block * chunk; t < std::min(count, (block + 1) * chunk); ++t) {
      const VecInt3D& corner = mesh.GetTriangles()[t];
      Band& band = mBands[t];
      band = {};
      const auto isVertex = [&](i32 i) { return i >= 0 && i < mesh.GetVertexCount(); };
      if (!isVertex(corner.x) || !isVertex(corner.y) || !isVertex(corner.z)) continue;
      const Vec3d &x1 = mesh.GetVertices()[corner.x], &x2 = mesh.GetVertices()[corner.y],
                  &x3 = mesh.GetVertices()[corner.z];
      if (!IsFinite(x1) || !IsFinite(x2) || !IsFinite(x3)) continue;
      mRecords[t].Set(x1, x2, x3);
      band.boxMin = Min(Min(x1, x2), x3);
      band.boxMax = Max(Max(x1, x2), x3);
      const Vec3d low = layout.ToCells(band.boxMin) - offset;
      const Vec3d high = layout.ToCells(band.boxMax) - offset;
      for (int a = 0; a < 3; ++a) {
        band.lo[a] = ClampIndex(std::trunc(low[a]) - mExactBand, dims[a]);
        band.hi[a] = ClampIndex(std::trunc(high[a]) + mExactBand + 1, dims[a]) + 1;
      }
    }
  });
}

void VolumeVoxeliser::BinTriangles() {
  const auto forEachBlock = [](const Band& band, auto&& f) {
    if (band.hi.z == 0) return;
    for (i32 b = band.lo.z / kBlockLayers; b <= (band.hi.z - 1) / kBlockLayers; ++b) f(b);
  };
  const i32 blocks = Blocks();
  mBinStart.assign(blocks + 1, 0);
  for (const Band& band : mBands) forEachBlock(band, [&](i32 b) { ++mBinStart[b + 1]; });
  for (i32 b = 0; b < blocks; ++b) mBinStart[b + 1] += mBinStart[b];
  mBinned.resize(mBinStart[blocks]);
  std::vector<i32> next(mBinStart.begin(), mBinStart.end() - 1);
  for (std::size_t t = 0; t < mBands.size(); ++t)
    forEachBlock(mBands[t], [&](i32 b) { mBinned[next[b]++] = static_cast<i32>(t); });
}

void VolumeVoxeliser::ExactBandPass(const TriMeshSTL& mesh, i32 block) {
  const i32 low = block * kBlockLayers, high = std::min(mTarget->mNz, low + kBlockLayers);
  for (i32 i = mBinStart[block]; i < mBinStart[block + 1]; ++i) {
    MeasureBand(mBinned[i], low, high);
    CountCrossings(mesh, mBinned[i], low, high);
  }
}

void VolumeVoxeliser::MeasureBand(i32 triangle, i32 zLow, i32 zHigh) {
  const Band& band = mBands[triangle];
  for (i32 k = std::max(band.lo.z, zLow); k < std::min(band.hi.z, zHigh); ++k) {
    const double dz = Outside(mCoordinates[2][k], band.boxMin.z, band.boxMax.z);
    for (i32 j = band.lo.y; j < band.hi.y; ++j) {
      const double dy = Outside(mCoordinates[1][j], band.boxMin.y, band.boxMax.y);
      MeasureRow(triangle, j, k, dy * dy + dz * dz);
    }
  }
}

void VolumeVoxeliser::MeasureRow(i32 triangle, i32 j, i32 k, double boundYZ) {
  const Band& band = mBands[triangle];
  const TriangleRecord& record = mRecords[triangle];
  const i32 row = mTarget->Index(0, j, k);
  double* value = mTarget->mData + row;
  const double* px = mCoordinates[0].data();
  const double y = mCoordinates[1][j], z = mCoordinates[2][k];
  const double plane = record.PlaneDistance({record.x3.x, y, z});
  const double nx = record.normal.x, x3 = record.x3.x;
  const double boxLow = band.boxMin.x, boxHigh = band.boxMax.x;
  constexpr i32 chunk = 64;
  double excess[chunk];
  for (i32 from = band.lo.x; from < band.hi.x; from += chunk) {
    const i32 n = std::min(chunk, band.hi.x - from);
    // Most nodes are ruled out by the distances from the triangle's box and plane.
    for (i32 i = 0; i < n; ++i) {
      const double dx = Outside(px[from + i], boxLow, boxHigh);
      const double d = plane + nx * (px[from + i] - x3);
      excess[i] = std::max(boundYZ + dx * dx, d * d) * kRelax - value[from + i];
    }
    for (i32 i = 0; i < n; ++i) {
      if (excess[i] > mSlack) continue;
      const i32 x = from + i;
      const double squared = record.SquaredDistance({px[x], y, z});
      if (squared < value[x]) {
        value[x] = squared;
        mClosest->mData[row + x] = triangle;
      }
    }
  }
}

void VolumeVoxeliser::CountCrossings(const TriMeshSTL& mesh, i32 triangle, i32 zLow, i32 zHigh) {
  const VecInt3D& corner = mesh.GetTriangles()[triangle];
  const Vec3d offset = OffsetOf(mTarget->mKind);
  Vec3d p[3];
  for (int c = 0; c < 3; ++c)
    p[c] = mTarget->mLayout.ToCells(mesh.GetVertices()[corner[c]]) - offset;
  const Vec3d low = Min(Min(p[0], p[1]), p[2]), high = Max(Max(p[0], p[1]), p[2]);
  const i32 j0 = ClampIndex(std::ceil(low.y), mTarget->mNy);
  const i32 j1 = ClampIndex(std::floor(high.y), mTarget->mNy);
  const i32 k0 = std::max(ClampIndex(std::ceil(low.z), mTarget->mNz), zLow);
  const i32 k1 = std::min(ClampIndex(std::floor(high.z), mTarget->mNz), zHigh - 1);
  for (i32 k = k0; k <= k1; ++k)
    for (i32 j = j0; j <= j1; ++j) {
      double w[3];
      const auto at = [&](int c) { return Vec2D<double>{p[c].y - j, p[c].z - k}; };
      if (!HoldsOrigin(at(0), at(1), at(2), w)) continue;
      const double x = std::ceil(w[0] * p[0].x + w[1] * p[1].x + w[2] * p[2].x);
      if (x < mTarget->mNx) ++(*mCrossings)(x < 0 ? 0 : static_cast<i32>(x), j, k);
    }
}

// ---- passes 2 and 3: sign and shell -----------------------------------------------------------

void VolumeVoxeliser::SignPass(bool isSigned, i32 threads) {
  const i32 nx = mTarget->mNx, ny = mTarget->mNy;
  // Nothing lies in a sheet: what it closes are the faces that it crosses, and a slot whose edges
  // lie in nodes is open between them.
  const double nearest = 2 * kSolidHair * mTarget->mLayout.cellSize;
  mMaximumDistance = ReduceBlocks(
      mTarget->mNz, threads, -1e7,
      [&](i32 k) {
        double deepest = -1e7;
        for (i32 j = 0; j < ny; ++j) {
          const i32 row = mTarget->Index(0, j, k);
          double* value = mTarget->mData + row;
          for (i32 i = 0; i < nx; ++i)
            if (value[i] != kHuge) value[i] = std::sqrt(value[i]);
          if (mIsSheet)
            for (i32 i = 0; i < nx; ++i) value[i] = std::max(value[i], nearest);
          if (!isSigned || mIsSheet) continue;
          const u8* crossings = mCrossings->mData + row;
          u8 count = 0;
          for (i32 i = 0; i < nx; ++i) {
            count += crossings[i];
            const bool inside = count & 1;
            if (inside) deepest = std::max(deepest, value[i]);
            if (inside != mInverted) value[i] = -value[i];
          }
        }
        return deepest;
      },
      [](double a, double b) { return std::max(a, b); });
}

void VolumeVoxeliser::ShellPass(i32 threads) {
  const double inner = -(mMaximumDistance * mShellThickness);
  const double middle = -(mShellThickness * 0.5 * mMaximumDistance);
  ForEachBlock(mTarget->mNz, threads, [&](i32 k) {
    double* value = mTarget->mData + mTarget->Index(0, 0, k);
    for (i32 i = 0; i < mTarget->mSlice; ++i) {
      const double v = value[i];
      if (v <= inner) {
        value[i] = -(v - inner);
      } else if (v <= middle) {
        value[i] = 2 * middle - v;
      }
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
