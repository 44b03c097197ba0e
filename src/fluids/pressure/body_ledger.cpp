#include "fluids/pressure/body_ledger.h"

#include <algorithm>
#include <cmath>

#include "fluids/flow/face_stencil.h"
#include "fluids/pressure/projection_kernels.h"
#include "fluids/pressure/solid_push.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kNearest = 0.1;  // cells: what another solid may be nearer by

/// A body that the pressure of a liquid moves; null without one.
BodyState* MovedBody(const VolumeBase& volume) {
  const Mesh* mesh = volume.GetMesh();
  if (!volume.Has(FLAG_ENABLED) || !volume.HasGridData() || volume.IsSheet()) return nullptr;
  if (!mesh || !mesh->IsDynamic() || mesh->IsDeforming()) return nullptr;
  BodyState* body = mesh->GetBody();
  return body->FlowInverseMass() != Vec3d{} ? body : nullptr;
}

bool IsNearest(const VolumeBase& volume, const Flow& flow, const Vec3d& place) {
  if (!volume.IsInBounds(place)) return false;
  const double h = flow.GetLayout()->cellSize;
  return volume.DistanceAtWorld(place) <= flow.mBoundary.SampleWorld(place) + kNearest * h;
}

}  // namespace

const BodyLedger::Follower* BodyLedger::Find(const VolumeBase* volume) const {
  for (const Account& account : mAccounts)
    if (account.volume == volume) return &account.follower;
  return nullptr;
}

void BodyLedger::Open(const Particles& particles, Flow& flow, double density) {
  Close();
  const double h = flow.GetLayout()->cellSize;
  mFull = density * h * h * h;
  mParticleMass = particles.mass;
  for (const VolumeBase* volume : flow.mBoundary.mObstacles)
    if (BodyState* body = MovedBody(*volume)) mAccounts.push_back({volume, body});
  for (Account& account : mAccounts) OpenFaces(account, particles, flow);
}

double BodyLedger::OpenPart(const Flow& flow, i32 axis, const VecInt3D& face) const {
  const EGrid<double>& phi = *flow.mSurface;
  const double open = (*flow.GetOpenFaces(axis))(face.x, face.y, face.z);
  if (!(open > 0)) return 0;
  const VecInt3D below = face - ExtraOf(axis);
  const double a = phi(face.x, face.y, face.z), b = phi(below.x, below.y, below.z);
  const double inside = std::min(a, b), outside = std::max(a, b);
  if (!(inside < 0)) return 0;
  return mFull * open * (outside < 0 ? 1 : SurfaceShare::Of(inside, outside));
}

void BodyLedger::OpenFaces(Account& account, const Particles& particles, Flow& flow) const {
  const GridLayout& layout = *flow.GetLayout();
  const CellBox box = Clip(CellsInReach(layout, *account.volume), {1, 1, 1}, layout.dims);
  const FaceStencils stencils(layout);
  Follower& follower = account.follower;
  for (i32 axis = 0; axis < 3; ++axis) {
    Grid<double>* weights = flow.mScratch.Get(axis, layout.dims, axis);
    if (!weights) return;
    const EGrid<double>& u = *flow.mVelocity.GetGrid(axis);
    const EGrid<double>& brought = *flow.mVelocity.mPrevious[axis];
    const EGrid<float>& open = *flow.GetOpenFaces(axis);
    const VecInt3D wide{1, 1, 1};
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y)
        std::fill_n(weights->mData + u.Index(box.min.x, y, z), box.max.x - box.min.x, 0.0);
    particles.sort.ForEachInBox(
        box.min - wide, box.max + wide, [&](const ParticleSort::Entry& entry) {
          stencils[axis].At(layout.ToCells(entry.position)).AddWeights(weights->mData);
        });
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y)
        for (i32 x = box.min.x; x < box.max.x; ++x) {
          const i32 index = u.Index(x, y, z);
          const double mass = (*weights)[index] * mParticleMass;
          if (!(open[index] < 1) || (open[index] == 0 && mass == 0)) continue;
          const Vec3d place = u.PositionOf(x, y, z);
          if (!IsNearest(*account.volume, flow, place)) continue;
          account.faces.push_back({axis, index, mass, {x, y, z}});
          const double n = Normalised(account.volume->GradientAtWorld(place))[axis];
          const double surplus = (mass - OpenPart(flow, axis, {x, y, z})) * n * n;
          follower.mass[axis] += surplus;
          follower.momentum[axis] += surplus * brought[index];
        }
    if (follower.mass[axis] < 0) follower.mass[axis] = follower.momentum[axis] = 0;
  }
}

void BodyLedger::BookFlow(const Flow& flow) {
  for (Account& account : mAccounts) {
    for (const Face& face : account.faces) {
      const double change = (*flow.mVelocity.GetGrid(face.axis))[face.index] -
                            (*flow.mVelocity.mPrevious[face.axis])[face.index];
      account.owed[face.axis] += (face.mass - OpenPart(flow, face.axis, face.at)) * change;
    }
    Vec3d linear, angular;
    account.body->GetFlowVelocities(linear, angular);
    account.owed -= account.follower.mass * linear - account.follower.momentum;
  }
}

void BodyLedger::BookTouches(std::span<const Touch> touches, const Flow& flow) {
  for (const Touch& touch : touches)
    for (Account& account : mAccounts) {
      if (!IsNearest(*account.volume, flow, touch.place)) continue;
      account.owed += touch.change * mParticleMass;
      break;
    }
}

void BodyLedger::Pay(double dt) {
  for (const Account& account : mAccounts)
    account.body->TakeFluidImpulse(account.owed * -1.0, {}, dt);
  Close();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
