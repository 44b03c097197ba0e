#include "fluids/operators/mesh_vertex_normals_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void MeshVertexNormalsOperator::Prepare() {
  MeshOperator::Prepare();
  if (!Has(FLAG_ACTIVE)) return;
  const std::vector<Vec3d>& x = mRecord->GetVertices();
  mSums.assign(x.size(), {});
  for (const VecInt3D& c : mRecord->GetTriangles()) {
    const Vec3d normal = Normalised(Cross(x[c.y] - x[c.x], x[c.z] - x[c.x]));
    mSums[c.x] += normal;
    mSums[c.y] += normal;
    mSums[c.z] += normal;
  }
  mRecord->mColumns.normal.resize(x.size());
}

void MeshVertexNormalsOperator::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE)) return;
  ForEachVertex(mRecord->GetVertices(),
                [&](i32 v, double) { mRecord->mColumns.normal[v] = Normalised(mSums[v]); });
}

void MeshVertexNormalsOperator::Finish() {
  mSums.clear();
  MeshOperator::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
