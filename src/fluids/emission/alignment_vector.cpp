#include "fluids/emission/alignment_vector.h"

#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

bool AlignmentVector2D::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  SetFlag(FLAG_FLIPPED, mFlip);
  mInterface.GetMatrix(mMatrix);
  mCentre = mMatrix.offset * GetDomain().worldToSim;
  return true;
}

void AlignmentVector2D::ClearLinks() {
  mVolume = nullptr;
  mMembers.clear();
  iObject::ClearLinks();
}

void AlignmentVector2D::PointAt(iVolume& volume) {
  mVolume = &volume;
  mMembers.clear();
  mVolume->CollectMembers(mMembers);
  mVolume->mInterface.GetMatrix(mMatrix);
  mCentre = mMatrix.offset * GetDomain().worldToSim;
  const Vec3d &min = mVolume->mBoxMin, &max = mVolume->mBoxMax;
  if (min.x <= max.x && min.y <= max.y && min.z <= max.z) mCentre = min + (max - min) * 0.5;
}

void AlignmentVector2D::SetWorkerCount(i32 workers) {
  mStreams.resize(std::max(1, workers));
  for (std::size_t i = 0; i < mStreams.size(); ++i)
    mStreams[i].Seed(static_cast<u32>(mTime->frameIndex + 234145 + static_cast<i32>(i)));
  // The volume may have moved since the links were fetched.
  if (mVolume) PointAt(*mVolume);
}

void AlignmentVector2D::SetMode(i32 mode) {
  mMode = mode;
  if (mode >= kAxisX && mode <= kAxisZ)
    mVector = {double(mode == kAxisX), double(mode == kAxisY), double(mode == kAxisZ)};
}

const VolumeBase* AlignmentVector2D::MemberAt(const Vec3d& position) const {
  const VolumeBase* nearest = nullptr;
  for (const VolumeBase* member : mMembers)
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
  const Mesh* mesh = member ? member->GetMesh() : nullptr;
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
    case kNormal: out = mVolume ? NormalAt(position) : matrix.Rotate(mVector); break;
    case kRandom:
      out = worker < mStreams.size() ? mStreams[worker].NextOnSphere() : Vec3d{};
      return;
    case kBodyVelocity: out = BodyVelocityAt(position); break;
    default: out = matrix.Rotate(mVector);
  }
  if (Has(FLAG_FLIPPED)) out = -out;
}

void AlignmentVector2D::GetDirection(Vec3d& out, const Vec3d& position, u32 worker) {
  GetDirection(out, position, mMatrix, mCentre, worker);
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
              "of motion ask for a volume",
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
    mCentre = mCentreNode->GlobalMatrix().offset * GetDomain().worldToSim;
  }
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
