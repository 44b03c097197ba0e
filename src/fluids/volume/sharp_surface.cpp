#include "fluids/volume/sharp_surface.h"

#include <algorithm>
#include <cmath>

#include "fluids/mesh/nearest_point.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool SharpSurface::TurnsInwards(const TriMeshSTL& mesh) {
  const std::vector<Vec3d>& v = mesh.GetVertices();
  const Vec3d& centre = mesh.GetBoundsCentre();
  double volume = 0;
  for (const VecInt3D& t : mesh.GetTriangles())
    volume += Dot(v[t.x] - centre, Cross(v[t.y] - centre, v[t.z] - centre));
  return volume < 0;
}

Vec3d SharpSurface::NormalOf(i32 triangle) const {
  const VecInt3D& t = mMesh.GetTriangles()[triangle];
  const std::vector<Vec3d>& v = mMesh.GetVertices();
  return Normalised(Cross(v[t.y] - v[t.x], v[t.z] - v[t.x])) * mOut;
}

Vec3d SharpSurface::NearestOf(i32 triangle, const Vec3d& p) const {
  const VecInt3D& t = mMesh.GetTriangles()[triangle];
  const std::vector<Vec3d>& v = mMesh.GetVertices();
  double weights[3];
  return NearestPoint(p, v[t.x], v[t.y], v[t.z], weights);
}

SharpSurface::Nearest SharpSurface::AtNode(const VecInt3D& node) const {
  Nearest nearest;
  nearest.triangle = mClosest(node.x, node.y, node.z);
  if (nearest.triangle < 0) return nearest;
  nearest.distance = mDistance(node.x, node.y, node.z);
  nearest.at = NearestOf(nearest.triangle, mDistance.PositionOf(node.x, node.y, node.z));
  return nearest;
}

SharpSurface::Nearest SharpSurface::Find(const Vec3d& p) const {
  const Vec3d c = mDistance.mLayout.ToCells(p);
  const AxisStencil s[3] = {LinearStencil(c.x, mDistance.mNx), LinearStencil(c.y, mDistance.mNy),
                            LinearStencil(c.z, mDistance.mNz)};
  const double same = 1e-6 * mDistance.mLayout.cellSize;
  Nearest best;
  double least = 0, front = 0;
  i32 seen[8];
  for (i32 corner = 0; corner < 8; ++corner) {
    const i32 triangle = mClosest(s[0].index + (corner & 1), s[1].index + (corner >> 1 & 1),
                                  s[2].index + (corner >> 2));
    seen[corner] = triangle;
    if (triangle < 0 || std::find(seen, seen + corner, triangle) != seen + corner) continue;
    const Vec3d off = p - NearestOf(triangle, p);
    const double distance = Length(off);
    if (best.triangle >= 0 && distance > least + same) continue;
    const double facing = Dot(off, NormalOf(triangle));
    if (best.triangle >= 0 && distance > least - same && std::abs(facing) <= std::abs(front))
      continue;
    best.triangle = triangle;
    best.at = p - off;
    least = distance;
    front = facing;
  }
  best.distance = front < 0 ? -least : least;
  return best;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
