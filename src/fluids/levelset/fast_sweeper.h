// Distances that spread over a grid from the samples that know theirs.
#pragma once
#include "grids/egrid.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sweeps a grid of distances in the eight diagonal directions. The spacing is the grid's cell
/// size.
///
/// After Zhao, "A fast sweeping method for eikonal equations" (2004), on the seven upwind
/// neighbours of a sample, one at a time: a neighbour of value b offers b + h, so that distances
/// are counted in steps of h to the neighbours, along diagonals too. Values never rise.
template <class T>
class FastSweeper {
 public:
  /// Which samples a sweep changes.
  enum Mode : i32 {
    kBothSides = 0,
    kPositive = 1,  ///< samples below 0 are left alone
    kNegative = 2,  ///< samples of 0 and more are left alone
  };

  explicit FastSweeper(EGrid<T>& grid, host::HostThread* thread = nullptr)
      : mGrid(&grid), mThread(thread) {}

  /// One sweep; `i`, `j`, `k` are 1 or -1, the way along each axis. The first layer of an axis is
  /// read, not changed. The serial result for every number of workers.
  void Sweep(i32 i, i32 j, i32 k, i32 mode) const { SweepOn(1, i, j, k, mode); }
  /// All eight directions, one after the other, `rounds` times; `threaded` only says who works.
  void Run(bool threaded, i32 rounds, i32 mode = kPositive) const;

 private:
  void SweepOn(i32 threads, i32 i, i32 j, i32 k, i32 mode) const;

  EGrid<T>* mGrid;
  host::HostThread* mThread;
};

extern template class FastSweeper<double>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
