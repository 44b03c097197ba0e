#include "fluids/flow/velocity_constrain.h"

#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

VelocityConstrain::VelocityConstrain(const VelocityConstrain& other)
    : iObject(other),
      mFollowObstacles(other.mFollowObstacles),
      mUseBodyVelocity(other.mUseBodyVelocity),
      mBlend(other.mBlend) {}

bool VelocityConstrain::ReadParameters(void* context) {
  if (!iObject::ReadParameters(context)) return false;
  mBlend = mInterface.GetReal(1035);
  mFollowObstacles = mInterface.GetBool(1036);
  mUseBodyVelocity = mInterface.GetBool(1047);
  return true;
}

bool VelocityConstrain::ResolveLinks() {
  if (!iObject::ResolveLinks() || !mScene) return false;
  CollectObstacles(*mScene, mBodies);
  return true;
}

void VelocityConstrain::ClearLinks() {
  mBodies.clear();
  iObject::ClearLinks();
}

void VelocityConstrain::Release(bool full) {
  if (full) iObject::Release(true);
  for (auto& faces : mFaces) faces.clear();
}

void VelocityConstrain::Prepare(void*) {
  Release(false);
  SetFlag(FLAG_ACTIVE, mSolver && mSolver->GetLayout());
}

void VelocityConstrain::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  if (mPass == 0) {
    mFaces[data.index].clear();
    for (i32 axis = 0; axis < 3; ++axis) Compute(data, axis);
  }
  if (mPass == 1)
    for (const ClosedFace& face : mFaces[data.index])
      (*mSolver->mVelocity.GetGridForWrite(face.axis))[face.index] = face.value;
}

void VelocityConstrain::Compute(const EvaluationThreadData& data, i32 axis) {
  const EGrid<double>* grid = mSolver->mVelocity.GetGrid(axis);
  const EGrid<float>* open = mSolver->GetOpenFaces(axis);
  if (!grid || !open) return;
  VecInt3D top = grid->Dims() - VecInt3D{1, 1, 1};
  top[axis] -= 1;
  const CellBox box = Clip(data.Box(), {1, 1, 1}, top);
  std::vector<ClosedFace>& faces = mFaces[data.index];
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const i32 row = grid->Index(0, y, z);
      for (i32 x = box.min.x; x < box.max.x; ++x)
        if ((*open)[row + x] == 0) faces.push_back({axis, row + x, SolidFace(axis, x, y, z)});
    }
}

Vec3d VelocityConstrain::BodyVelocity(const Vec3d& p) const {
  const double h = GetDomain().cellSize;
  for (const VolumeBase* body : mBodies) {
    const Mesh* mesh = body->GetMesh();
    if (!mesh || mesh->IsStatic() || !body->Has(FLAG_ENABLED) || !body->HasGridData()) continue;
    if (!(body->DistanceAtWorld(p) < h)) continue;
    Vec3d step;
    mesh->GetVelocityAt(step, p);
    return mTime->stepDuration != 0 ? step / mTime->stepDuration : Vec3d{};
  }
  return {};
}

double VelocityConstrain::SolidFace(i32 axis, i32 x, i32 y, i32 z) const {
  const EGrid<double>& own = *mSolver->mVelocity.GetGrid(axis);
  const Vec3d p = own.PositionOf(x, y, z);
  const Vec3d solid = mUseBodyVelocity ? BodyVelocity(p) : Vec3d{};
  if (mBlend <= 0) return solid[axis];

  // The other two components: the mean of the four faces nearest to this one.
  Vec3d v;
  const VecInt3D back = ExtraOf(axis);
  for (i32 other = 0; other < 3; ++other) {
    const EGrid<double>& g = *mSolver->mVelocity.GetGrid(other);
    if (other == axis) {
      v[other] = g(x, y, z);
      continue;
    }
    const VecInt3D up = ExtraOf(other);
    v[other] = 0.25 * ((g(x, y, z) + g(x + up.x, y + up.y, z + up.z)) +
                       (g(x - back.x, y - back.y, z - back.z) +
                        g(x - back.x + up.x, y - back.y + up.y, z - back.z + up.z)));
  }
  Vec3d n{};
  if (mFollowObstacles) n = mSolver->mBoundary.GetSolidVelocity(p);
  if (n == Vec3d{})
    n = Normalised(
        mSolver->mBoundary.GradientIndex(Vec3d{double(x), double(y), double(z)} + OffsetOf(axis)));
  const double slide = v[axis] - n[axis] * Dot(n, v);
  return mBlend == 1 ? slide : (slide - solid[axis]) * mBlend + solid[axis];
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
