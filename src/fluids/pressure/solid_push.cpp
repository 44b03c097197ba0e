#include "fluids/pressure/solid_push.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "fluids/flow/cells_between.h"
#include "fluids/pressure/projection_fields.h"
#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "fluids/volume/volume_fractions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

bool Touches(const CellBox& reach, const VecInt3D& cell) {
  bool touches = true;
  for (int a = 0; a < 3; ++a) touches &= cell[a] + 1 >= reach.min[a] && cell[a] <= reach.max[a];
  return touches;
}

}  // namespace

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

SolidPush::SolidPush(const ProjectionFields& fields, std::span<const MovingBody> bodies,
                     std::span<const VolumeBase* const> resting)
    : mFields(fields), mLayout(fields.velocity[0]->mLayout) {
  for (const MovingBody& body : bodies) {
    const CellBox reach = CellsInReach(mLayout, *body.volume);
    mBodies.push_back({{body.volume, reach}, body});
    mParts.emplace_back();
    if (reach.IsEmpty()) continue;
    mReach =
        mReach.IsEmpty() ? reach : CellBox{Min(mReach.min, reach.min), Max(mReach.max, reach.max)};
  }
  for (const VolumeBase* volume : resting) {
    const CellBox reach = CellsInReach(mLayout, *volume);
    if (!Clip(reach, mReach.min, mReach.max).IsEmpty()) mResting.push_back({volume, reach});
  }
}

/// What a wall that is too thin for its distances closes of a face: at a rim no more than its side,
/// where something else doesn't close the rest.
double SolidPush::ThinPart(const VolumeBase& volume, i32 axis, const VecInt3D& face) const {
  const ThinWalls* walls = volume.GetThinWalls();
  if (!walls || walls->Faces().empty()) return 0;
  const VecInt3D own = face + CellsBetween(volume.GetGrid()->mLayout, mLayout);
  if ((*mFields.open[axis])(face.x, face.y, face.z) == 0) return walls->Closes(own, axis) ? 1 : 0;
  return std::popcount(walls->SidesAt(own, axis)) / 4.0;
}

/// Lowers the distances at the corners of a face to those of a volume.
void SolidPush::Cut(const VolumeBase& volume, i32 axis, const VecInt3D& face,
                    double (&corner)[4]) const {
  const GridLayout& own = volume.GetGrid()->mLayout;
  const i32 u = axis == 0 ? 1 : 0, v = axis == 2 ? 1 : 2;
  const double noise = 1e-9 * mLayout.cellSize;
  for (int i = 0; i < 4; ++i) {
    VecInt3D node = face;
    node[u] += i == 1 || i == 2;
    node[v] += i >= 2;
    const Vec3d p = mLayout.simOrigin + ToReal(node) * mLayout.simCell;
    bool inside = true;
    for (int a = 0; a < 3; ++a) inside &= p[a] >= own.simOrigin[a] && p[a] < own.simMax[a];
    if (!inside) continue;
    const double distance = volume.DistanceAtWorld(p);
    corner[i] = std::min(corner[i], std::fabs(distance) < noise ? 0 : distance);
  }
}

void SolidPush::AddResting(i32 axis, Face& face) const {
  std::fill_n(face.corner, 4, double{mLayout.cellSize});
  for (const Solid& solid : mResting) {
    if (!Touches(solid.reach, face.at)) continue;
    Cut(*solid.volume, axis, face.at, face.corner);
    face.open = std::min(face.open, 1 - ThinPart(*solid.volume, axis, face.at));
  }
  face.open = std::min(face.open, 1 - SquareFraction(face.corner));
}

double SolidPush::ShareOf(const Body& body, i32 axis, const Face& face) const {
  const VolumeBase& volume = *body.volume;
  if (face.open == 0) return 0;
  const double thin = ThinPart(volume, axis, face.at);
  if (thin == 1) return face.open;
  double corner[4];
  std::copy_n(face.corner, 4, corner);
  Cut(volume, axis, face.at, corner);
  const double share =
      std::max(std::min(thin, face.open), face.open - (1 - SquareFraction(corner)));
  if (face.at[axis] > 1 && face.at[axis] < mLayout.dims[axis] - 1) return share;
  // A side of the box closes the face: what is left of a gap there isn't the body's.
  return std::min(share, OwnPart(body, axis, face));
}

/// What the body fills of a face, whatever else does.
double SolidPush::OwnPart(const Body& body, i32 axis, const Face& face) const {
  double own[4];
  std::fill_n(own, 4, double{mLayout.cellSize});
  Cut(*body.volume, axis, face.at, own);
  // What lies against a solid, and overlaps it by a hair, isn't on its way through.
  if (body.motion.coupled >= 0)
    for (double& distance : own) distance += kLeastOpening * mLayout.cellSize;
  return SquareFraction(own);
}

/// The part of the resting solids' surface between the two faces through which the body comes out,
/// given its parts of these faces.
double SolidPush::PartThrough(const Body& body, i32 axis, const Face (&faces)[2],
                              const double (&parts)[2]) const {
  const auto& [low, high] = faces;
  const double share = parts[0] + parts[1], rise = high.open - low.open;
  if (share == 0 || rise == 0) return 0;
  const double through = share / (low.open + high.open);
  if (body.motion.coupled < 0) return through;
  // One that ends at that surface rests on it.
  const i32 inner = rise > 0 ? 0 : 1;
  const double buried = OwnPart(body, axis, faces[inner]) - parts[inner];
  return through * std::clamp(buried / std::fabs(rise), 0.0, 1.0);
}

