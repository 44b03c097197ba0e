// Neighbourhoods of the vertices of a triangle mesh.
#pragma once
#include <span>
#include <vector>

#include "fluids/mesh/tri_mesh.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// For each vertex the triangles that have it as a corner, the ring of vertices that share a
/// triangle with it, and for each of those the triangles on the edge between the two.
class Topology {
 public:
  /// Every triangle's corners must be vertices of the mesh.
  void Build(const TriMeshSTL& mesh);
  void Clear() { *this = {}; }

  i32 GetVertexCount() const { return std::max(0, static_cast<i32>(mRingStart.size()) - 1); }
  /// Triangles round a vertex by rising index, each once.
  std::span<const i32> Triangles(i32 vertex) const {
    return Part(mTriangles, mTriangleStart, vertex);
  }
  /// Neighbours of a vertex without repeats, in the order in which its triangles name them.
  std::span<const i32> Ring(i32 vertex) const { return Part(mRing, mRingStart, vertex); }
  /// The triangles on the edge from a vertex to entry `slot` of its ring: two inside a surface, one
  /// at a border, more where sheets meet.
  std::span<const i32> EdgeTriangles(i32 vertex, i32 slot) const {
    return Part(mEdgeTriangles, mEdgeStart, mRingStart[vertex] + slot);
  }

 private:
  static std::span<const i32> Part(const std::vector<i32>& all, const std::vector<i32>& start,
                                   i32 i) {
    return {all.data() + start[i], static_cast<std::size_t>(start[i + 1] - start[i])};
  }
  void CollectTriangles(const TriMeshSTL& mesh);
  void CollectRings(const TriMeshSTL& mesh);

  // Lists of all vertices one behind the other; list i is [start[i], start[i + 1]).
  std::vector<i32> mTriangles, mTriangleStart;
  std::vector<i32> mRing, mRingStart;
  std::vector<i32> mEdgeTriangles, mEdgeStart;  ///< one list for each entry of `mRing`
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
