// Operators on the vertices of a mesh.
#pragma once
#include <array>

#include "fluids/mesh/mesh.h"
#include "fluids/mesh/topology.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of the operators that change a mesh's vertices or their properties, each vertex by itself
/// from what its neighbours were before. A mesh starts from the host's shape once a frame, and so
/// do its operators: in the first substep.
class MeshOperator : public iObject {
 public:
  MeshOperator() = default;
  MeshOperator(host::BaseNode* node, Scene* scene) : iObject(node, scene) {}
  static constexpr i32 kTargetRow = 1000;
  ConstraintList* Constraints() override { return &mConstraints; }
  bool ResolveLinks() override;
  void ClearLinks() override;
  void CheckDirty() override;
  bool IsDirty() const override;
  /// Makes the operator ready for its target; inactive where it has none.
  void Prepare() override;
  void Finish() override;

 protected:
  /// The rows of target and duration, followed by those of the class.
  static host::ParameterTable Rows(host::ParameterTable own);

  /// f(vertex, weight) for all vertices but those of weight 0, shared out among the workers: the
  /// weight of the duration times that of the constraints at the vertex's position in `places`.
  template <class F>
  void ForEachVertex(const std::vector<Vec3d>& places, F&& f) const {
    ForEachShare(mScene->mThreadCount, mScene->mThread, [&](const EvaluationThreadData& share) {
      const IndexRange own = share.ItemsOf(0, mRecord->GetVertexCount());
      mConstraints.ForEachWeighed(
          {own.first, own.last, this, static_cast<u32>(share.index)},
          [&](i32 v) { return places[v]; }, [&](i32) { return mWeight; }, f);
    });
  }

  iBase* mTarget = nullptr;       ///< a mesh, or the volume whose mesh is meant
  Mesh* mMesh = nullptr;          ///< the target, if it is a mesh
  TriMeshSTL* mRecord = nullptr;  ///< what the operator works on
  Duration* mDuration = nullptr;
  ConstraintList mConstraints;
  double mWeight = 1;
  Topology mTopology;  ///< from `Prepare` to `Finish`
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
