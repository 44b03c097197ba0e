// The library of rigid bodies, set up for a world.
#pragma once
#include <BulletDynamics/Dynamics/btDiscreteDynamicsWorld.h>

#include <memory>

#include "host/types.h"

class btDefaultCollisionConfiguration;
class btCollisionDispatcher;
class btSequentialImpulseConstraintSolver;

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The end of the world: simulation units from the origin.
constexpr double kFarthestBody = 1e4;

/// A world of the library with all that it needs. Its steps are cut here: it would count them by
/// adding up rounded times.
class BulletLibrary {
 public:
  /// `broadphase`: a tree of boxes (0), or boxes sorted along the axes, of up to 16384 bodies (1)
  /// or more (2).
  BulletLibrary(i32 broadphase, i32 iterations);
  ~BulletLibrary();
  BulletLibrary(const BulletLibrary&) = delete;
  BulletLibrary& operator=(const BulletLibrary&) = delete;

  /// Steps by `dt` seconds in `count` equal parts; `moveKeyed` is told how much of `dt` is over at
  /// the end of each part, before it.
  template <class F>
  void Step(double dt, i32 count, F&& moveKeyed) {
    for (i32 i = 0; i < count; ++i) {
      moveKeyed((i + 1.0) / count);
      mWorld->Part(dt / count);
    }
    mWorld->clearForces();
  }
  void Add(btRigidBody& body) { mWorld->addRigidBody(&body); }
  void Remove(btRigidBody& body) { mWorld->removeRigidBody(&body); }
  /// Bodies that are taken out one by one would look through all pairs for theirs.
  void DropPairs();
  btDispatcher& Contacts();

 private:
  struct World : btDiscreteDynamicsWorld {
    using btDiscreteDynamicsWorld::btDiscreteDynamicsWorld;
    void Part(double dt) { internalSingleStepSimulation(dt); }
  };
  std::unique_ptr<btDefaultCollisionConfiguration> mConfiguration;
  std::unique_ptr<btCollisionDispatcher> mDispatcher;
  std::unique_ptr<btBroadphaseInterface> mPairs;
  std::unique_ptr<btSequentialImpulseConstraintSolver> mSolver;
  std::unique_ptr<World> mWorld;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
