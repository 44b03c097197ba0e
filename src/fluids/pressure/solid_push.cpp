#include "fluids/pressure/solid_push.h"

#include <algorithm>
#include <cmath>

#include "fluids/flow/thin_faces.h"
#include "fluids/pressure/projection_fields.h"
#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/thin_walls.h"
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

bool SolidPush::IsThin(const VolumeBase& volume, i32 axis, const VecInt3D& face) const {
  const ThinWalls* walls = volume.GetThinWalls();
  return walls && !walls->Faces().empty() &&
         walls->Closes(face + CellsBetween(volume.GetGrid()->mLayout, mLayout), axis);
}

double SolidPush::ShareOf(const Body& body, i32 axis, const VecInt3D& face) const {
  const VolumeBase& volume = *body.motion.volume;
  if (IsThin(volume, axis, face)) return 1;
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

double SolidPush::Face::Flow() const {
  // Bodies that overlap share the face, and one that leaves no more than a hair fills it.
  return share > solid - kLeastOpening ? flow * (solid / std::max(share, 1e-12)) : flow;
}

Vec3d SolidPush::PositionOf(const VecInt3D& cell, i32 kind) const {
  return mLayout.simOrigin + (ToReal(cell) + OffsetOf(kind)) * mLayout.simCell;
}

void SolidPush::AddBody(const Body& body, const VecInt3D& cell, Face (&faces)[3][2]) const {
  const MovingBody& motion = body.motion;
  const bool deforms = motion.perStep > 0;
  Vec3d here;
  bool isKnown = false;
  for (i32 axis = 0; axis < 3; ++axis)
    for (Face& face : faces[axis]) {
      const double part = face.solid > 0 ? ShareOf(body, axis, face.at) : 0;
      if (part == 0) continue;
      if (deforms && !isKnown)
        here = motion.volume->SurfaceVelocityAt(PositionOf(cell, kCentre)) * motion.perStep;
      isKnown = true;
      if (!deforms)
        here = motion.linear + Cross(motion.angular, PositionOf(face.at, axis) - motion.centre);
      face.flow += part * here[axis];
      face.share += part;
      face.fastest = std::max(face.fastest, Length(here));
    }
}

double SolidPush::Balance(i32 x, i32 y, i32 z) const {
  const VecInt3D cell{x, y, z};
  Face faces[3][2];
  for (i32 axis = 0; axis < 3; ++axis)
    for (i32 side = 0; side < 2; ++side) {
      Face& face = faces[axis][side];
      face.at = cell;
      face.at[axis] += side;
      face.solid = 1.0 - (*mFields.open[axis])(face.at.x, face.at.y, face.at.z);
    }
  for (const Body& body : mBodies) {
    const CellBox& r = body.reach;
    bool reaches = true;
    for (int a = 0; a < 3; ++a) reaches &= cell[a] + 1 >= r.min[a] && cell[a] <= r.max[a];
    if (reaches) AddBody(body, cell, faces);
  }
  double sum = 0, open = kLeastOpening, fastest = 0;
  for (const auto& [low, high] : faces) {
    sum += low.Flow() - high.Flow();
    open += 2 - low.solid - high.solid;
    fastest = std::max({fastest, low.fastest, high.fastest});
  }
  // A surface pushes no faster through the open parts of a cell than it moves. Where more would
  // have to leave, another solid is in the way: the last bit of gas between the two is let go.
  const double most = open * fastest;
  return std::clamp(sum, -most, most) / mLayout.cellSize;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
