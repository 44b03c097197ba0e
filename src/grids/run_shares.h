// One share of a piece of work for every worker.
#pragma once
#include "grids/work_data.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL {

/// Runs f(share) on `count` workers; each share names its worker, how many there are, and `thread`
/// to ask for a break. Which cells a share has is left to f.
template <class F>
void RunShares(i32 count, host::HostThread* thread, F&& f) {
  host::WorkerPool::Instance().Run(count, [&](i32 index) {
    EvaluationThreadData share;
    share.thread = thread;
    share.index = index;
    share.count = count;
    share.isLast = index == count - 1;
    f(share);
  });
}

}  // namespace MELDO_GLOBAL
