#include "fluids/solvers/position_correction.h"

#include <algorithm>

#include "fluids/advection/flow_solid.h"
#include "fluids/flow/face_stencil.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

PositionCorrection::PositionCorrection(Scene* scene, Flow& flow) {
  mProjection.Rebind(nullptr, scene);
  mProjection.mFlow = &flow;
}

void PositionCorrection::Release(bool full) {
  mProjection.Release(full);
  mExtrapolation.Release();
}

void PositionCorrection::Run(const ParticleSort& sort, Flow& flow, i32 rounds) {
  if (sort.Count() == 0 || !mSource.AddSource(sort, flow)) return;
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& u = *flow.mVelocity.GetGridForWrite(axis);
    std::copy_n(u.mData, u.mCount, flow.mVelocity.mPrevious[axis]->mData);
    std::fill_n(u.mData, u.mCount, 0.0);
  }
  const bool isFound = mProjection.Project();
  mProjection.TakeReports();
  mProjection.TakeWarnings();
  if (isFound) {
    mExtrapolation.ExtendVelocity(flow, rounds);
    flow.SetWallVelocities(1.0);
    Move(sort, flow);
  }
  flow.mDivergence.Reset();
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& u = *flow.mVelocity.GetGridForWrite(axis);
    std::copy_n(flow.mVelocity.mPrevious[axis]->mData, u.mCount, u.mData);
  }
}

void PositionCorrection::Move(const ParticleSort& sort, const Flow& flow) const {
  const GridLayout& layout = *flow.GetLayout();
  const FlowSolid solid(flow.mBoundary);
  const FaceStencils stencils(layout);
  const double dt = flow.StepDuration(), h = layout.cellSize;
  const VecInt3D n = layout.dims;
  const EvenCells* even = mSource.EvenOf(flow);
  std::vector<std::span<Vec3d>> positions;
  for (ParticleGroup* group : sort.Groups())
    positions.push_back(group->Store(sort.Kind()).Positions());
  const auto isIntoSolid = [&](const Vec3d& from, const Vec3d& way) {
    const double beyond = solid.At(from + way).distance;
    return beyond < 0.1 * h && beyond < solid.At(from).distance;
  };
  ForEachBlock(n.z, flow.Threads(), [&](i32 z) {
    sort.ForEachInBox({0, 0, z}, {n.x, n.y, z + 1}, [&](const ParticleSort::Entry& entry) {
      const Vec3d p = layout.ToCells(entry.position);
      if (even && even->PartsAt(p) > 0) return;
      Vec3d way;
      for (i32 axis = 0; axis < 3; ++axis)
        way[axis] = dt * stencils[axis].At(p).Sample(flow.mVelocity.GetGrid(axis)->mData);
      const double length = Length(way);
      if (!(length > 0)) return;
      way *= std::min(1.0, kMost * h / length);
      if (!solid.IsEmpty() && isIntoSolid(entry.position, way)) {
        // Who crowds beside a solid goes along it.
        const Vec3d normal = solid.NormalAt(entry.position, solid.At(entry.position));
        way -= normal * std::min(Dot(normal, way), 0.0);
        if (isIntoSolid(entry.position, way)) return;
      }
      positions[entry.group][entry.row] = entry.position + way;
    });
  });
  for (ParticleGroup* group : sort.Groups()) group->MarkTreeStale(sort.Kind());
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
