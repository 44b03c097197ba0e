// Triangle meshes as distance grids.
#pragma once
#include <atomic>
#include <memory>
#include <vector>

#include "fluids/mesh/tri_mesh.h"
#include "fluids/volume/triangle_distance.h"
#include "grids/egrid.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Turns a triangle mesh into a distance grid in four passes: exact distances in a band round each
/// triangle, closest triangles carried outwards by eight sweeps, the sign by the parity of
/// crossings along x, and a hollow shell.
///
/// The result is the same at any thread count: in the band the minimum over the triangles, the
/// lower index on ties; further out that of the eight sweeps run one after the other.
class VolumeVoxeliser {
 public:
  VolumeVoxeliser() = default;
  /// Fills `target` with the distances to `mesh`, both in simulation units; signed ones are
  /// negative inside. Unsigned, only the band is filled and the largest double stands elsewhere.
  /// Runs on at most `threads` workers. False without triangles or memory, or when `thread` was
  /// told to stop.
  bool Voxelise(const TriMeshSTL& mesh, EGrid<double>& target, bool isSigned, i32 threads,
                const host::HostThread* thread = nullptr);
  /// Frees the work grids.
  void Release();

  /// Index of the nearest triangle at each node, -1 for none; null before the first run.
  const Grid<i32>* ClosestTriangles() const { return mClosest.get(); }

  double mShellThickness = 0;      ///< fraction of the greatest depth; 1 or more is solid
  i32 mExactBand = 3;              ///< cells round a triangle's box
  bool mInverted = false;          ///< inside and outside swap
  bool mIsSheet = false;           ///< there is no inside: no distance is negative
  double mMaximumDistance = -1e7;  ///< greatest interior distance of the last run

 private:
  /// Nodes [lo, hi) round a triangle, and its box in simulation units.
  struct Band {
    VecInt3D lo, hi;
    Vec3d boxMin, boxMax;
  };
  struct Sweep;

  bool AllocateWork(const VecInt3D& dims);
  void BuildRecords(const TriMeshSTL& mesh, i32 threads);
  void BinTriangles();
  void ExactBandPass(const TriMeshSTL& mesh, i32 block);
  void MeasureBand(i32 triangle, i32 zLow, i32 zHigh);
  void MeasureRow(i32 triangle, i32 j, i32 k, double boundYZ);
  void CountCrossings(const TriMeshSTL& mesh, i32 triangle, i32 zLow, i32 zHigh);
  void SweepPass(i32 index, i32 threads);
  void SweepPlane(const Sweep& sweep, i32 plane, bool isShared);
  void SweepRow(const Sweep& sweep, i32 j, i32 k);
  void SignPass(bool isSigned, i32 threads);
  void ShellPass(i32 threads);
  i32 Blocks() const;

  EGrid<double>* mTarget = nullptr;
  std::unique_ptr<Grid<i32>> mClosest;
  std::unique_ptr<Grid<u8>> mCrossings;  ///< counts modulo 256: their parity is what counts
  std::unique_ptr<Grid<u8>> mChanged;    ///< 0, or 1 + the last sweep that changed the node
  std::vector<TriangleRecord> mRecords;
  std::vector<Band> mBands;
  std::vector<i32> mBinStart, mBinned;            ///< triangles by block of z layers, ascending
  std::vector<double> mCoordinates[3];            ///< node positions along each axis
  std::unique_ptr<std::atomic<i32>[]> mProgress;  ///< rows done in each plane of a sweep
  i32 mProgressSize = 0;
  double mSlack = 0;  ///< rounding of squared distance bounds
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
