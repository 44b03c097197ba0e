#include "fluids/flow/thin_faces.h"

#include <algorithm>
#include <cmath>

#include "fluids/flow/cells_between.h"
#include "fluids/flow/thin_rims.h"
#include "fluids/flow/wall_feet.h"
#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kHair = 1e-6;       // of a cell
constexpr double kPlaneHair = 1e-5;  // likewise: nearer to a plane between cells a way is in it

/// The lowest of the eight cells round a point (cells), and which of them holds it.
struct Block {
  VecInt3D base;
  i32 home = 0;

  Block(const Vec3d& p, const VecInt3D& cells) {
    for (i32 a = 0; a < 3; ++a) {
      const AxisStencil s = LinearStencil(p[a] - 0.5, cells[a]);
      base[a] = s.index;
      if (s.fraction >= 0.5) home |= 4 >> a;
    }
  }
};

}  // namespace

void ThinFaces::Build(const GridBoundary& boundary, i32 threads) {
  Release();
  const GridLayout& layout = boundary.GetLevelSet()->mLayout;
  ThinRims rims;
  for (const VolumeBase* obstacle : boundary.mObstacles) {
    const ThinWalls* walls = obstacle->Has(FLAG_ENABLED) ? obstacle->GetThinWalls() : nullptr;
    if (!walls || walls->Faces().empty()) continue;
    if (!mBits) mBits = std::make_unique<Grid<u8>>(layout.dims, kCentre);
    if (!mBits->mData) return mBits.reset();
    const VecInt3D offset = CellsBetween(layout, obstacle->GetGrid()->mLayout);
    const auto holds = [&](const VecInt3D& c) {
      return Min(c, VecInt3D{}) == VecInt3D{} &&
             Max(c, layout.dims - VecInt3D{1, 1, 1}) == layout.dims - VecInt3D{1, 1, 1};
    };
    auto rim = walls->Rims().begin();
    for (const ThinWalls::Face& face : walls->Faces()) {
      if (rim != walls->Rims().end() && rim->face == face) {
        ++rim;
        continue;
      }
      const VecInt3D at = face.at + offset;
      if (!holds(at)) continue;
      (*mBits)(at.x, at.y, at.z) |= 1 << face.axis;
      mFaces.push_back({at, face.axis});
    }
    for (const VecInt3D& cell : walls->Filled())
      if (const VecInt3D at = cell + offset; holds(at)) (*mBits)(at.x, at.y, at.z) |= kFilled;
    rims.Add(*walls, offset, layout.dims);
  }
  rims.Decide(boundary, threads);
  Add(rims);
  if (HasAny()) AddFeet(boundary, threads);
}

void ThinFaces::AddFeet(const GridBoundary& boundary, i32 threads) {
  const auto isClosed = [this](i32 axis, const VecInt3D& c) {
    return ClosesFace(axis, c.x, c.y, c.z);
  };
  for (const Face& face : WallFeet(boundary).Find(mFaces, isClosed, threads)) {
    (*mBits)(face.at.x, face.at.y, face.at.z) |= 1 << face.axis;
    mFaces.push_back(face);
  }
}

/// What a rim leaves open leads past it: through cells whose centres lie on it.
void ThinFaces::Add(const ThinRims& rims) {
  for (const ThinRims::Rim& rim : rims.All()) {
    if (ClosesFace(rim.axis, rim.at.x, rim.at.y, rim.at.z)) continue;
    if (rim.open == 0) {
      (*mBits)(rim.at.x, rim.at.y, rim.at.z) |= 1 << rim.axis;
      mFaces.push_back({rim.at, rim.axis});
      continue;
    }
    mRims.push_back({{rim.at, rim.axis}, rim.open});
    const VecInt3D below = rim.at - ExtraOf(rim.axis);
    (*mBits)(rim.at.x, rim.at.y, rim.at.z) &= ~kFilled;
    if (below[rim.axis] >= 0) (*mBits)(below.x, below.y, below.z) &= ~kFilled;
  }
}

void ThinFaces::Close(Grid_VolumeFractions& fractions) const {
  EGrid<float>* open[3];
  for (i32 axis = 0; axis < 3; ++axis) open[axis] = fractions.GetRead(axis, 1);
  for (const Face& face : mFaces)
    if (open[face.axis]) (*open[face.axis])(face.at.x, face.at.y, face.at.z) = 0;
  for (const auto& [face, most] : mRims) {
    if (!open[face.axis]) continue;
    float& part = (*open[face.axis])(face.at.x, face.at.y, face.at.z);
    part = std::min(part, static_cast<float>(most));
  }
}

