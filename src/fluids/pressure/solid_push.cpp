#include "fluids/pressure/solid_push.h"

#include <algorithm>
#include <cmath>

#include "fluids/pressure/projection_fields.h"
#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/volume_base.h"
#include "fluids/volume/volume_fractions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Cells of a layout that the box of a volume's grid touches.
CellBox CellsInReach(const GridLayout& layout, const VolumeBase& volume) {
  const GridLayout& own = volume.GetGrid()->mLayout;
  const Vec3d low = layout.ToCells(own.simOrigin), high = layout.ToCells(own.simMax);
  CellBox box;
  for (int a = 0; a < 3; ++a) {
    const double end = layout.dims[a];
    box.min[a] = static_cast<i32>(std::clamp(std::floor(low[a]) - 1, 0.0, end));
    box.max[a] = static_cast<i32>(std::clamp(std::ceil(high[a]) + 1, 0.0, end));
  }
  return box;
}

}  // namespace

SolidPush::SolidPush(const ProjectionFields& fields, std::span<const MovingBody> bodies)
    : mFields(fields), mLayout(fields.velocity[0]->mLayout) {
  for (const MovingBody& body : bodies) {
    mBodies.push_back({body, CellsInReach(mLayout, *body.volume)});
    const CellBox& reach = mBodies.back().reach;
    if (reach.IsEmpty()) continue;
    mReach =
        mReach.IsEmpty() ? reach : CellBox{Min(mReach.min, reach.min), Max(mReach.max, reach.max)};
  }
}

double SolidPush::ShareOf(const Body& body, i32 axis, const VecInt3D& face) const {
  const VolumeBase& volume = *body.motion.volume;
  const GridLayout& own = volume.GetGrid()->mLayout;
  const i32 u = axis == 0 ? 1 : 0, v = axis == 2 ? 1 : 2;
  const double noise = 1e-9 * mLayout.cellSize;
  double corner[4];
  for (int i = 0; i < 4; ++i) {
    VecInt3D node = face;
    node[u] += i == 1 || i == 2;
    node[v] += i >= 2;
    const Vec3d p = mLayout.simOrigin + ToReal(node) * mLayout.simCell;
    bool inside = true;
    for (int a = 0; a < 3; ++a) inside &= p[a] >= own.simOrigin[a] && p[a] < own.simMax[a];
    corner[i] = inside ? volume.DistanceAtWorld(p) : mLayout.cellSize;
    if (std::fabs(corner[i]) < noise) corner[i] = 0;
  }
  return SquareFraction(corner);
}

double SolidPush::FlowThrough(i32 axis, const VecInt3D& face) const {
  const double solid = 1.0 - (*mFields.open[axis])(face.x, face.y, face.z);
  if (!(solid > 0)) return 0;
  const Vec3d p = mLayout.simOrigin + (ToReal(face) + OffsetOf(axis)) * mLayout.simCell;
  double flow = 0, share = 0;
  for (const Body& body : mBodies) {
    const CellBox& r = body.reach;
    if (face.x < r.min.x || face.x > r.max.x || face.y < r.min.y || face.y > r.max.y ||
        face.z < r.min.z || face.z > r.max.z)
      continue;
    const double part = ShareOf(body, axis, face);
    if (part == 0) continue;
    const Vec3d turn = Cross(body.motion.angular, p - body.motion.centre);
    flow += part * (body.motion.linear[axis] + turn[axis]);
    share += part;
  }
  // Bodies that overlap share the face, and one that leaves no more than a hair fills it.
  return share > solid - kLeastOpening ? flow * (solid / std::max(share, 1e-12)) : flow;
}

double SolidPush::Balance(i32 x, i32 y, i32 z) const {
  double sum = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    VecInt3D face{x, y, z};
    const double low = FlowThrough(axis, face);
    ++face[axis];
    sum += low - FlowThrough(axis, face);
  }
  return sum / mLayout.cellSize;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
