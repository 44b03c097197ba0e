#include "rigid/bullet_world.h"

#include <BulletCollision/BroadphaseCollision/btDispatcher.h>
#include <BulletCollision/NarrowPhaseCollision/btPersistentManifold.h>
#include <BulletDynamics/Dynamics/btRigidBody.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "fluids/emission/alignment_vector.h"
#include "fluids/emission/stream_seeds.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/mesh/obstacle_rows.h"
#include "fluids/mesh/sheet.h"
#include "fluids/volume/volume_base.h"
#include "framework/state_archive.h"
#include "host/turn_by.h"
#include "rigid/bullet_frame.h"
#include "rigid/bullet_library.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

BulletWorld::BulletWorld() = default;
BulletWorld::~BulletWorld() { Reset(); }

void BulletWorld::Reset() {
  if (mLibrary) mLibrary->DropPairs();
  mBodies.clear();
  mRestored.clear();
  mKeyed.clear();
  mShapes.clear();
  mTwins.clear();
  mKnowsGravity = false;
  mLibrary.reset();
}

void BulletWorld::Build(const Scene& scene, std::size_t bodies) {
  if (mLibrary) mLibrary->DropPairs();
  for (auto& [key, body] : mBodies)
    if (body->Get()) mLibrary->Remove(*body->Get());
  mLibrary = std::make_unique<BulletLibrary>(scene.mRigidBroadphase, scene.mRigidIterations,
                                             std::max({bodies, mBodies.size(), mRestored.size()}));
  for (auto& [key, body] : mBodies)
    if (body->Get()) Add(*body->Get());
}

void BulletWorld::Add(btRigidBody& body) {
  if (mLibrary && !body.isInWorld()) mLibrary->Add(body);
}

void BulletWorld::Remove(btRigidBody& body) {
  if (mLibrary && body.isInWorld()) mLibrary->Remove(body);
}

std::vector<std::pair<BulletWorld::Key, Mesh*>> BulletWorld::Meshes(const Scene& scene) {
  std::vector<std::pair<Key, Mesh*>> found;
  std::vector<Mesh*> meshes;
  for (const auto& [id, object] : scene.List(kListGeometry)) {
    if (!object->Has(FLAG_ENABLED)) continue;
    meshes.clear();
    CollectMeshes(object.get(), meshes);
    for (Mesh* mesh : meshes)
      if (mesh->HasTag() && mesh->ObjectId() != 0) found.push_back({{id, mesh->ObjectId()}, mesh});
  }
  return found;
}

void BulletWorld::BeginStep(Scene&) {
  for (auto& [key, body] : mBodies) body->ClearContacts();
}

/// Where bodies that keys move stand at the end of the step.
void BulletWorld::MoveKeyed(const Scene& scene) {
  mKeyed.clear();
  for (const auto& [key, mesh] : Meshes(scene)) {
    const auto found = mBodies.find(key);
    if (found == mBodies.end() || found->second->IsDynamic()) continue;
    mesh->PrepareAhead();
    BodyPose pose;
    if (mShapes[key] != mesh->Revision() && mesh->GetBodyPose(pose)) mKeyed[key] = pose;
  }
}

void BulletWorld::Advance(Scene& scene) {
  if (!scene.mTime.IsUnderWay()) return;
  const double dt = scene.mTime.stepDuration;
  if (!mRestored.empty()) Restore(scene);
  if (mBodies.empty() || !(dt > 0)) return;
  // What the library knows of the frame before isn't kept.
  if (scene.mTime.substep <= 1) Build(scene);
  MoveKeyed(scene);
  for (const auto& [key, mesh] : Meshes(scene))
    if (const auto found = mBodies.find(key); found != mBodies.end())
      found->second->Limits().Prepare(mesh->GetObstacle(), mesh);
  std::vector<std::pair<RigidBody*, std::pair<BodyPose, BodyPose>>> movers;
  for (auto& [key, body] : mBodies) {
    body->BeginStep(dt, scene.mGravity);
    if (body->IsDynamic()) continue;
    const auto keyed = mKeyed.find(key);
    if (keyed == mKeyed.end())
      body->Halt();
    else
      movers.push_back({body.get(), {body->Pose(), keyed->second}});
  }
  if (std::exchange(mGravity, scene.mGravity) != scene.mGravity && mKnowsGravity)
    for (auto& [key, body] : mBodies) body->Disturb();
  mKnowsGravity = true;
  for (const auto& [body, way] : movers) {
    DisturbNeighbours(*body);
    body->Travel();
  }
  const i32 count = std::max(1, scene.mRigidSubsteps);
  mLibrary->Step(dt, count, Length(scene.mGravity), [&](double t) {
    for (auto& [body, way] : movers) {
      const auto& [from, to] = way;
      if (t == 1) {
        body->SetPose(to, dt / count);
        continue;
      }
      const TurnBy turn(RotationVector(from.turn, to.turn) * t);
      const Matrix& m = from.turn;
      body->SetPose(
          {from.centre + (to.centre - from.centre) * t, {{}, turn(m.v1), turn(m.v2), turn(m.v3)}},
          dt / count);
    }
  });
  NoteContacts();
  for (auto& [key, body] : mBodies) {
    body->EndStep(dt);
    body->Limits().Finish();
  }
  FreezeStray();
}

