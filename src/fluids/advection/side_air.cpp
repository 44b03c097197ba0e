#include "fluids/advection/side_air.h"

#include <algorithm>
#include <cmath>

#include "fluids/flow/solid_cells.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Cells that air may come in by in a step. Beyond, a step of a cell is lost in rounding.
constexpr double kFarthest = 1e9;

/// A cell of the outermost layer, beside an inner one.
struct SideCell {
  VecInt3D at;
  i32 axis;
  bool isHigh;
  double inwards;  ///< what the air between the two moves in a step, in cells

  Vec3d Centre() const { return ToReal(at) + Vec3d{0.5, 0.5, 0.5}; }
};

/// Calls f(cell) for the outermost cells at the open sides of layer `z`, but for edges and corners
/// and those beside solids.
template <class F>
void ForEachSideCell(const AdvectionData& data, i32 z, F&& f) {
  const EGrid<double>& shape = data.Shape();
  const VecInt3D n = shape.Dims();
  const u8* flags = data.solidCells && data.solidCells->mData && data.solidCells->Dims() == n
                        ? data.solidCells->mData
                        : nullptr;
  const double perCell = data.step / shape.mLayout.cellSize;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool isHigh : {false, true}) {
      if (data.sides & (isHigh ? kHighWall : kLowWall)[axis]) continue;
      CellBox side{{1, 1, 1}, n - VecInt3D{1, 1, 1}};
      side.min[axis] = isHigh ? n[axis] - 1 : 0;
      side.max[axis] = side.min[axis] + 1;
      if (z < side.min.z || z >= side.max.z) continue;
      side.min.z = z;
      side.max.z = z + 1;
      const EGrid<double>& velocity = data.velocity.Component(axis);
      const VecInt3D up = isHigh ? VecInt3D{} : ExtraOf(axis);
      const VecInt3D inner = isHigh ? VecInt3D{} - ExtraOf(axis) : ExtraOf(axis);
      ForEachCell(side, [&](i32 x, i32 y, i32) {
        const VecInt3D cell = VecInt3D{x, y, z} + inner;
        if (flags && !(flags[shape.Index(cell.x, cell.y, cell.z)] & SolidCells::kOpenCentre))
          return;
        const double u = velocity(x + up.x, y + up.y, z + up.z) * perCell;
        f(SideCell{{x, y, z}, axis, isHigh, isHigh ? -u : u});
      });
    }
}

/// Paths that are followed together.
class PathBundle {
 public:
  PathBundle(const AdvectionData& data, double step)
      : mData(data), mStep(step / data.Shape().mLayout.cellSize) {}
  bool IsFull() const { return mCount == kRowChunk; }
  void Add(const Vec3d& start, const SideCell& cell) {
    mStart.Set(mCount, start);
    mCells[mCount++] = cell;
  }
  /// Calls f(cells, ends, count), and begins anew.
  template <class F>
  void Follow(F&& f) {
    if (mCount == 0) return;
    SampleVelocity(mData.velocity, mStart, mStart, 0, mCount, mVelocity);
    TraceRow(mData.velocity, mStart, mVelocity, mStep, mData.order, mCount, mEnds);
    f(mCells, mEnds, mCount);
    mCount = 0;
  }

 private:
  const AdvectionData& mData;
  double mStep;
  i32 mCount = 0;
  SideCell mCells[kRowChunk];
  RowVectors mStart, mVelocity, mEnds;
};

}  // namespace

void PredictOutside(const AdvectionData& data, i32 z) {
  PathBundle paths(data, -data.step);
  SamplePoints from;
  RowValues values;
  const auto predict = [&](const SideCell* cells, RowVectors& ends, i32 count) {
    for (i32 i = 0; i < count; ++i) {
      const i32 axis = cells[i].axis;
      double& c = ends.axis[axis].v[i];
      c = std::clamp(c, 1.5, data.Shape().Dims()[axis] - 1.5);
    }
    from.Find(data.Shape(), data.thin, ends, count);
    for (const AdvectedField& field : data.fields) {
      SampleRow(data.sampling, *field.source, field.spline, from, values.v);
      for (i32 i = 0; i < count; ++i) {
        const VecInt3D& at = cells[i].at;
        (*field.predicted)(at.x, at.y, at.z) = values.v[i];
      }
    }
  };
  ForEachSideCell(data, z, [&](const SideCell& cell) {
    if (!(cell.inwards < 0)) return;
    paths.Add(cell.Centre(), cell);
    if (paths.IsFull()) paths.Follow(predict);
  });
  paths.Follow(predict);
}

void AddInflowCorrections(const AdvectionData& data, i32 z) {
  PathBundle paths(data, data.step);
  SamplePoints to;
  RowValues values;
  const auto correct = [&](const SideCell*, const RowVectors& ends, i32 count) {
    to.Find(data.Shape(), data.thin, ends, count);
    for (const AdvectedField& field : data.fields) {
      if (!field.balance) continue;
      SampleRow(data.sampling, *field.predicted, field.spline, to, values.v);
      double sum = 0;
      for (i32 i = 0; i < count; ++i) sum += field.walls.outside - values.v[i];
      field.balance->SumsOf(z, 0).whole += 0.5 * field.strength * sum;
    }
  };
  ForEachSideCell(data, z, [&](const SideCell& cell) {
    if (!(cell.inwards > 0 && cell.inwards < kFarthest)) return;
    // As far out as a path of the step begins that ends inside.
    Vec3d start = cell.Centre();
    double way = std::max(0.0, std::floor(cell.inwards - data.Shape().Dims()[cell.axis]));
    start[cell.axis] += cell.isHigh ? way : -way;
    for (; way < cell.inwards + 0.5; ++way) {
      paths.Add(start, cell);
      if (paths.IsFull()) paths.Follow(correct);
      start[cell.axis] += cell.isHigh ? 1 : -1;
    }
  });
  paths.Follow(correct);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
