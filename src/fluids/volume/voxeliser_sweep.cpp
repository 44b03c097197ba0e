// The eight sweeps that carry closest triangles from node to node.
//
// In a sweep a node reads seven neighbours that stand before it in the sweep's order, and writes
// itself alone. Any order that respects this has the result of the plain triple loop, so planes run
// on several workers, each a few rows behind the plane before it.
#include "fluids/volume/voxeliser.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr VecInt3D kDirections[8] = {{1, 1, 1},  {-1, -1, -1}, {1, 1, -1},  {-1, -1, 1},
                                     {1, -1, 1}, {-1, 1, -1},  {1, -1, -1}, {-1, 1, 1}};
/// Neighbours that a node reads, in units of the direction, in reading order.
constexpr VecInt3D kUpwind[7] = {{1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 1},
                                 {1, 0, 1}, {0, 1, 1}, {1, 1, 1}};
constexpr i32 kRowsAtOnce = 16;
constexpr i32 kMostWorkers = 8;

/// Whether the sweep in direction `d` also reads the neighbour that `upwind` is in direction `s`.
bool Reads(const VecInt3D& d, const VecInt3D& upwind, const VecInt3D& s) {
  return (!upwind.x || d.x == s.x) && (!upwind.y || d.y == s.y) && (!upwind.z || d.z == s.z);
}
}  // namespace

struct VolumeVoxeliser::Sweep {
  VecInt3D step, first, end;
  i32 offset[7];
  /// A neighbour whose change stamp isn't above this was already read in its present state.
  i32 seen[7];
  u8 stamp;
  double
      exact;  ///< squared distances below are final: every nearer triangle had the node in its band

  Sweep(i32 index, const Grid<double>& grid, double exactDistance)
      : step(kDirections[index]), stamp(static_cast<u8>(index + 1)) {
    exact = exactDistance * exactDistance * (1 - 1e-6);
    const VecInt3D dims = grid.Dims();
    for (int a = 0; a < 3; ++a) {
      first[a] = step[a] > 0 ? 1 : dims[a] - 2;
      end[a] = step[a] > 0 ? dims[a] : -1;
    }
    for (int q = 0; q < 7; ++q) {
      const VecInt3D o = step * kUpwind[q];
      offset[q] = -(o.x + o.y * grid.mNx + o.z * grid.mSlice);
      seen[q] = -1;
      for (i32 s = 0; s < index; ++s)
        if (Reads(kDirections[s], kUpwind[q], step)) seen[q] = s + 1;
    }
  }
};

void VolumeVoxeliser::SweepPass(i32 index, i32 threads) {
  const Sweep sweep(index, *mTarget, (mExactBand + 1) * double{mTarget->mLayout.cellSize});
  const i32 planes = mTarget->mNz - 1;
  const i32 workers = std::clamp(std::min(threads, planes), 1, kMostWorkers);
  for (i32 k = 0; k < mTarget->mNz; ++k) mProgress[k].store(0, std::memory_order_relaxed);
  if (workers == 1) {
    for (i32 plane = 0; plane < planes; ++plane) SweepPlane(sweep, plane, false);
    return;
  }
  // Taken in order, so that the plane that one waits for is in work, on however few threads.
  std::atomic<i32> next{0};
  host::WorkerPool::Instance().Run(workers, [&](i32) {
    for (i32 plane; (plane = next.fetch_add(1)) < planes;) SweepPlane(sweep, plane, true);
  });
}

/// Follows the plane before at a distance where planes are swept side by side.
void VolumeVoxeliser::SweepPlane(const Sweep& sweep, i32 plane, bool isShared) {
  const i32 rows = mTarget->mNy - 1;
  const i32 k = sweep.first.z + plane * sweep.step.z;
  for (i32 row = 0; row < rows;) {
    const i32 last = std::min(rows, row + kRowsAtOnce);
    if (isShared && plane > 0) {
      std::atomic<i32>& before = mProgress[plane - 1];
      for (i32 done; (done = before.load(std::memory_order_acquire)) < last;)
        before.wait(done, std::memory_order_acquire);
    }
    for (; row < last; ++row) SweepRow(sweep, sweep.first.y + row * sweep.step.y, k);
    if (isShared) {
      // notify_one() looks whether anyone waits: a store that may be delayed behind that look
      // leaves the follower asleep for good.
      mProgress[plane].store(last);
      mProgress[plane].notify_one();
    }
  }
}

void VolumeVoxeliser::SweepRow(const Sweep& sweep, i32 j, i32 k) {
  const i32 nx = mTarget->mNx, row = mTarget->Index(0, j, k);
  double* value = mTarget->mData + row;
  i32* closest = mClosest->mData + row;
  u8* changed = mChanged->mData + row;
  const double y = mCoordinates[1][j], z = mCoordinates[2][k];
  // Nodes on the border take part in half of the sweeps only, so what they have seen is unknown.
  const bool borderRow = j == 0 || k == 0 || j == mTarget->mNy - 1 || k == mTarget->mNz - 1;
  for (i32 i = sweep.first.x; i != sweep.end.x; i += sweep.step.x) {
    if (value[i] < sweep.exact) continue;
    const bool border = borderRow || i == 0 || i == nx - 1;
    const Vec3d p{mCoordinates[0][i], y, z};
    double best = value[i];
    i32 own = closest[i], last = -1;
    for (int q = 0; q < 7; ++q) {
      const i32 n = i + sweep.offset[q];
      if (!border && changed[n] <= sweep.seen[q]) continue;
      const i32 t = closest[n];
      if (t < 0 || t == own || t == last) continue;
      last = t;
      const TriangleRecord& record = mRecords[t];
      const double plane = record.PlaneDistance(p);
      if (plane * plane * (1 - 1e-6) - best > mSlack) continue;
      const double squared = record.SquaredDistance(p);
      if (squared < best) best = squared, own = t;
    }
    if (own == closest[i]) continue;
    value[i] = best;
    closest[i] = own;
    changed[i] = sweep.stamp;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
