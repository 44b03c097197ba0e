#include "fluids/operators/mesh_smoothing_operator.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& MeshSmoothingOperator::Kind() {
  static const NodeKind kind = {
      .id = 1300136,
      .type = "mop_smoothing",
      .label = "MOP::Smoother",
      .className = "MeshSmoothingOperator",
      .typeId = kTypeMeshOperator,
      .list = kListOperators,
      .categories = kCategoryMesh,
      .flags = "IV",
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Bodies/Operators"},
      .purpose = "rounds off a mesh before it becomes a volume",
      .example =
          {{example::kCube},
           {R"({ "type": "mesh", "name": "cube mesh", "parameters": { "object": "cube" } })",
            R"({ "type": "mop_smoothing", "name": "round off", "parameters": { "target": "cube mesh", "iterations": 3, "stage": 3 } })",
            R"({ "type": "volume", "name": "cube volume", "parameters": { "mesh": "cube mesh" }, "obstacle": {} })",
            example::kGas}},
      .rows = Parameters,
      .make = MakeNode<MeshSmoothingOperator>,
  };
  return kind;
}

const ParameterTable& MeshSmoothingOperator::Parameters() {
  static const ParameterTable table =
      Rows({LongRow(1004, "iterations", 1, "",
                    "how round it gets: each time, edges and small bumps melt a little more")
                .Range(0, 10000)
                .To(&MeshSmoothingOperator::mIterations)});
  return table;
}

void MeshSmoothingOperator::Prepare() {
  MeshOperator::Prepare();
  if (!Has(FLAG_ACTIVE)) return;
  mTopology.Build(*mRecord);
  mWeights.assign(mRecord->GetVertexCount(), 0.0);
}

void MeshSmoothingOperator::Evaluate(const EvaluationThreadData&) {
  for (i32 i = 0; Has(FLAG_ACTIVE) && i < mIterations && !IsCancelled(); ++i) Smooth();
}

void MeshSmoothingOperator::Smooth() {
  mPositions = mRecord->GetVertices();
  mNormals = mRecord->mColumns.normal;
  const bool hasNormals = mNormals.size() == mPositions.size();
  ForEachVertex(mPositions, [&](i32 v, double weight) {
    double sum = 0;
    Vec3d position{}, normal{};
    const auto add = [&](i32 j) {
      const double w = mWeights[j] + 1e-8;
      sum += w;
      position += mPositions[j] * w;
      if (hasNormals) normal += mNormals[j] * w;
    };
    add(v);
    for (const i32 j : mTopology.Ring(v)) add(j);
    if (sum == 0) return;
    const auto mix = [&](const Vec3d& from, const Vec3d& mean) {
      return from + (mean / sum - from) * weight;
    };
    mRecord->GetVertices()[v] = mix(mPositions[v], position);
    if (hasNormals) mRecord->mColumns.normal[v] = Normalised(mix(mNormals[v], normal));
  });
}

void MeshSmoothingOperator::Finish() {
  if (mMesh && Has(FLAG_ACTIVE) && mIterations > 0) mMesh->MarkAltered();
  mPositions.clear();
  mNormals.clear();
  mWeights.clear();
  MeshOperator::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
