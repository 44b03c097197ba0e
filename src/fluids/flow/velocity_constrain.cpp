#include "fluids/flow/velocity_constrain.h"

#include <algorithm>

#include "fluids/volume/volume_base.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void VelocityConstrain::Run(Flow& flow) {
  const GridLayout* layout = flow.GetLayout();
  if (!layout) return;
  mFaces.resize(std::max(layout->dims.z, 0));
  mMoves = flow.StepDuration() > 0 && flow.mBoundary.DrivesFlow();
  // All new velocities come from the old ones.
  ForEachBlock(layout->dims.z, flow.Threads(), [&](i32 z) {
    mFaces[z].clear();
    for (i32 axis = 0; axis < 3; ++axis) Compute(flow, axis, z);
  });
  ForEachBlock(layout->dims.z, flow.Threads(), [&](i32 z) {
    for (const ClosedFace& face : mFaces[z])
      (*flow.mVelocity.GetGridForWrite(face.axis))[face.index] = face.value;
  });
}

void VelocityConstrain::Compute(const Flow& flow, i32 axis, i32 z) {
  const EGrid<double>* grid = flow.mVelocity.GetGrid(axis);
  const EGrid<float>* open = flow.GetOpenFaces(axis);
  if (!grid || !open) return;
  const VecInt3D top = grid->Dims() - VecInt3D{1, 1, 1};
  if (z < 1 || z >= top.z) return;
  for (i32 y = 1; y < top.y; ++y) {
    const i32 row = grid->Index(0, y, z);
    for (i32 x = 1; x < top.x; ++x)
      if ((*open)[row + x] == 0)
        mFaces[z].push_back({axis, row + x, SolidFace(flow, axis, x, y, z)});
  }
}

double VelocityConstrain::SolidFace(const Flow& flow, i32 axis, i32 x, i32 y, i32 z) const {
  const EGrid<double>& own = *flow.mVelocity.GetGrid(axis);
  const Vec3d p = own.PositionOf(x, y, z);
  const bool moves = mMoves && (mSettings.useBodyVelocities || mSettings.followObstacles);
  const Vec3d surface = moves ? flow.mBoundary.GetFlowVelocity(p) / flow.StepDuration() : Vec3d{};
  // Distances tell nothing of the way along a thin wall: it holds the gas on its two sides alike.
  if (flow.mThinFaces.HasAny() && flow.mThinFaces.ClosesFace(axis, x, y, z)) return surface[axis];
  const Vec3d solid = mSettings.useBodyVelocities ? surface : Vec3d{};
  if (mSettings.blend <= 0) return solid[axis];

  // The other two components: the mean of the four faces nearest to this one.
  Vec3d v;
  const VecInt3D back = ExtraOf(axis);
  for (i32 other = 0; other < 3; ++other) {
    const EGrid<double>& g = *flow.mVelocity.GetGrid(other);
    if (other == axis) {
      v[other] = g(x, y, z);
      continue;
    }
    const VecInt3D up = ExtraOf(other);
    v[other] = 0.25 * ((g(x, y, z) + g(x + up.x, y + up.y, z + up.z)) +
                       (g(x - back.x, y - back.y, z - back.z) +
                        g(x - back.x + up.x, y - back.y + up.y, z - back.z + up.z)));
  }
  const Vec3d n =
      flow.mBoundary.GradientIndex(Vec3d{double(x), double(y), double(z)} + OffsetOf(axis));
  const Vec3d along = mSettings.followObstacles ? v - surface : v;
  // Midway between two surfaces distances have no direction but that of their rounding.
  constexpr double kSteep = 0.25;
  const double slide = v[axis] - n[axis] * Dot(n, along) / std::max(Dot(n, n), kSteep);
  return mSettings.blend == 1 ? slide : (slide - solid[axis]) * mSettings.blend + solid[axis];
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