double SolidPush::Face::Factor() const {
  // Bodies that overlap share the face, and one that leaves no more than a hair fills it.
  const double closed = std::max(0.0, solid - (1 - open));
  return share > closed - kLeastOpening ? closed / std::max(share, 1e-12) : 1;
}

Vec3d SolidPush::PositionOf(const VecInt3D& cell, i32 kind) const {
  return mLayout.simOrigin + (ToReal(cell) + OffsetOf(kind)) * mLayout.simCell;
}

SolidPush::Parts SolidPush::PartsOf(const Body& body, const Faces& faces) const {
  Parts parts;
  for (i32 axis = 0; axis < 3; ++axis) {
    for (i32 side = 0; side < 2; ++side)
      if (const Face& face = faces[axis][side]; face.solid > 0)
        parts.face[axis][side] = ShareOf(body, axis, face);
    parts.through[axis] = PartThrough(body, axis, faces[axis], parts.face[axis]);
  }
  return parts;
}

/// Returns what leads through the surface of the resting solids in the cell, which none of its
/// faces shows: of a steady flow as much as enters through the open parts of the faces leaves
/// there.
double SolidPush::AddBody(const Body& body, const Parts& parts, const VecInt3D& cell,
                          Faces& faces) const {
  const MovingBody& motion = body.motion;
  const bool deforms = motion.perStep != 0;
  const Vec3d centre = PositionOf(cell, kCentre);
  const auto rigid = [&](const Vec3d& p) {
    return motion.linear + Cross(motion.angular, p - motion.centre);
  };
  Vec3d middle;
  bool isKnown = false;
  double through = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    for (i32 side = 0; side < 2; ++side) {
      Face& face = faces[axis][side];
      const double part = parts.face[axis][side];
      if (part == 0) continue;
      if (!std::exchange(isKnown, true))
        middle = deforms ? body.volume->SurfaceVelocityAt(centre) * motion.perStep : rigid(centre);
      const Vec3d here = deforms ? middle : rigid(PositionOf(face.at, axis));
      face.flow += part * here[axis];
      face.share += part;
      face.fastest = std::max(face.fastest, Length(here));
    }
    const auto& [low, high] = faces[axis];
    if (const double part = parts.through[axis]; part != 0)
      through += (high.open - low.open) * middle[axis] * part;
  }
  return through;
}

BodyRow SolidPush::RowOf(const Body& body, const Parts& parts, const VecInt3D& cell,
                         const Faces& faces) const {
  BodyRow row{.cell = (mLayout.dims.y * cell.z + cell.y) * mLayout.dims.x + cell.x};
  const auto add = [&](i32 axis, double area, const Vec3d& at) {
    Vec3d along{};
    along[axis] = area;
    row.area += along;
    row.moment += Cross(at - body.motion.centre, along);
  };
  for (i32 axis = 0; axis < 3; ++axis) {
    for (i32 side = 0; side < 2; ++side) {
      const Face& face = faces[axis][side];
      const double part = parts.face[axis][side];
      if (part == 0) continue;
      add(axis, (side == 0 ? part : -part) * face.Factor(), PositionOf(face.at, axis));
    }
    const auto& [low, high] = faces[axis];
    if (const double part = parts.through[axis]; part != 0)
      add(axis, (high.open - low.open) * part, PositionOf(cell, kCentre));
  }
  return row;
}

double SolidPush::Balance(i32 x, i32 y, i32 z, BodyRows* coupling) const {
  const VecInt3D cell{x, y, z};
  Faces faces;
  for (i32 axis = 0; axis < 3; ++axis)
    for (i32 side = 0; side < 2; ++side) {
      Face& face = faces[axis][side];
      face.at = cell;
      face.at[axis] += side;
      face.solid = 1.0 - (*mFields.open[axis])(face.at.x, face.at.y, face.at.z);
      if (face.solid > 0) AddResting(axis, face);
    }
  double sum = 0, open = kLeastOpening, fastest = 0;
  for (std::size_t b = 0; b < mBodies.size(); ++b) {
    if (!Touches(mBodies[b].reach, cell)) continue;
    mParts[b] = PartsOf(mBodies[b], faces);
    sum += AddBody(mBodies[b], mParts[b], cell, faces);
  }
  for (const auto& [low, high] : faces) {
    sum += low.Flow() - high.Flow();
    open += 2 - low.solid - high.solid;
    fastest = std::max({fastest, low.fastest, high.fastest});
  }
  bool isCoupled = false;
  if (coupling) {
    coupling->clear();
    for (std::size_t b = 0; b < mBodies.size(); ++b) {
      const Body& body = mBodies[b];
      if (body.motion.coupled < 0 || !Touches(body.reach, cell)) continue;
      isCoupled = true;
      const BodyRow row = RowOf(body, mParts[b], cell, faces);
      if (row.area != Vec3d{} || row.moment != Vec3d{})
        coupling->emplace_back(body.motion.coupled, row);
    }
  }
  if (isCoupled) return sum / mLayout.cellSize;
  // A surface pushes no faster through the open parts of a cell than it moves. Where more would
  // have to leave, another solid is in the way: the last bit of gas between the two is let go.
  const double most = open * fastest;
  return std::clamp(sum, -most, most) / mLayout.cellSize;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
