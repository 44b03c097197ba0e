// Triangle meshes.
#pragma once
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// Data of one vertex beside its position: columns of `TriMeshSTL`, empty until first set.
struct VertexColumns {
  std::vector<Vec3d> velocity;    ///< simulation units per second
  std::vector<Vec3d> normal;      ///< property 34
  std::vector<double> curvature;  ///< property 13
  void Clear() { velocity.clear(), normal.clear(), curvature.clear(); }
};

/// A triangle mesh in simulation space, with the box of its vertices.
class TriMeshSTL {
 public:
  i32 GetTriangleCount() const { return static_cast<i32>(mTriangles.size()); }
  i32 GetVertexCount() const { return static_cast<i32>(mVertices.size()); }
  const std::vector<VecInt3D>& GetTriangles() const { return mTriangles; }
  std::vector<VecInt3D>& GetTriangles() { return mTriangles; }
  const std::vector<Vec3d>& GetVertices() const { return mVertices; }
  std::vector<Vec3d>& GetVertices() { return mVertices; }

  /// Also sets the centre.
  void SetBounds(const Vec3d& min, const Vec3d& max);
  const Vec3d& GetBoundsMin() const { return mBoundsMin; }
  const Vec3d& GetBoundsMax() const { return mBoundsMax; }
  void GetBoundsSize(Vec3d& size) const { size = mBoundsMax - mBoundsMin; }
  const Vec3d& GetBoundsCentre() const { return mCentre; }
  void ExpandBounds(Vec3d& min, Vec3d& max) const;
  /// The box of the vertices, starting from the largest and smallest doubles.
  void UpdateBounds();

  void Assign(const TriMeshSTL& other);
  /// True when a count changed; another count of vertices drops their columns.
  bool Resize(i32 triangles, i32 vertices);
  void Clear();
  /// Saves or restores all of it.
  void Persist(StateArchive& archive);

  /// The two triangles of a host polygon; the second is -1 for a triangle. Empty in a mesh without
  /// quads.
  std::unordered_map<i32, std::pair<i32, i32>> mQuadMap;
  std::vector<Vec3d> mUvs;  ///< three corners per triangle, or empty
  VertexColumns mColumns;

 private:
  Vec3d mBoundsMin{}, mBoundsMax{}, mCentre{};
  std::vector<VecInt3D> mTriangles;
  std::vector<Vec3d> mVertices;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
