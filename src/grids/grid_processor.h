// Grid work in two parts: an interior that is cut along an axis, and the borders round it.
#pragma once
#include "grids/control_thread.h"

namespace MELDO_GLOBAL {

/// A piece of grid work.
class GridProcessor {
 public:
  virtual ~GridProcessor() = default;
  /// Called once per run, before any cell.
  virtual void Begin() {}
  /// Works through the inner cells [min, max).
  virtual void ProcessInterior(const VecInt3D& min, const VecInt3D& max) = 0;
  /// Works through cells [min, max) outside the interior.
  virtual void ProcessBorder(const VecInt3D& /*min*/, const VecInt3D& /*max*/) {}
};

/// Work whose interior runs on the workers, a slab each.
class ParallelGridProcessor : public GridProcessor {};

/// Work whose interior runs in one piece on the calling thread.
class SerialGridProcessor : public GridProcessor {};

/// The record of a worker: its slab, empty when there are more workers than layers.
struct GridWorkData {
  i32 index = 0;
  i32 count = 1;
  bool isLast = true;
  ParallelGridProcessor* const* processor = nullptr;
  VecInt3D min{}, max{};
};

struct DelegateGridWorker {
  GridWorkData data;
  void Main() {
    if (*data.processor && !CellBox{data.min, data.max}.IsEmpty())
      (*data.processor)->ProcessInterior(data.min, data.max);
  }
};

/// Runs grid processors on slabs along a chosen axis, and on the borders.
///
/// The interior is the asked box, or all cells but the outermost layer.
class GridProcessorRunner : private CustomControlThread<DelegateGridWorker, GridWorkData> {
 public:
  /// Sets up one worker per host thread on a grid of `dims` cells. An asked box is limited to
  /// [1, dims - 1).
  bool Init(const VecInt3D& dims, i32 axis, bool useAsked = false, const VecInt3D& askedLower = {},
            const VecInt3D& askedUpper = {});
  /// Cuts the interior along another axis: 0, 1 or 2.
  void SetAxis(i32 axis);
  /// The processor's interior on the workers; returns when all have ended.
  void Run(ParallelGridProcessor& processor);
  /// The processor's interior on the calling thread.
  void Run(SerialGridProcessor& processor);
  /// The cells outside the interior, each once, in six boxes on the calling thread.
  void RunBorders(GridProcessor& processor) const;

  CellBox Interior() const { return {mLower, mUpper}; }
  using CustomControlThread::GetThreadCount;
  using CustomControlThread::IsReady;

 private:
  void SetShare(i32 worker, i32 first, i32 last);

  ParallelGridProcessor* mProcessor = nullptr;
  VecInt3D mDims{};
  VecInt3D mAskedLower{}, mAskedUpper{};
  VecInt3D mLower{}, mUpper{};
  bool mUseAsked = false;
  i32 mAxis = -1;
};

}  // namespace MELDO_GLOBAL
