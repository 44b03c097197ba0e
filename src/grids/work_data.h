// The record that a worker gets with its share of a run.
#pragma once
#include <vector>

#include "grids/for_each_cell.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL {

namespace MELDO_SULVA {
class iObject;
}

/// What `Evaluate` receives: who works, on which share. Grid work uses the box, pipeline groups the
/// list of objects; both records share their first fields.
struct MPdata {
  host::HostThread* thread = nullptr;  ///< asked for a break; may be null
  bool isLast = true;                  ///< the last worker, which takes remainders
  i32 index = 0;                       ///< the worker's number
  i32 count = 1;                       ///< workers of this run
  void* user = nullptr;
  VecInt3D min{}, max{};  ///< the worker's cells, upper corner exclusive
  const std::vector<MELDO_SULVA::iObject*>* objects = nullptr;  ///< the current group

  bool TestBreak() const { return thread && thread->TestBreak(); }
  CellBox Box() const { return {min, max}; }
};
using EvaluationThreadData = MPdata;

}  // namespace MELDO_GLOBAL
