// The one helper behind every reduction and every seam: blocks that don't depend on the thread
// count, so that results don't either.
#pragma once
#include <algorithm>
#include <type_traits>
#include <vector>

#include "host/worker_pool.h"

namespace MELDO_GLOBAL {

/// Runs f(block) for blocks 0 .. blocks - 1 on `threads` workers, each a contiguous run of blocks.
/// Blocks must not touch what another block writes.
template <class F>
void ForEachBlock(i32 blocks, i32 threads, F&& f) {
  const i32 workers = std::clamp(std::min(threads, blocks), 1, host::kMaxWorkers);
  if (workers == 1) {
    for (i32 b = 0; b < blocks; ++b) f(b);
    return;
  }
  host::WorkerPool::Instance().Run(workers, [&](i32 w) {
    const i32 first = static_cast<i32>(i64{blocks} * w / workers);
    const i32 last = static_cast<i32>(i64{blocks} * (w + 1) / workers);
    for (i32 b = first; b < last; ++b) f(b);
  });
}

struct IndexRange {
  i32 first = 0, last = 0;
  bool IsEmpty() const { return first >= last; }
};

/// The items of [first, last) that fall to one of `parts` parts, which follow each other; some are
/// empty when there are few items.
inline IndexRange PartOf(i32 part, i32 parts, i32 first, i32 last) {
  const i64 count = std::max(last - first, 0);
  return {first + static_cast<i32>(count * part / parts),
          first + static_cast<i32>(count * (part + 1) / parts)};
}

/// Folds f(block) over all blocks, in block order whatever the thread count:
/// combine(...combine(start, f(0))..., f(blocks - 1)).
template <class R, class F, class Combine>
R ReduceBlocks(i32 blocks, i32 threads, R start, F&& f, Combine&& combine) {
  static_assert(!std::is_same_v<R, bool>, "workers would share the words of a vector<bool>");
  std::vector<R> partial(std::max(blocks, 0));
  ForEachBlock(blocks, threads, [&](i32 b) { partial[b] = f(b); });
  for (const R& p : partial) start = combine(start, p);
  return start;
}

/// The sum of f(first, last) over [0, count) cut into blocks of `block` items.
template <class F>
double SumBlocks(i64 count, i64 block, i32 threads, F&& f) {
  const i32 blocks = static_cast<i32>((count + block - 1) / block);
  return ReduceBlocks(
      blocks, threads, 0.0, [&](i32 b) { return f(b * block, std::min(count, (b + 1) * block)); },
      [](double a, double b) { return a + b; });
}

/// The largest f(first, last) over [0, count) cut into blocks of `block` items; 0 without items.
template <class F>
double MaxBlocks(i64 count, i64 block, i32 threads, F&& f) {
  const i32 blocks = static_cast<i32>((count + block - 1) / block);
  return ReduceBlocks(
      blocks, threads, 0.0, [&](i32 b) { return f(b * block, std::min(count, (b + 1) * block)); },
      [](double a, double b) { return std::max(a, b); });
}

}  // namespace MELDO_GLOBAL
