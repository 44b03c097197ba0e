#include "fluids/operators/mesh_curvature_operator.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
constexpr double kLeastArea = 1e-18;

/// Cotangent of the angle between two edges of a triangle; 0 where an edge has no length.
double Cotangent(const Vec3d& a, const Vec3d& b) {
  const double lengths = Length(a) * Length(b);
  if (lengths == 0) return 0;
  const double cosine = std::clamp(Dot(a, b) / lengths, -0.99999999, 0.99999999);
  return cosine / (std::sqrt(1 - cosine * cosine) + 1e-16);
}
}  // namespace

const NodeKind& MeshCurvatureOperator::Kind() {
  static const NodeKind kind = {
      .id = 1300135,
      .type = "mop_curvature",
      .label = "MOP::Curvature",
      .className = "MeshCurvatureOperator",
      .typeId = kTypeMeshOperator,
      .list = kListOperators,
      .categories = kCategoryMesh,
      .flags = "I*V",
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Bodies/Operators"},
      .purpose = "works out how strongly a mesh is bent at its vertices",
      .example =
          {{example::kBall},
           {example::kBallMesh,
            R"({ "type": "mop_curvature", "name": "bend", "parameters": { "target": "ball mesh" } })"}},
      .rows = Parameters,
      .make = MakeNode<MeshCurvatureOperator>,
  };
  return kind;
}

const ParameterTable& MeshCurvatureOperator::Parameters() {
  static const ParameterTable table =
      Rows({BoolRow(1004, "smooth", true,
                    "evens the result out over neighbours, so that single sharp points count less")
                .To(&MeshCurvatureOperator::mSmooth)});
  return table;
}

void MeshCurvatureOperator::Prepare() {
  MeshOperator::Prepare();
  if (!Has(FLAG_ACTIVE)) return;
  mTopology.Build(*mRecord);
  mCurvature.assign(mRecord->GetVertexCount(), 0.0);
  mArea.assign(mRecord->GetVertexCount(), 0.0);
  mRecord->mColumns.curvature.resize(mRecord->GetVertexCount());
}

Vec3d MeshCurvatureOperator::CurvatureNormal(i32 vertex, double& area) const {
  const std::vector<Vec3d>& x = mRecord->GetVertices();
  const std::vector<VecInt3D>& triangles = mRecord->GetTriangles();
  const std::span<const i32> ring = mTopology.Ring(vertex);
  Vec3d sum{};
  for (std::size_t slot = 0; slot < ring.size(); ++slot) {
    const i32 j = ring[slot];
    for (const i32 t : mTopology.EdgeTriangles(vertex, static_cast<i32>(slot))) {
      const VecInt3D& corner = triangles[t];
      const i32 third = corner.x != vertex && corner.x != j   ? corner.x
                        : corner.y != vertex && corner.y != j ? corner.y
                                                              : corner.z;
      sum += (x[j] - x[vertex]) * Cotangent(x[vertex] - x[third], x[j] - x[third]);
    }
  }
  double doubled = 0;
  for (const i32 t : mTopology.Triangles(vertex)) {
    const VecInt3D& c = triangles[t];
    doubled += Length(Cross(x[c.y] - x[c.x], x[c.z] - x[c.x]));
  }
  area = std::max(doubled / 3, kLeastArea);
  return sum / area;
}

void MeshCurvatureOperator::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE)) return;
  Measure();
  if (mSmooth) Smooth();
}

void MeshCurvatureOperator::Measure() {
  ForEachVertex(mRecord->GetVertices(), [&](i32 v, double weight) {
    mCurvature[v] = Length(CurvatureNormal(v, mArea[v]));
    mRecord->mColumns.curvature[v] = mCurvature[v] * weight;
  });
}

void MeshCurvatureOperator::Smooth() {
  ForEachVertex(mRecord->GetVertices(), [&](i32 v, double weight) {
    double area = mArea[v], sum = mArea[v] * mCurvature[v];
    for (const i32 j : mTopology.Ring(v)) {
      area += mArea[j];
      sum += mArea[j] * mCurvature[j];
    }
    mRecord->mColumns.curvature[v] = (area == 0 ? mCurvature[v] : sum / area) * weight;
  });
}

void MeshCurvatureOperator::Finish() {
  mCurvature.clear();
  mArea.clear();
  MeshOperator::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