void BulletWorld::DisturbNeighbours(const RigidBody& body) {
  if (!body.Get() || !body.Get()->isInWorld()) return;
  for (const btRigidBody* near : mLibrary->Neighbours(*body.Get()))
    if (auto* other = static_cast<RigidBody*>(near->getUserPointer())) other->Disturb();
}

void BulletWorld::NoteContacts() {
  btDispatcher& dispatcher = mLibrary->Contacts();
  for (int i = 0; i < dispatcher.getNumManifolds(); ++i) {
    const btPersistentManifold& pair = *dispatcher.getManifoldByIndexInternal(i);
    auto* first = static_cast<RigidBody*>(pair.getBody0()->getUserPointer());
    auto* second = static_cast<RigidBody*>(pair.getBody1()->getUserPointer());
    if (!first || !second) continue;
    for (int k = 0; k < pair.getNumContacts(); ++k) {
      const btManifoldPoint& point = pair.getContactPoint(k);
      BodyContact contact{.persistent = point.getLifeTime() > 1,
                          .position = FromBullet(point.getPositionWorldOnA()),
                          .normal = FromBullet(point.m_normalWorldOnB),
                          .distance = point.getDistance(),
                          .lifetime = point.getLifeTime(),
                          .index = point.m_index0,
                          .part = point.m_partId0};
      first->AddContact(contact);
      contact.position = FromBullet(point.getPositionWorldOnB());
      contact.index = point.m_index1;
      contact.part = point.m_partId1;
      second->AddContact(contact);
    }
  }
}

void BulletWorld::FreezeStray() {
  for (auto& [key, body] : mBodies) {
    if (!body->IsDynamic() || body->HasLeft()) continue;
    const Vec3d at = body->Pose().centre;
    if (std::fabs(at.x) < kFarthestBody && std::fabs(at.y) < kFarthestBody &&
        std::fabs(at.z) < kFarthestBody)
      continue;
    body->Freeze();
    if (!std::isfinite(at.x + at.y + at.z)) continue;  // the record tells of that
    mWarnings.push_back(fmt::format(
        "the body \"{}\" has left the world, which ends {:.0f} m from the origin, and rests there",
        body->Name(), kFarthestBody));
  }
}

void BulletWorld::MakeBody(const Key& key, Mesh& mesh, const Scene& scene) {
  auto& body = mBodies[key];
  if (!body) body = std::make_unique<RigidBody_Variational>(*this, mesh.ObjectName());
  const auto restored = mRestored.find(key);
  const ObstacleSettings& settings = mesh.GetObstacle();
  const BodyMotion* motion = restored == mRestored.end() ? nullptr : &restored->second;
  BodyGeometry geometry{motion ? mesh.RestVertices() : mesh.mMesh.GetVertices(),
                        mesh.mMesh.GetTriangles(), !IsSheet(mesh.mMesh)};
  // What has moved once will again.
  const bool isKeyed = body->Get() && (body->IsKinematic() || mShapes[key] != mesh.Revision());
  const bool goesOn = body->Get() && mesh.HasBody();
  const Vec3d linear = body->LinearVelocity(), angular = body->AngularVelocity();
  const Vec3d centre = body->Pose().centre;
  mShapes[key] = mesh.Revision();
  mesh.SetBody(nullptr);
  if (!body->Create(geometry, settings, scene.mDomain.worldToSim.x, isKeyed, motion)) {
    if (settings.IsHeavy())
      mWarnings.push_back(fmt::format("the body \"{}\" encloses no space and stays where it is",
                                      mesh.ObjectName()));
    return;
  }
  mesh.SetBody(body.get(), motion != nullptr);
  if (motion) return void(mRestored.erase(restored));
  if (!body->IsDynamic()) return;
  const BodyPose pose = body->Pose();
  if (goesOn)  // as keys have moved it
    body->SetStart(pose, linear + Cross(angular, pose.centre - centre), angular);
  else if (const auto start = StartVelocity(mesh, pose.centre, scene))
    body->SetStart(pose, *start, {});
}

std::optional<Vec3d> BulletWorld::StartVelocity(const Mesh& mesh, const Vec3d& place,
                                                const Scene& scene) {
  const ObstacleSettings& settings = mesh.GetObstacle();
  auto* direction =
      dynamic_cast<AlignmentVector3D*>(scene.FindObject(settings.startDirection, kListAuxiliary));
  if (!direction) return {};
  // Those that share a random direction fly apart.
  u64 seed = 0;
  for (const char c : mesh.ObjectPath()) seed = MixedBits(seed + static_cast<u8>(c) + 1);
  Vec3d way{};
  direction->SetWorkerCount(1, seed);
  direction->GetDirection(way, place, 0);
  return Normalised(way) * settings.startSpeed;
}

void BulletWorld::Restore(const Scene& scene) {
  Build(scene);
  for (const auto& [key, mesh] : Meshes(scene))
    if (mRestored.contains(key)) MakeBody(key, *mesh, scene);
  mRestored.clear();
}

