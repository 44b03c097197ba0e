// The world of rigid bodies of a scene.
#pragma once
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/scene.h"
#include "framework/scene_part.h"
#include "rigid/body_home.h"
#include "rigid/rigid_body_variational.h"

class btRigidBody;

namespace MELDO_GLOBAL::MELDO_SULVA {

class BulletLibrary;
class iBase;
class Mesh;

/// Owns a body for each mesh with an obstacle tag, as soon as one of them has a mass, and steps
/// them ahead of the meshes. Without a mass nothing of it exists.
///
/// What the library keeps from step to step beside places and velocities, which is contacts with
/// what was found of them, the order of pairs and the seed of its solver, starts anew with every
/// frame, so that a run that goes on from a checkpoint ends at the same bits.
class BulletWorld : public ScenePart, public BodyHome {
 public:
  BulletWorld();
  ~BulletWorld() override;

  void BeginStep(Scene& scene) override;
  void Advance(Scene& scene) override;
  void FollowVolumes(Scene& scene) override;
  void Reset() override;
  void Persist(StateArchive& archive) override;
  double Memory() const override;

  void Add(btRigidBody& body) override;
  void Remove(btRigidBody& body) override;

  std::vector<std::string> TakeWarnings() override { return std::exchange(mWarnings, {}); }

 private:
  /// By the node of the mesh, then by the object that it reads.
  using Key = std::pair<host::NodeId, host::NodeId>;

  static std::vector<std::pair<Key, Mesh*>> Meshes(const Scene& scene);
  /// Removes the bodies of meshes that aren't there any more or have lost their tag.
  void DropBodies(const Scene& scene, const std::vector<std::pair<Key, Mesh*>>& present);
  /// Warns of objects that two nodes read: they have two bodies in one place.
  void WarnOfTwins(const std::vector<std::pair<Key, Mesh*>>& present);
  /// Sets the library up anew, with the bodies that there are and room for `bodies`.
  void Build(const Scene& scene, std::size_t bodies = 0);
  void Restore(const Scene& scene);
  void MakeBody(const Key& key, Mesh& mesh, const Scene& scene);
  /// How fast the new body of a mesh, at `place`, flies off, m/s; nothing without a direction.
  static std::optional<Vec3d> StartVelocity(const Mesh& mesh, const Vec3d& place,
                                            const Scene& scene);
  /// Before the first step: bodies whose volumes say so weigh by cells.
  void MeasureByCells(const Scene& scene);
  static bool MayNeedBodies(const Scene& scene);
  void MoveKeyed(const Scene& scene);
  /// What a body holds is about to lose its hold.
  void DisturbNeighbours(const RigidBody& body);
  void NoteContacts();
  void FreezeStray();

  std::unique_ptr<BulletLibrary> mLibrary;
  std::map<Key, std::unique_ptr<RigidBody_Variational>> mBodies;
  std::map<Key, BodyMotion> mRestored;  ///< of bodies that aren't made yet
  std::map<Key, BodyPose> mKeyed;       ///< where bodies that keys move go in this step
  std::map<Key, u32> mShapes;           ///< of meshes without a mass, the revision of their shape
  std::set<Key> mTwins;                 ///< of objects with another body, which was told
  Vec3d mGravity{};                     ///< of the last step
  bool mKnowsGravity = false;           ///< there was one
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
