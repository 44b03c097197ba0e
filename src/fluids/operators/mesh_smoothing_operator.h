// Smoothing of meshes.
#pragma once
#include "fluids/operators/mesh_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Moves each vertex of a mesh to the mean of itself and its neighbours, some times over; normals
/// go the same way. A mesh that it smoothed is marked altered: its box follows, and in the next
/// frame it starts from the host's shape again.
class MeshSmoothingOperator : public MeshOperator {
 public:
  MeshSmoothingOperator() = default;
  MeshSmoothingOperator(host::BaseNode* node, Scene* scene) : MeshOperator(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  /// An iteration, from the positions that it finds.
  void Smooth();

  i32 mIterations = 1;
  std::vector<Vec3d> mPositions;  ///< before the iteration
  std::vector<Vec3d> mNormals;    ///< likewise; empty without normals
  std::vector<double> mWeights;   ///< of the vertices in a mean
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
