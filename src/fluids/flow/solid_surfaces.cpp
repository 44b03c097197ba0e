#include "fluids/flow/solid_surfaces.h"

#include <cmath>

#include "fluids/flow/cells_between.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

SolidSurfaces::SolidSurfaces(const GridBoundary& boundary)
    : mLayout(boundary.GetLevelSet()->mLayout), mWalls(boundary.mWalls) {
  for (const VolumeBase* volume : boundary.mObstacles) {
    if (!volume->Has(FLAG_ENABLED) || !volume->HasGridData() || volume->IsSheet()) continue;
    const GridLayout& own = volume->GetGrid()->mLayout;
    const VecInt3D offset = CellsBetween(own, mLayout);
    const VecInt3D low = VecInt3D{} - offset;
    mSolids.push_back({volume, volume->GetSharpSurface(), offset,
                       Clip({low, low + own.dims}, {}, mLayout.dims + VecInt3D{1, 1, 1})});
  }
}

void SolidSurfaces::LinkTriangles() {
  for (Solid& solid : mSolids)
    if (solid.surface) solid.surface->LinkTriangles();
}

bool SolidSurfaces::Holds(const Solid& solid, const Vec3d& p) const {
  const GridLayout& own = solid.volume->GetGrid()->mLayout;
  return Min(p, own.simOrigin) == own.simOrigin && Max(p, own.simMax) == own.simMax;
}

/// A wall stands a cell inside the outermost nodes.
void SolidSurfaces::AddWalls(const Vec3d& p, Nearest& nearest) const {
  for (i32 a = 0; a < 3; ++a)
    for (const bool isHigh : {false, true}) {
      if (!(mWalls & (isHigh ? kHighWall : kLowWall)[a])) continue;
      const double plane =
          mLayout.simOrigin[a] + (isHigh ? mLayout.dims[a] - 1 : 1) * mLayout.simCell[a];
      const double distance = isHigh ? plane - p[a] : p[a] - plane;
      if (!(distance < nearest.distance)) continue;
      nearest = {.distance = distance, .solid = kWall, .at = p, .normal = {}};
      nearest.at[a] = plane;
      nearest.normal[a] = isHigh ? -1 : 1;
    }
}

/// Adds an obstacle that is nearer; its normal is left to tell, and the point without triangles.
i32 SolidSurfaces::FindNearest(const Vec3d& p, Nearest& nearest) const {
  AddWalls(p, nearest);
  i32 triangle = -1;
  for (i32 i = 0; i < Count(); ++i) {
    const Solid& solid = mSolids[i];
    if (!Holds(solid, p)) continue;
    if (solid.surface) {
      const SharpSurface::Nearest found = solid.surface->Find(p);
      if (found.triangle < 0 || !(found.distance < nearest.distance)) continue;
      nearest = {found.distance, i, found.at, {}};
      triangle = found.triangle;
    } else if (const double d = solid.volume->DistanceAtWorld(p); d < nearest.distance) {
      nearest = {d, i, {}, {}};
    }
  }
  if (std::fabs(nearest.distance) < GridBoundary::kNoise * mLayout.cellSize) nearest.distance = 0;
  return triangle;
}

void SolidSurfaces::AddNormal(const Vec3d& p, i32 triangle, Nearest& nearest) const {
  if (nearest.solid < 0) return;
  const Solid& solid = mSolids[nearest.solid];
  if (solid.surface) {
    nearest.normal = solid.surface->NormalOf(triangle);
    return;
  }
  nearest.normal = Normalised(solid.volume->GradientAtWorld(p));
  nearest.at = p - nearest.normal * nearest.distance;
}

SolidSurfaces::Nearest SolidSurfaces::Find(const Vec3d& p) const {
  Nearest nearest;
  AddNormal(p, FindNearest(p, nearest), nearest);
  return nearest;
}

SolidSurfaces::Nearest SolidSurfaces::AtNode(const VecInt3D& node) const {
  const Vec3d p = mLayout.simOrigin + ToReal(node) * mLayout.simCell;
  Nearest nearest;
  AddWalls(p, nearest);
  i32 triangle = -1;
  for (i32 i = 0; i < Count(); ++i) {
    const Solid& solid = mSolids[i];
    const VecInt3D own = node + solid.offset;
    if (Clip({own, own + VecInt3D{1, 1, 1}}, {}, solid.volume->GetGrid()->Dims()).IsEmpty())
      continue;
    const double d = (*solid.volume->GetGrid())(own.x, own.y, own.z);
    if (!(d < nearest.distance)) continue;
    SharpSurface::Nearest found;
    if (solid.surface) found = solid.surface->AtNode(own);
    if (solid.surface && found.triangle < 0) continue;
    nearest = {d, i, found.at, {}};
    triangle = found.triangle;
  }
  AddNormal(p, triangle, nearest);
  return nearest;
}

double SolidSurfaces::DistanceAt(const Vec3d& p) const {
  Nearest nearest;
  FindNearest(p, nearest);
  return nearest.distance;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
