#include "fluids/operators/mesh_operator.h"

#include "fluids/volume/volume_mesh.h"
#include "framework/rest.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ParameterTable MeshOperator::Rows(ParameterTable own) {
  own.insert(
      own.begin(),
      {LinkRow(kTargetRow, "target", "the mesh that is changed, or the volume whose mesh is meant",
               {Mesh::Kind().id, VolumeMesh::Kind().id})
           .To(&MeshOperator::mTarget)
           .Writes()
           .Required(),
       LinkRow(1001, "duration", "when it works, and how strongly", {Duration::Kind().id})
           .To(&MeshOperator::mDuration)});
  return own;
}

bool MeshOperator::ResolveLinks() {
  mMesh = nullptr;
  mRecord = nullptr;
  if (!iObject::ResolveLinks()) return false;
  mMesh = dynamic_cast<Mesh*>(mTarget);
  if (auto* volume = dynamic_cast<VolumeMesh*>(mTarget)) mMesh = volume->GetMesh();
  if (mMesh) mRecord = &mMesh->mMesh;
  return mRecord != nullptr;
}

void MeshOperator::ClearLinks() {
  mMesh = nullptr;
  mRecord = nullptr;
  iObject::ClearLinks();
}

void MeshOperator::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  if (mMesh) mMesh->CheckDirty();
  if ((mScene->mFlags & Scene::kTimeChanged) || (mMesh && mMesh->IsDirty())) MarkDirty(false);
}

bool MeshOperator::IsDirty() const { return Has(FLAG_DIRTY) && (!mTime || mTime->substep < 2); }

void MeshOperator::Prepare() {
  if (!mRecord) return void(Deactivate("it has no target; name one under 'target'"));
  if (mMesh && !mMesh->Has(FLAG_ENABLED)) return void(Deactivate("its mesh is switched off"));
  mWeight = 1;
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, mWeight))
    return void(Deactivate(kClosedReason));
  if (mRecord->GetVertexCount() == 0) return void(Deactivate("its mesh has no vertices"));
  mConstraints.Prepare(this);
  SetFlag(FLAG_ACTIVE, true);
}

void MeshOperator::Finish() {
  mTopology.Clear();
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