void BulletWorld::MeasureByCells(const Scene& scene) {
  std::vector<VolumeBase*> members;
  for (const auto& [id, object] : scene.List(kListGeometry))
    if (auto* volume = dynamic_cast<iVolume*>(object.get()); volume && volume->Has(FLAG_ENABLED))
      volume->CollectMembers(members);
  for (const VolumeBase* member : members) {
    if (!member->mDerivesMass || !member->GetMesh()) continue;
    if (auto* body = dynamic_cast<RigidBody*>(member->GetMesh()->GetBody()))
      body->SetVolume(member->VoxelVolume());
  }
}

void BulletWorld::DropBodies(const Scene& scene,
                             const std::vector<std::pair<Key, Mesh*>>& present) {
  const std::map<Key, Mesh*> kept(present.begin(), present.end());
  const bool areAll = std::all_of(mBodies.begin(), mBodies.end(),
                                  [&](const auto& body) { return kept.contains(body.first); });
  if (areAll) return;
  for (const auto& [key, body] : mBodies)
    if (!kept.contains(key)) DisturbNeighbours(*body);
  std::vector<Mesh*> meshes;
  for (const auto& [id, object] : scene.List(kListGeometry)) CollectMeshes(object.get(), meshes);
  for (const auto& [key, body] : mBodies)
    for (Mesh* mesh : meshes)
      if (!kept.contains(key) && mesh->GetBody() == body.get()) mesh->SetBody(nullptr);
  std::erase_if(mBodies, [&](const auto& body) { return !kept.contains(body.first); });
}

void BulletWorld::WarnOfTwins(const std::vector<std::pair<Key, Mesh*>>& present) {
  if (present.size() == mBodies.size()) return;  // no new ones
  std::map<host::NodeId, const Mesh*> first;
  for (const auto& [key, mesh] : present) {
    const auto [other, isFirst] = first.emplace(key.second, mesh);
    if (isFirst || !mesh->GetObstacle().IsHeavy() || !mTwins.insert(key).second) continue;
    mWarnings.push_back(
        fmt::format("\"{}\" is a body twice, of \"{}\" and of \"{}\", and the two push each "
                    "other apart; let one node read it, which others may name",
                    mesh->ObjectName(), other->second->Node()->Name(), mesh->Node()->Name()));
  }
}

/// What gets a mass later has to know by then how keys have moved it.
bool BulletWorld::MayNeedBodies(const Scene& scene) {
  bool any = false;
  if (const host::Document* document = scene.GetDocument())
    document->ForEachNode([&](const host::BaseNode& node) {
      const host::BaseNode* tag = node.Tag(host::kObstacleTag);
      any = any || (tag && obstacle_row::MayGetMass(*tag));
    });
  return any;
}

void BulletWorld::FollowVolumes(Scene& scene) {
  const auto meshes = Meshes(scene);
  const bool isNeeded = std::any_of(meshes.begin(), meshes.end(), [](const auto& entry) {
    return entry.second->GetObstacle().IsHeavy();
  });
  if (!isNeeded && mBodies.empty() && (meshes.empty() || !MayNeedBodies(scene))) return;
  if (!mLibrary || meshes.size() > mLibrary->MostBodies()) Build(scene, meshes.size());
  DropBodies(scene, meshes);
  WarnOfTwins(meshes);
  for (const auto& [key, mesh] : meshes) {
    if (!mesh->HasTriangles()) continue;
    const auto found = mBodies.find(key);
    RigidBody_Variational* body = found == mBodies.end() ? nullptr : found->second.get();
    const bool isNew = !body || (body->Get() && !mesh->HasBody());
    const bool hasMoved = !isNew && !body->IsDynamic() && mShapes[key] != mesh->Revision();
    BodyPose pose;
    if (isNew || (mesh->GetObstacle().IsHeavy() && body->Get() && !body->IsDynamic()) ||
        (hasMoved && !mesh->GetBodyPose(pose))) {
      MakeBody(key, *mesh, scene);
      continue;
    }
    mShapes[key] = mesh->Revision();
    body->Update(mesh->GetObstacle(), body->IsKinematic() || hasMoved);
  }
  if (!scene.mTime.IsUnderWay()) MeasureByCells(scene);
  for (auto& [key, body] : mBodies)
    body->Foresee(scene.mTime.IsUnderWay() ? scene.mTime.stepDuration : 0, scene.mGravity);
}

double BulletWorld::Memory() const { return static_cast<double>(mBodies.size()) * 4096; }

void BulletWorld::Persist(StateArchive& archive) {
  std::map<Key, BodyMotion> motions = mRestored;
  for (const auto& [key, body] : mBodies)
    if (body->Get()) motions[key] = body->Motion();
  archive(motions, mKnowsGravity, mGravity);
  if (!archive.IsLoading()) return;
  const Vec3d gravity = mGravity;
  const bool knows = mKnowsGravity;
  Reset();
  mGravity = gravity;
  mKnowsGravity = knows;
  mRestored = std::move(motions);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