Vec3d ThinFaces::Stop(const Vec3d& from, const Vec3d& to, Cells cells) const {
  i32 plane = -1;
  for (i32 a = 0; a < 3 && plane < 0; ++a) {
    const double between = std::round(from[a]);
    if (std::abs(from[a] - between) < kPlaneHair && std::abs(to[a] - between) < kPlaneHair)
      plane = a;
  }
  if (plane < 0) return StopBetween(from, to, cells);
  Vec3d best = from;
  double farthest = -1;
  for (const double side : {-2 * kPlaneHair, 2 * kPlaneHair}) {
    Vec3d begin = from, end = to;
    begin[plane] = end[plane] = std::round(from[plane]) + side;
    const Vec3d stop = Stop(begin, end, cells);
    if (stop == end) return to;
    const double way = Dot(stop - begin, end - begin);
    if (way <= farthest) continue;
    farthest = way;
    best = stop;
    best[plane] = from[plane];
  }
  return best;
}

Vec3d ThinFaces::StopBetween(const Vec3d& from, const Vec3d& to, Cells cells) const {
  const VecInt3D n = mBits->Dims();
  VecInt3D cell, end;
  for (i32 a = 0; a < 3; ++a) {
    cell[a] = static_cast<i32>(std::clamp(std::floor(from[a]), 0.0, n[a] - 1.0));
    end[a] = static_cast<i32>(std::clamp(std::floor(to[a]), 0.0, n[a] - 1.0));
  }
  const Vec3d way = to - from;
  while (cell != end) {
    i32 axis = -1;
    double least = 0;
    for (i32 a = 0; a < 3; ++a) {
      if (cell[a] == end[a]) continue;
      const double t = (cell[a] + (way[a] > 0 ? 1 : 0) - from[a]) / way[a];
      if (axis >= 0 && t >= least) continue;
      least = t;
      axis = a;
    }
    VecInt3D next = cell;
    next[axis] += way[axis] > 0 ? 1 : -1;
    const VecInt3D& above = way[axis] > 0 ? next : cell;
    if (ClosesFace(axis, above.x, above.y, above.z) ||
        (cells == kWithoutFilled && IsFilled(next))) {
      Vec3d stop = from + way * std::clamp(least, 0.0, 1.0);
      for (i32 a = 0; a < 3; ++a)
        stop[a] = std::clamp(stop[a], cell[a] + kHair, cell[a] + 1 - kHair);
      return stop;
    }
    cell = next;
  }
  return to;
}

u8 ThinFaces::ReachFaces(const Vec3d& p, i32 axis) const {
  const VecInt3D n = mBits->Dims();
  const Vec3d offset = OffsetOf(axis);
  VecInt3D base;
  for (i32 a = 0; a < 3; ++a) base[a] = LinearStencil(p[a] - offset[a], n[a] + (a == axis)).index;
  // The cells on both sides of the faces, and those that close them from above.
  const CellBox cells = Clip({base - ExtraOf(axis), base + VecInt3D{2, 2, 2}}, {}, n);
  u32 closed = 0;
  ForEachCell(cells, [&](i32 x, i32 y, i32 z) { closed |= (*mBits)(x, y, z); });
  if (!closed) return 0xff;
  u32 reached = 0;
  for (i32 k = 0; k < 8; ++k) {
    const VecInt3D face = base + VecInt3D{k >> 2, k >> 1 & 1, k & 1};
    const Vec3d at = ToReal(face) + offset;
    if (ClosesFace(axis, face.x, face.y, face.z) || Stop(p, at, kFilledToo) == at)
      reached |= 1u << k;
  }
  return static_cast<u8>(reached ? reached : 0xff);
}

u8 ThinFaces::Reach(const Vec3d& p, Range range) const {
  const VecInt3D n = mBits->Dims();
  const Block block(p, n);
  u8 low[8];
  u32 parted = 0, inner = 0;
  for (i32 k = 0; k < 8; ++k) {
    const VecInt3D c = block.base + VecInt3D{k >> 2, k >> 1 & 1, k & 1};
    low[k] = (*mBits)(c.x, c.y, c.z);
    parted |= low[k] & (kFilled | (k & 4 ? kLowX : 0) | (k & 2 ? kLowY : 0) | (k & 1 ? kLowZ : 0));
    const bool isInner =
        range == kOutermostToo || (Min(c, VecInt3D{1, 1, 1}) == VecInt3D{1, 1, 1} &&
                                   Max(c, n - VecInt3D{2, 2, 2}) == n - VecInt3D{2, 2, 2});
    inner |= (isInner && !(low[k] & kFilled) ? 1u : 0u) << k;
  }
  if (!parted) return 0xff;
  const u32 home = 1u << block.home;
  u32 reached = home;
  // The longest way round passes all eight.
  for (i32 round = 0; round < 7; ++round)
    for (i32 k = 0; k < 8; ++k)
      for (i32 axis = 0; axis < 3; ++axis) {
        const i32 bit = 4 >> axis;
        if (!(k & bit) || (low[k] >> axis & 1)) continue;
        const u32 pair = 1u << k | 1u << (k & ~bit);
        if (reached & pair) reached |= pair;
      }
  // What walls hold continues what lies beside them, on either side, as the outermost layer may.
  return static_cast<u8>((reached & inner) | home);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
