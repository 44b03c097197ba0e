#include "fluids/mesh/topology.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
/// f(corner) for each different corner of a triangle.
template <class F>
void ForEachCorner(const VecInt3D& t, F&& f) {
  f(t.x);
  if (t.y != t.x) f(t.y);
  if (t.z != t.x && t.z != t.y) f(t.z);
}
/// f(corner) for the corners that follow `vertex` round a triangle.
template <class F>
void ForEachOther(const VecInt3D& t, i32 vertex, F&& f) {
  const i32 first = t.x == vertex ? 0 : t.y == vertex ? 1 : 2;
  const i32 next = t[(first + 1) % 3], last = t[(first + 2) % 3];
  if (next != vertex) f(next);
  if (last != vertex && last != next) f(last);
}
}  // namespace

void Topology::Build(const TriMeshSTL& mesh) {
  CollectTriangles(mesh);
  CollectRings(mesh);
}

void Topology::CollectTriangles(const TriMeshSTL& mesh) {
  const i32 vertices = mesh.GetVertexCount();
  mTriangleStart.assign(vertices + 1, 0);
  for (const VecInt3D& t : mesh.GetTriangles())
    ForEachCorner(t, [&](i32 v) { ++mTriangleStart[v + 1]; });
  for (i32 v = 0; v < vertices; ++v) mTriangleStart[v + 1] += mTriangleStart[v];
  mTriangles.resize(mTriangleStart[vertices]);
  std::vector<i32> next(mTriangleStart.begin(), mTriangleStart.end() - 1);
  for (i32 t = 0; t < mesh.GetTriangleCount(); ++t)
    ForEachCorner(mesh.GetTriangles()[t], [&](i32 v) { mTriangles[next[v]++] = t; });
}

void Topology::CollectRings(const TriMeshSTL& mesh) {
  const i32 vertices = mesh.GetVertexCount();
  mRing.clear();
  mEdgeTriangles.clear();
  mRingStart.assign(1, 0);
  mEdgeStart.assign(1, 0);
  // Entry of a vertex in the ring of the vertex that met it last.
  std::vector<i32> metBy(vertices, -1), slot(vertices), count, next;
  for (i32 v = 0; v < vertices; ++v) {
    count.clear();
    const auto forEachEdge = [&](auto&& f) {
      for (const i32 t : Triangles(v))
        ForEachOther(mesh.GetTriangles()[t], v, [&](i32 other) { f(t, other); });
    };
    forEachEdge([&](i32, i32 other) {
      if (metBy[other] != v) {
        metBy[other] = v;
        slot[other] = static_cast<i32>(count.size());
        count.push_back(0);
        mRing.push_back(other);
      }
      ++count[slot[other]];
    });
    next.clear();
    for (const i32 n : count) {
      next.push_back(mEdgeStart.back());
      mEdgeStart.push_back(mEdgeStart.back() + n);
    }
    mEdgeTriangles.resize(mEdgeStart.back());
    forEachEdge([&](i32 t, i32 other) { mEdgeTriangles[next[slot[other]]++] = t; });
    mRingStart.push_back(static_cast<i32>(mRing.size()));
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
