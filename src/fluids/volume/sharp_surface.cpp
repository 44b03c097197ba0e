#include "fluids/volume/sharp_surface.h"

#include <algorithm>
#include <cmath>

#include "fluids/mesh/nearest_point.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr i32 kMostHops = 64;  // from a triangle that a node knows to the nearest one
}  // namespace

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

/// The nearest of the triangles that were offered.
struct SharpSurface::Search {
  const SharpSurface& surface;
  const Vec3d& p;
  const double same = 1e-6 * surface.mDistance.mLayout.cellSize;
  Nearest best{};
  double least = 0, front = 0;

  void Offer(i32 triangle) {
    const Vec3d off = p - surface.NearestOf(triangle, p);
    const double distance = Length(off);
    if (best.triangle >= 0 && distance > least + same) return;
    const double facing = Dot(off, surface.NormalOf(triangle));
    if (best.triangle >= 0 && distance > least - same && std::abs(facing) <= std::abs(front))
      return;
    best.triangle = triangle;
    best.at = p - off;
    least = distance;
    front = facing;
  }
  /// The way to it ends inside of the triangle: none that it leads to is nearer.
  bool IsUpright() const { return std::abs(front) > least * (1 - 1e-9); }
  /// The first neighbours in any case: inside of an edge the side round it may be nearer.
  void OfferNeighbours() {
    for (i32 hop = 0; hop < kMostHops && (hop == 0 || !IsUpright()); ++hop) {
      const double before = least;
      const VecInt3D corners = surface.mMesh.GetTriangles()[best.triangle];
      for (i32 a = 0; a < 3; ++a)
        for (i32 i = surface.mRoundStart[corners[a]]; i < surface.mRoundStart[corners[a] + 1]; ++i)
          Offer(surface.mRound[i]);
      if (!(least < before - same)) return;
    }
  }
};

SharpSurface::Nearest SharpSurface::Find(const Vec3d& p) const {
  const Vec3d c = mDistance.mLayout.ToCells(p);
  const AxisStencil s[3] = {LinearStencil(c.x, mDistance.mNx), LinearStencil(c.y, mDistance.mNy),
                            LinearStencil(c.z, mDistance.mNz)};
  Search search{*this, p};
  i32 seen[8];
  for (i32 corner = 0; corner < 8; ++corner) {
    const i32 triangle = mClosest(s[0].index + (corner & 1), s[1].index + (corner >> 1 & 1),
                                  s[2].index + (corner >> 2));
    seen[corner] = triangle;
    if (triangle < 0 || std::find(seen, seen + corner, triangle) != seen + corner) continue;
    search.Offer(triangle);
  }
  if (!mRoundStart.empty() && search.best.triangle >= 0) search.OfferNeighbours();
  search.best.distance = search.front < 0 ? -search.least : search.least;
  return search.best;
}

void SharpSurface::LinkTriangles() {
  const std::vector<VecInt3D>& triangles = mMesh.GetTriangles();
  mRoundStart.assign(mMesh.GetVertexCount() + 2, 0);
  for (const VecInt3D& t : triangles)
    for (i32 a = 0; a < 3; ++a) ++mRoundStart[t[a] + 2];
  for (std::size_t i = 2; i < mRoundStart.size(); ++i) mRoundStart[i] += mRoundStart[i - 1];
  mRound.resize(3 * triangles.size());
  for (std::size_t i = 0; i < triangles.size(); ++i)
    for (i32 a = 0; a < 3; ++a) mRound[mRoundStart[triangles[i][a] + 1]++] = static_cast<i32>(i);
  mRoundStart.pop_back();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
