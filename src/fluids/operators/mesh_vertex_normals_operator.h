// Normals of mesh vertices.
#pragma once
#include "fluids/operators/mesh_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Gives each vertex of a mesh the mean direction of its triangles' normals as property 34; zero
/// where these cancel out or there are none. It has no node: its owner gives it a record and runs
/// it.
class MeshVertexNormalsOperator : public MeshOperator {
 public:
  MeshVertexNormalsOperator() { mPriority = -5; }
  MeshVertexNormalsOperator(host::BaseNode* node, Scene* scene) : MeshOperator(node, scene) {
    mPriority = -5;
  }

  i32 GetTypeId() const override { return kTypeVertexNormals; }
  /// It shares its work out itself.
  bool IsSequential() const override { return true; }
  void SetRecord(TriMeshSTL* record) { mRecord = record; }
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  std::vector<Vec3d> mSums;  ///< of the unit normals round each vertex
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
