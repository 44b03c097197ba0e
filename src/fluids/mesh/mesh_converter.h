// From host geometry to triangle meshes, on several threads.
#pragma once
#include <array>

#include "fluids/mesh/tri_mesh.h"
#include "grids/work_data.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A conversion in steps: `NextStep` and `Begin` on one thread, then `Run` on each worker.
class MeshConverter {
 public:
  virtual ~MeshConverter() = default;
  /// Goes to the next step; false when the conversion is over.
  virtual bool NextStep() = 0;
  virtual void Begin(i32 workers) = 0;
  virtual void Run(const EvaluationThreadData& data) = 0;

  /// All steps on at most `threads` workers.
  void Convert(i32 threads);
};

/// Reads a polygon object into a mesh: first the vertices, then, where it must, the triangles with
/// their uvs and the map of quads, then the normals, then the box.
class MeshConverter_HostToSTL : public MeshConverter {
 public:
  /// `mesh` holds what was read last, and with `polygonsChanged` other polygons than the object's.
  MeshConverter_HostToSTL(const host::PolygonObject& object, const Matrix& matrix,
                          const Vec3d& worldToSim, bool polygonsChanged, TriMeshSTL& mesh)
      : mGeometry(object.GetGeometry()),
        mMatrix(matrix),
        mWorldToSim(worldToSim),
        mRebuild(polygonsChanged),
        mMesh(mesh) {}

  bool NextStep() override;
  void Begin(i32 workers) override;
  void Run(const EvaluationThreadData& data) override;

  /// A vertex moved, or the triangles were rebuilt.
  bool HasChanged() const { return mRebuild || AnyMoved(); }
  bool HaveCountsChanged() const { return mCountsChanged; }

 private:
  enum Step : i32 { kBefore = -1, kVertices, kTriangles, kNormals, kBox };
  bool AnyMoved() const;
  void Split(i32 workers);
  void WriteVertices(i32 worker);
  void WriteTriangles(i32 worker);
  void WriteQuadMap();
  void WriteNormals();

  const host::Geometry& mGeometry;
  Matrix mMatrix;
  Vec3d mWorldToSim;
  bool mRebuild;
  TriMeshSTL& mMesh;
  i32 mStep = kBefore;
  bool mCountsChanged = false;
  bool mHasQuads = false;
  using Table = std::array<i32, host::kMaxWorkers>;
  Table mFirstPoint{}, mLastPoint{}, mFirstPolygon{}, mLastPolygon{};
  Table mFirstTriangle{};                         ///< of a worker's first polygon
  std::array<u8, host::kMaxWorkers> mHasMoved{};  ///< a vertex of the worker did
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
