#include "fluids/emission/alignment_vector.h"

#include <utility>

#include "fluids/emission/stream_seeds.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

bool AlignmentVector2D::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  SetFlag(FLAG_FLIPPED, mFlip);
  mInterface.GetMatrix(mAt.axes);
  mAt.centre = mAt.axes.offset * GetDomain().worldToSim;
  return true;
}

void AlignmentVector2D::ClearLinks() {
  Unfollow();
  mAt.volume = nullptr;
  mAt.members.clear();
  iObject::ClearLinks();
}

void AlignmentVector2D::Take(iVolume& volume, bool withCentre) {
  mAt.volume = &volume;
  mAt.members.clear();
  volume.CollectMembers(mAt.members);
  if (!withCentre) return;
  volume.mInterface.GetMatrix(mAt.axes);
  mAt.centre = mAt.axes.offset * GetDomain().worldToSim;
  const Vec3d &min = volume.mBoxMin, &max = volume.mBoxMax;
  if (min.x <= max.x && min.y <= max.y && min.z <= max.z) mAt.centre = min + (max - min) * 0.5;
}

void AlignmentVector2D::PointAt(iVolume& volume) { Take(volume, true); }

void AlignmentVector2D::Follow(iVolume* volume, const Mesh* mesh) {
  Unfollow();
  mOwn = mAt;
  mFollows = true;
  if (mAt.volume) return;
  if (volume) return Take(*volume, !mCentreNode);
  if (!mesh) return;
  mAt.mesh = mesh;
  if (mCentreNode) return;
  mesh->mInterface.GetMatrix(mAt.axes);
  mAt.centre = mesh->mMesh.GetBoundsCentre();
}

void AlignmentVector2D::Unfollow() {
  if (mFollows) mAt = std::exchange(mOwn, {});
  mFollows = false;
}

void AlignmentVector2D::SetWorkerCount(i32 workers, u64 seed) {
  Unfollow();
  mStreams.resize(std::max(1, workers));
  SeedStreams(mStreams, StepSeed(*this) + MixedBits(seed));
  // The volume may have moved since the links were fetched.
  if (mAt.volume) Take(*mAt.volume, true);
}

void AlignmentVector2D::SetMode(i32 mode) {
  mMode = mode;
  if (mode >= kAxisX && mode <= kAxisZ)
    mVector = {double(mode == kAxisX), double(mode == kAxisY), double(mode == kAxisZ)};
}

const VolumeBase* AlignmentVector2D::MemberAt(const Vec3d& position) const {
  const VolumeBase* nearest = nullptr;
  for (const VolumeBase* member : mAt.members)
    if (!nearest || (!nearest->IsInsideWorld(position) && member->IsInsideWorld(position)))
      nearest = member;
  return nearest;
}

Vec3d AlignmentVector2D::NormalAt(const Vec3d& position) const {
  const VolumeBase* member = MemberAt(position);
  return member ? Normalised(member->GradientAtWorld(position)) : Vec3d{};
}

Vec3d AlignmentVector2D::BodyVelocityAt(const Vec3d& position) const {
  const VolumeBase* member = MemberAt(position);
  const Mesh* mesh = member ? member->GetMesh() : mAt.mesh;
  if (!mesh || !(mTime->stepDuration > 0)) return {};
  Vec3d motion{};
  mesh->GetVelocityAt(motion, position);
  return motion / mTime->stepDuration;
}

