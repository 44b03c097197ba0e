// Meshes and grids for tests of volumes, and distances found independently of the code under test.
#pragma once
#include <filesystem>
#include <numbers>

#include "fluids/mesh/tri_mesh.h"
#include "grids/egrid.h"
#include "host/mesh_files.h"
#include "host/shapes.h"
#include "paths.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

inline TriMeshSTL MeshOf(const host::Geometry& g, double scale = 1.0, const Vec3d& shift = {}) {
  TriMeshSTL mesh;
  for (const Vec3d& p : g.points) mesh.GetVertices().push_back(p * scale + shift);
  for (const host::Polygon& p : g.polygons) {
    mesh.GetTriangles().push_back({p.a, p.b, p.c});
    if (p.IsQuad()) mesh.GetTriangles().push_back({p.a, p.c, p.d});
  }
  mesh.UpdateBounds();
  return mesh;
}

/// A node grid over the mesh's box, snapped outwards to cells, with `padding` cells round it.
inline EGrid<double> GridAround(const TriMeshSTL& mesh, double cell, i32 padding = 3) {
  const f32 size = static_cast<f32>(cell);
  VecInt3D cells;
  Vec3d origin;
  for (int a = 0; a < 3; ++a) {
    const double low = std::floor(mesh.GetBoundsMin()[a] / size) - padding;
    const double high = std::ceil(mesh.GetBoundsMax()[a] / size) + padding;
    cells[a] = static_cast<i32>(high - low);
    origin[a] = low * size;
  }
  return EGrid<double>(cells + VecInt3D{1, 1, 1}, ToReal(cells) * double{size}, size, kNode,
                       origin);
}

/// Cell size that puts `cells` cells across the mesh's longest side.
inline double CellAcross(const TriMeshSTL& mesh, i32 cells) {
  Vec3d size;
  mesh.GetBoundsSize(size);
  return std::max({size.x, size.y, size.z}) / cells;
}

/// Distance to a triangle, by the least squares point on the plane if it lies in the triangle and
/// a fine search along the three edges' closest points otherwise.
inline double ReferenceDistance(const Vec3d& p, const Vec3d& a, const Vec3d& b, const Vec3d& c) {
  const auto edge = [&](const Vec3d& u, const Vec3d& v) {
    const Vec3d e = v - u;
    const double m = Dot(e, e);
    const double t = m > 0 ? std::clamp(Dot(p - u, e) / m, 0.0, 1.0) : 0.0;
    return Length(p - (u + e * t));
  };
  double best = std::min({edge(a, b), edge(b, c), edge(c, a)});
  const Vec3d n = Cross(b - a, c - a);
  const double area = Length(n);
  if (area > 0) {
    const Vec3d foot = p - n * (Dot(p - a, n) / (area * area));
    const auto side = [&](const Vec3d& u, const Vec3d& v) {
      return Dot(Cross(v - u, foot - u), n);
    };
    if (side(a, b) >= 0 && side(b, c) >= 0 && side(c, a) >= 0)
      best = std::min(best, std::abs(Dot(p - a, n)) / area);
  }
  return best;
}

inline double ReferenceDistance(const Vec3d& p, const TriMeshSTL& mesh) {
  double best = 1e300;
  const auto& v = mesh.GetVertices();
  for (const VecInt3D& t : mesh.GetTriangles())
    best = std::min(best, ReferenceDistance(p, v[t.x], v[t.y], v[t.z]));
  return best;
}

/// Winding number of the mesh round a point, by solid angles (Van Oosterom and Strackee 1983).
inline double WindingNumber(const Vec3d& p, const TriMeshSTL& mesh) {
  double sum = 0;
  const auto& v = mesh.GetVertices();
  for (const VecInt3D& t : mesh.GetTriangles()) {
    const Vec3d a = v[t.x] - p, b = v[t.y] - p, c = v[t.z] - p;
    const double la = Length(a), lb = Length(b), lc = Length(c);
    sum += std::atan2(Dot(a, Cross(b, c)),
                      la * lb * lc + Dot(a, b) * lc + Dot(b, c) * la + Dot(c, a) * lb);
  }
  return sum / (2 * std::numbers::pi);
}

inline double VolumeOf(const TriMeshSTL& mesh) {
  double volume = 0;
  const auto& v = mesh.GetVertices();
  for (const VecInt3D& t : mesh.GetTriangles()) volume += Dot(v[t.x], Cross(v[t.y], v[t.z])) / 6;
  return volume;
}

inline std::string DataMesh(const char* name) {
  return std::string(SourcePath("/../shared/data/meshes/")) + name;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
