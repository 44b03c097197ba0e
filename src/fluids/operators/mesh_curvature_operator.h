// Curvature of meshes.
#pragma once
#include "fluids/operators/mesh_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the mean curvature at each vertex of a mesh into property 13: the length of the
/// curvature normal, which is the sum of the principal curvatures, 2 / r on a sphere; per
/// simulation unit, never negative.
///
/// The cotangent formula over the barycentric area: Meyer, Desbrun, Schroeder and Barr, "Discrete
/// Differential-Geometry Operators for Triangulated 2-Manifolds" (2003), equation 8.
class MeshCurvatureOperator : public MeshOperator {
 public:
  MeshCurvatureOperator() = default;
  MeshCurvatureOperator(host::BaseNode* node, Scene* scene) : MeshOperator(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  Vec3d CurvatureNormal(i32 vertex, double& area) const;
  void Measure();
  void Smooth();

  bool mSmooth = true;
  std::vector<double> mCurvature;  ///< of each vertex, unweighted and unsmoothed
  std::vector<double> mArea;       ///< twice the barycentric area; 0 where nothing was measured
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
