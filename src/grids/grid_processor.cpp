#include "grids/grid_processor.h"

namespace MELDO_GLOBAL {

bool GridProcessorRunner::Init(const VecInt3D& dims, i32 axis, bool useAsked,
                               const VecInt3D& askedLower, const VecInt3D& askedUpper) {
  mDims = dims;
  mUseAsked = useAsked;
  mAskedLower = Max(askedLower, {1, 1, 1});
  mAskedUpper = Min(askedUpper, dims - VecInt3D{1, 1, 1});
  mAxis = -1;
  GridWorkData data;
  data.processor = &mProcessor;
  const bool ready = CustomControlThread::Init(data, host::ThreadCount());
  SetAxis(axis);
  return ready;
}

void GridProcessorRunner::SetShare(i32 worker, i32 first, i32 last) {
  GridWorkData& data = mWorkers[worker].data;
  data.min = mLower;
  data.max = mUpper;
  data.min[mAxis] = first;
  data.max[mAxis] = last;
}

void GridProcessorRunner::SetAxis(i32 axis) {
  if (axis == mAxis) return;
  mAxis = axis;
  // A box that is empty or lies outside still splits the grid into an interior and six borders.
  mLower = Min(mUseAsked ? mAskedLower : VecInt3D{1, 1, 1}, mDims);
  mUpper = Max(mUseAsked ? mAskedUpper : mDims - VecInt3D{1, 1, 1}, mLower);
  const i32 lower = mLower[axis], upper = mUpper[axis];
  const i32 size = upper - lower, n = mThreadCount;
  i32 start = lower;
  for (i32 i = 0; i < n; ++i) {
    i32 end;
    if (n > size)
      end = std::min(lower + i + 1, upper);
    else
      end = i == n - 1 ? upper : lower + static_cast<i32>(i64{i + 1} * size / n);
    SetShare(i, start, end);
    start = end;
  }
}

void GridProcessorRunner::Run(ParallelGridProcessor& processor) {
  processor.Begin();
  mProcessor = &processor;
  CustomControlThread::Run();
  mProcessor = nullptr;
}

void GridProcessorRunner::Run(SerialGridProcessor& processor) {
  processor.Begin();
  if (!Interior().IsEmpty()) processor.ProcessInterior(mLower, mUpper);
}

void GridProcessorRunner::RunBorders(GridProcessor& processor) const {
  const VecInt3D n = mDims, a = mLower, b = mUpper;
  const CellBox boxes[6] = {
      {{0, 0, 0}, {n.x, n.y, a.z}},     {{0, 0, b.z}, {n.x, n.y, n.z}},
      {{0, 0, a.z}, {n.x, a.y, b.z}},   {{0, b.y, a.z}, {n.x, n.y, b.z}},
      {{0, a.y, a.z}, {a.x, b.y, b.z}}, {{b.x, a.y, a.z}, {n.x, b.y, b.z}},
  };
  for (const CellBox& box : boxes) processor.ProcessBorder(box.min, box.max);
}

}  // namespace MELDO_GLOBAL
