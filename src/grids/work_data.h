// Work that keeps something for each of its workers: a share for each of a fixed number of them.
#pragma once
#include <vector>

#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL {

namespace MELDO_SULVA {
class iObject;
}

/// The workers that such work is shared out to, each with its own random stream and the like. Their
/// number is the same on every machine, so that results don't depend on the threads that do it.
inline constexpr i32 kShares = host::kMaxWorkers;

/// One worker's share. Without more words it is the whole.
struct EvaluationThreadData {
  host::HostThread* thread = nullptr;                           ///< asked for a break; may be null
  i32 index = 0;                                                ///< the worker's number
  i32 count = 1;                                                ///< workers of this run
  const std::vector<MELDO_SULVA::iObject*>* objects = nullptr;  ///< the current group

  bool TestBreak() const { return thread && thread->TestBreak(); }
  /// The share of the items [first, last).
  IndexRange ItemsOf(i32 first, i32 last) const { return PartOf(index, count, first, last); }
  /// The share of the z layers of a box.
  CellBox LayersOf(const CellBox& box) const {
    const IndexRange z = ItemsOf(box.min.z, box.max.z);
    return {{box.min.x, box.min.y, z.first}, {box.max.x, box.max.y, z.last}};
  }
  /// The share of the layers of an array of `dims` samples without its outermost ones.
  CellBox InnerLayersOf(const VecInt3D& dims) const {
    return LayersOf({{1, 1, 1}, dims - VecInt3D{1, 1, 1}});
  }
};

/// Runs f(share) for all shares on `threads` threads, which take them in turn.
template <class F>
void ForEachShare(i32 threads, host::HostThread* thread, F&& f) {
  threads = std::clamp(threads, 1, kShares);
  ForEachBlock(threads, threads, [&](i32 own) {
    EvaluationThreadData share;
    share.thread = thread;
    share.count = kShares;
    for (share.index = own; share.index < kShares; share.index += threads) f(share);
  });
}

}  // namespace MELDO_GLOBAL
