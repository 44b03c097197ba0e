#include "fluids/surfaces/mesh_reserve.h"

#include "grids/fixed_blocks.h"
#include "grids/mesh_refusal.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// A point and its two triangles, as measured: in a slab with room to grow, joined, as the document
/// has them with normals and velocities, and as a file copies them.
constexpr double kBytesOfPoint = 700;

double CountCrossings(const EGrid<double>& grid, double level, i32 threads) {
  return SumBlocks(grid.mNz - 1, 1, threads, [&](i64 first, i64) {
    i64 count = 0;
    for (i32 y = 0; y + 1 < grid.mNy; ++y) {
      const double* v = grid.mData + grid.Index(0, y, static_cast<i32>(first));
      for (i32 x = 0; x + 1 < grid.mNx; ++x) {
        const bool isIn = v[x] < level;
        count += (isIn != (v[x + 1] < level)) + (isIn != (v[x + grid.mNx] < level)) +
                 (isIn != (v[x + grid.mSlice] < level));
      }
    }
    return static_cast<double>(count);
  });
}

}  // namespace

MeshReserve::MeshReserve(const EGrid<double>& grid, double level, double resolution,
                         double pointsPerEdge, i32 threads) {
  const double points =
      CountCrossings(grid, level, threads) * resolution * resolution * pointsPerEdge;
  const double bytes = kBytesOfPoint * points;
  mIsGranted = HasMemoryFor(bytes);
  if (mIsGranted)
    mMemory.Set(static_cast<u64>(bytes));
  else
    RefuseMesh(points, bytes);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