void AlignmentVector2D::GetDirection(Vec3d& out, const Vec3d& position, const Matrix& matrix,
                                     const Vec3d& centre, u32 worker) {
  const Vec3d axes[] = {matrix.v1, matrix.v2, matrix.v3};
  switch (mMode) {
    case kAxisX:
    case kAxisY:
    case kAxisZ: out = axes[mMode]; break;
    case kRadial: out = Normalised(position - centre); break;
    case kNearestAxis: {
      const Vec3d d = mVector - centre;
      int axis = 0;
      for (int a = 1; a < 3; ++a)
        if (std::abs(d[a]) > std::abs(d[axis])) axis = a;
      out = d[axis] < 0 ? -axes[axis] : axes[axis];
      break;
    }
    case kCylindrical: {
      const Matrix frame = RotationOf(matrix);
      const Vec3d d = position - centre;
      out = frame.v1 * Dot(d, frame.v1) + frame.v2 * Dot(d, frame.v2);
      break;
    }
    case kNormal: out = mAt.volume ? NormalAt(position) : matrix.Rotate(mVector); break;
    case kRandom:
      out = worker < mStreams.size() ? mStreams[worker].NextOnSphere() : Vec3d{};
      return;
    case kBodyVelocity: out = BodyVelocityAt(position); break;
    default: out = matrix.Rotate(mVector);
  }
  if (Has(FLAG_FLIPPED)) out = -out;
}

void AlignmentVector2D::GetDirection(Vec3d& out, const Vec3d& position, u32 worker) {
  GetDirection(out, position, mAt.axes, mAt.centre, worker);
}

void AlignmentVector2D::GetDirectionOn(Vec3d& out, const Vec3d& position, const Vec3d& normal,
                                       u32 worker) {
  const bool isNormal = mMode == kNormal && normal != Vec3d{} && (mFollows && !mOwn.volume);
  if (!isNormal) return GetDirection(out, position, worker);
  out = Has(FLAG_FLIPPED) ? -normal : normal;
}

const NodeKind& AlignmentVector3D::Kind() {
  static const NodeKind kind = {
      .id = 1300010,
      .type = "alignment",
      .label = "Alignment",
      .className = "AlignmentVector3D",
      .typeId = kTypeAlignment,
      .list = kListAuxiliary,
      .menu = {"General"},
      .purpose = "gives a direction for each place, such as away from a centre",
      .example =
          {{example::kBall},
           {R"({ "type": "alignment", "name": "outwards", "parameters": { "mode": "radial", "centre": "ball" } })",
            R"({ "type": "force_gravity", "name": "blast", "parameters": { "alignment": "outwards", "strength": 0.5 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["blast"] } })"}},
      .rows = Parameters,
      .make = MakeNode<AlignmentVector3D>,
  };
  return kind;
}

const ParameterTable& AlignmentVector3D::Parameters() {
  static const ParameterTable table = {
      LongRow(kModeRow, "mode", 0, "",
              "which way it points: along an axis, away from a centre, round it, off a surface, "
              "where that volume moves, or at random")
          .Choices({{kAxisX, "x_axis"},
                    {kAxisY, "y_axis"},
                    {kAxisZ, "z_axis"},
                    {kRadial, "radial"},
                    {kNearestAxis, "nearest_axis"},
                    {kCylindrical, "cylindrical"},
                    {kNormal, "surface_normal"},
                    {kFixed, "fixed"},
                    {kRandom, "random"},
                    {kBodyVelocity, "body_velocity"}})
          .To(&AlignmentVector3D::mMode),
      BoolRow(1001, "flip", false, "points the other way round; not in the mode random")
          .To(&AlignmentVector3D::mFlip),
      VectorRow(1002, "vector", {0, 1, 0}, "none",
                "where it points with mode fixed, in the node's own axes")
          .OnlyWith(kModeRow, {kNearestAxis, kNormal, kFixed})
          .To(&AlignmentVector3D::mVector),
      LinkRow(kCentreRow, "centre",
              "a volume or object that directions lead away from or round; modes of a surface and "
              "of motion ask for a volume; an emitter of particles means its source without one",
              {kMeshObject, kSplineObject, kPointsObject, kLightObject, kCameraObject})
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .To(&AlignmentVector3D::mCentreNode),
  };
  return table;
}

bool AlignmentVector3D::ResolveLinks() {
  if (!AlignmentVector2D::ResolveLinks()) return false;
  if (auto* volume =
          dynamic_cast<iVolume*>(mScene->FindObject(mCentreNode, kListGeometry, kBitVolume))) {
    PointAt(*volume);
  } else if (mCentreNode) {
    mAt.centre = mCentreNode->GlobalMatrix().offset * GetDomain().worldToSim;
  }
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
