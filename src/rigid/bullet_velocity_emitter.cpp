#include "rigid/bullet_velocity_emitter.h"

#include <algorithm>
#include <cmath>

#include "fluids/volume/multi_volume.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Bullet_VelocityEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300123,
      .type = "rigid_forces",
      .label = "ROP::Forces",
      .className = "Bullet_VelocityEmitter",
      .typeId = kTypeRigidForces,
      .list = kListOperators,
      .categories = 0x80,
      .flags = "S*",
      .stages = {kEmitters},
      .priority = 20,
      .menu = {"Bodies/Operators"},
      .purpose = "lets forces push rigid bodies",
      .example =
          {{example::kBall},
           {example::kBallMesh,
            R"({ "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" }, "obstacle": { "mass": 5 } })",
            R"({ "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [2, 0, 0] } })",
            R"({ "type": "rigid_forces", "name": "blow", "parameters": { "volumes": ["ball volume"], "forces": ["wind"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Bullet_VelocityEmitter>,
  };
  return kind;
}

const ParameterTable& Bullet_VelocityEmitter::Parameters() {
  static const ParameterTable table = {
      LinksRow(1000, "volumes", "the volumes whose bodies are pushed, or with 'exclude' are not",
               {VolumeMesh::Kind().id, MultiVolume::Kind().id})
          .To(&Bullet_VelocityEmitter::mVolumes),
      LinksRow(1001, "forces", "what pushes them; forces that need a fluid give nothing")
          .AcceptsAny({kListForces, 0})
          .To(&Bullet_VelocityEmitter::mForces)
          .Required(),
      LongRow(1002, "mode", 0, "",
              "where it pushes: at the centre of mass, or all over, so that it may turn them too")
          .Choices({{0, "centre"}, {1, "vertices"}, {2, "surface"}})
          .To(&Bullet_VelocityEmitter::mMode),
      LongRow(1003, "exclude", 0, "", "whether 'volumes' are the ones that are left alone")
          .Choices({{0, "include"}, {1, "exclude"}})
          .OrNumbers()
          .To(&Bullet_VelocityEmitter::mExcludes),
  };
  return table;
}

void Bullet_VelocityEmitter::CheckDirty() {
  iObject::CheckDirty();
  // What it gives in the start frame acts in the first step.
  if (!(mScene->mFlags & Scene::kTimeChanged))
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  else if (!IsDirty())
    MarkDirty(false);
}

void Bullet_VelocityEmitter::ClearLinks() {
  mVolumes.clear();
  mForces.clear();
  iObject::ClearLinks();
}

std::vector<VolumeBase*> Bullet_VelocityEmitter::Bodies() const {
  std::vector<VolumeBase*> members;
  const auto collect = [&](iVolume& volume) { volume.CollectMembers(members); };
  if (mExcludes == 0) {
    for (iVolume* volume : mVolumes)
      if (volume->Has(FLAG_ENABLED)) collect(*volume);
  } else {
    for (const auto& [id, object] : mScene->List(kListGeometry)) {
      auto* volume = dynamic_cast<iVolume*>(object.get());
      if (volume && volume->Has(FLAG_ENABLED) &&
          std::find(mVolumes.begin(), mVolumes.end(), volume) == mVolumes.end())
        collect(*volume);
    }
  }
  std::vector<VolumeBase*> bodies;
  for (VolumeBase* member : members) {
    const Mesh* mesh = member->GetMesh();
    const bool isNew = std::none_of(bodies.begin(), bodies.end(),
                                    [&](const VolumeBase* b) { return b->GetMesh() == mesh; });
    if (mesh && mesh->IsDynamic() && isNew) bodies.push_back(member);
  }
  return bodies;
}

void Bullet_VelocityEmitter::Prepare() {
  if (mForces.empty()) return void(Deactivate("it has no forces; name some under 'forces'"));
  if (mExcludes == 0 && mVolumes.empty())
    return void(Deactivate("it has no volumes; name some under 'volumes'"));
  // The start frame has no length, whatever its substeps.
  if (!mTime->IsUnderWay() && !mTime->isLastSubstep) return SetFlag(FLAG_ACTIVE, false);
  for (Force* force : mForces)
    if (force->Has(FLAG_ENABLED)) force->PrepareAlone();
  SetFlag(FLAG_ACTIVE, true);
}

Vec3d Bullet_VelocityEmitter::ChangeAt(const Vec3d& place) const {
  ForceSample sample;
  sample.particleMode = 1;
  sample.position = place;
  sample.hostPosition = place * GetDomain().simToWorld;
  for (Force* force : mForces)
    if (force->Has(FLAG_ENABLED)) force->Evaluate(sample);
  return sample.force;
}

void Bullet_VelocityEmitter::PushAt(const std::vector<Vec3d>& places, BodyState& body) const {
  if (places.empty() || !(mTime->stepDuration > 0)) return;
  const double share = body.Mass() / (mTime->stepDuration * static_cast<double>(places.size()));
  for (const Vec3d& place : places) body.ApplyForceAtPoint(ChangeAt(place) * share, place);
}

void Bullet_VelocityEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  for (const VolumeBase* volume : Bodies()) {
    if (data.TestBreak()) return;
    const Mesh& mesh = *volume->GetMesh();
    BodyState& body = *mesh.GetBody();
    std::vector<Vec3d> places;
    if (mMode == kVertices) {
      places = mesh.mMesh.GetVertices();
    } else if (mMode == kSurface && volume->HasGridData()) {
      const GridLayout& layout = volume->GetGrid()->mLayout;
      ForEachCell({{0, 0, 0}, layout.dims}, [&](i32 x, i32 y, i32 z) {
        const Vec3d centre =
            layout.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell;
        if (std::fabs(volume->DistanceAtWorld(centre)) <= layout.cellSize) places.push_back(centre);
      });
    } else {
      places = {body.Pose().centre};
    }
    PushAt(places, body);
  }
}

void Bullet_VelocityEmitter::Finish() {
  for (Force* force : mForces)
    if (force->Has(FLAG_ENABLED) && force->Has(FLAG_ACTIVE)) force->Finish();
  iObject::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
