#include "fluids/flow/thin_rims.h"

#include <algorithm>
#include <bit>
#include <tuple>

#include "fluids/flow/cells_between.h"
#include "fluids/volume/solid_hair.h"
#include "fluids/volume/volume_base.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// In cells: how far beside a way is looked. A gap beside a rim that is narrower than this between
/// a rim and the next solid is none.
constexpr double kBeside = 0.05;
constexpr double kLook = 0.25;  ///< of a way: between places where it is looked for solids

auto OrderOf(const ThinRims::Rim& rim) {
  return std::tuple(rim.at.z, rim.at.y, rim.at.x, rim.axis);
}

bool IsIn(const VecInt3D& cell, const VecInt3D& dims) {
  return Min(cell, VecInt3D{}) == VecInt3D{} &&
         Max(cell, dims - VecInt3D{1, 1, 1}) == dims - VecInt3D{1, 1, 1};
}

}  // namespace

void ThinRims::Add(const ThinWalls& walls, const VecInt3D& offset, const VecInt3D& dims) {
  for (const ThinWalls::Rim& rim : walls.Rims())
    if (const VecInt3D at = rim.face.at + offset; IsIn(at, dims))
      mRims.push_back({at, rim.face.axis, rim.sides});
}

void ThinRims::Merge() {
  std::sort(mRims.begin(), mRims.end(),
            [](const Rim& a, const Rim& b) { return OrderOf(a) < OrderOf(b); });
  std::size_t kept = 0;
  for (const Rim& rim : mRims) {
    if (kept > 0 && OrderOf(mRims[kept - 1]) == OrderOf(rim))
      mRims[kept - 1].sides |= rim.sides;
    else
      mRims[kept++] = rim;
  }
  mRims.resize(kept);
}

void ThinRims::Decide(const GridBoundary& boundary, i32 threads) {
  if (mRims.empty()) return;
  Merge();
  mLayout = &boundary.GetLevelSet()->mLayout;
  mWalls.clear();
  for (const VolumeBase* obstacle : boundary.mObstacles) {
    const ThinWalls* walls = obstacle->Has(FLAG_ENABLED) ? obstacle->GetThinWalls() : nullptr;
    if (walls && !walls->Faces().empty())
      mWalls.push_back(
          {walls, CellsBetween(*mLayout, obstacle->GetGrid()->mLayout), obstacle->IsSheet()});
  }
  SolidSurfaces solids(boundary);
  solids.LinkTriangles();
  ForEachBlock(static_cast<i32>(mRims.size()), threads,
               [&](i32 i) { mRims[i].open = OpenPart(solids, mRims[i]); });
}

double ThinRims::OpenPart(const SolidSurfaces& solids, const Rim& rim) const {
  i32 open = 0;
  for (i32 side = 0; side < 4; ++side)
    open += !(rim.sides >> side & 1) && !IsCrossed(solids, rim, side);
  if (open == 0 || PartsSides(solids, rim.at) || PartsSides(solids, rim.at - ExtraOf(rim.axis)))
    return 0;
  return open / 4.0;
}

/// A solid that distances show lies on the way, moved to a side by a little.
bool ThinRims::IsCrossed(const SolidSurfaces& solids, const Rim& rim, i32 side) const {
  Vec3d place = ToReal(rim.at) + OffsetOf(rim.axis);
  place[(rim.axis + 1) % 3] += side & 1 ? kBeside : -kBeside;
  place[(rim.axis + 2) % 3] += side & 2 ? kBeside : -kBeside;
  for (double along = -0.5; along <= 0.5; along += kLook) {
    Vec3d p = place;
    p[rim.axis] += along;
    if (!(solids.DistanceAt(mLayout->simOrigin + p * mLayout->simCell) > 0)) return true;
  }
  return false;
}

/// The sides on which walls close the faces of a cell both below and above its centre, along each
/// axis; whether a sheet is among them.
bool ThinRims::FindParted(const VecInt3D& cell, Parted& parted) const {
  parted = {};
  bool hasSheet = false;
  for (const Walls& walls : mWalls)
    for (i32 axis = 0; axis < 3; ++axis) {
      const VecInt3D own = cell - walls.offset;
      const u8 below = walls.walls->SidesAt(own, axis);
      const u8 above = below ? walls.walls->SidesAt(own + ExtraOf(axis), axis) : 0;
      parted[axis] |= below & above;
      hasSheet |= walls.isSheet && (below & above);
    }
  return hasSheet;
}

/// Of the eight places round a centre that lie in no solid, surfaces through the centre part some
/// from others. A place has bit `a` where it lies above the centre along axis a.
bool ThinRims::PartsSides(const SolidSurfaces& solids, const VecInt3D& cell) const {
  const Vec3d centre = ToReal(cell) + Vec3d{0.5, 0.5, 0.5};
  const auto distance = [&](const Vec3d& c) {
    return solids.DistanceAt(mLayout->simOrigin + c * mLayout->simCell);
  };
  Parted parted;
  const bool hasSheet = FindParted(cell, parted);
  if (!hasSheet && distance(centre) > kSolidHair * mLayout->cellSize) return false;
  u32 open = 0;
  for (i32 place = 0; place < 8; ++place) {
    Vec3d p = centre;
    for (i32 a = 0; a < 3; ++a) p[a] += place >> a & 1 ? kBeside : -kBeside;
    if (distance(p) > 0) open |= 1u << place;
  }
  u32 reached = open & (~open + 1);
  // The longest way round passes all eight.
  for (i32 round = 0; round < 7; ++round)
    for (i32 place = 0; place < 8; ++place)
      for (i32 a = 0; a < 3; ++a) {
        const i32 side = (place >> (a + 1) % 3 & 1) | (place >> (a + 2) % 3 & 1) << 1;
        if (!(reached >> place & 1) || (parted[a] >> side & 1)) continue;
        reached |= open & (1u << (place ^ 1 << a));
      }
  return reached != open;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
