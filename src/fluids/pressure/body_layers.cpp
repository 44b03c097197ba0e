#include "fluids/pressure/body_layers.h"

#include <algorithm>
#include <utility>

#include "fluids/pressure/solid_push.h"
#include "fluids/volume/volume_base.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

u64 ObjectOf(const MovingBody& body) {
  const Mesh* mesh = body.volume->GetMesh();
  return mesh ? static_cast<u64>(mesh->ObjectId()) : 0;
}

/// Open faces of `axis` in a box that are cut, or that a closed one follows or precedes.
std::vector<i32> FacesBesideSolids(const Flow& flow, i32 axis, const CellBox& box) {
  std::vector<i32> faces;
  const EGrid<float>* open = flow.GetOpenFaces(axis);
  if (!open) return faces;
  const EGrid<double>* phi = flow.mSurface;
  const VecInt3D back = ExtraOf(axis);
  const i32 ahead = open->Index(back.x, back.y, back.z) - open->Index(0, 0, 0);
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const i32 i = open->Index(x, y, z);
    const float* face = open->mData + i;
    if (!(*face > 0) || (*face >= 1 && face[-ahead] > 0 && face[ahead] > 0)) return;
    if (phi && !((*phi)(x, y, z) < 0) && !((*phi)(x - back.x, y - back.y, z - back.z) < 0)) return;
    faces.push_back(i);
  });
  return faces;
}

double SumOver(const Flow& flow, i32 axis, const std::vector<i32>& faces) {
  const double* u = flow.mVelocity.GetGrid(axis)->mData;
  double sum = 0;
  for (const i32 face : faces) sum += u[face];
  return sum;
}

}  // namespace

void BodyLayers::OpenForces(const Flow& flow) {
  mAccounts.clear();
  if (!flow.GetLayout()) return;
  const GridLayout& layout = *flow.GetLayout();
  for (const VolumeBase* volume : flow.mBoundary.mObstacles) {
    const Mesh* mesh = volume->GetMesh();
    if (!volume->Has(FLAG_ENABLED) || !volume->HasGridData() || !mesh || !mesh->IsDynamic())
      continue;
    Account& account = mAccounts.emplace_back();
    account.volume = volume;
    const CellBox box =
        Clip(CellsInReach(layout, *volume), {1, 1, 1}, layout.dims - VecInt3D{1, 1, 1});
    for (i32 axis = 0; axis < 3 && !box.IsEmpty(); ++axis) {
      Beside& beside = account.beside[axis];
      beside.faces = FacesBesideSolids(flow, axis, box);
      beside.gained = -SumOver(flow, axis, beside.faces);
    }
  }
}

void BodyLayers::CloseForces(const Flow& flow) {
  for (Account& account : mAccounts)
    for (i32 axis = 0; axis < 3; ++axis) {
      Beside& beside = account.beside[axis];
      if (beside.faces.empty()) continue;
      beside.gained += SumOver(flow, axis, beside.faces);
      account.change[axis] = beside.gained / static_cast<double>(beside.faces.size());
      beside.faces.clear();
    }
}

Vec3d BodyLayers::ForcedChange(const MovingBody& body) const {
  for (const Account& account : mAccounts)
    if (account.volume == body.volume) return account.change;
  return {};
}

void BodyLayers::Begin() { mBefore = std::exchange(mKept, {}); }

const Vec3d* BodyLayers::Find(const MovingBody& body) const {
  const auto found = mBefore.find(ObjectOf(body));
  return found == mBefore.end() ? nullptr : &found->second;
}

void BodyLayers::Keep(const MovingBody& body, const Vec3d& velocity) {
  mKept[ObjectOf(body)] = velocity;
}

void BodyLayers::Clear() {
  mAccounts.clear();
  mBefore.clear();
  mKept.clear();
}

void BodyLayers::Persist(StateArchive& archive) { archive(mKept); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
