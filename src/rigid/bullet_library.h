// The library of rigid bodies, set up for a world.
#pragma once
#include <cstddef>
#include <memory>
#include <vector>

#include "host/types.h"

class btBroadphaseInterface;
class btCollisionDispatcher;
class btDefaultCollisionConfiguration;
class btDispatcher;
class btRigidBody;
class btSequentialImpulseConstraintSolver;

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The end of the world: simulation units from the origin.
constexpr double kFarthestBody = 1e4;

/// A world of the library with all that it needs. Its steps are cut here: it would count them by
/// adding up rounded times. How bodies bounce and turn is ours.
class BulletLibrary {
 public:
  /// `broadphase`: a tree of boxes (0), or boxes sorted along the axes, of up to 16384 bodies (1)
  /// or more (2), which is also taken where it has to hold as many as `bodies`.
  BulletLibrary(i32 broadphase, i32 iterations, std::size_t bodies);
  /// As many can be added.
  std::size_t MostBodies() const { return mMostBodies; }
  ~BulletLibrary();
  BulletLibrary(const BulletLibrary&) = delete;
  BulletLibrary& operator=(const BulletLibrary&) = delete;

  /// Steps by `dt` seconds in `count` equal parts under a gravity of `pull` m/s^2; `moveKeyed` is
  /// told how much of `dt` is over at the end of each part, before it.
  template <class F>
  void Step(double dt, i32 count, double pull, F&& moveKeyed) {
    BearOverlaps(pull, dt / count);
    for (i32 i = 0; i < count; ++i) {
      moveKeyed((i + 1.0) / count);
      Part(dt / count);
    }
    ClearForces();
  }
  void Add(btRigidBody& body);
  void Remove(btRigidBody& body);
  /// The other bodies that a body touches, or nearly.
  std::vector<btRigidBody*> Neighbours(const btRigidBody& body) const;
  /// Bodies that are taken out one by one would look through all pairs for theirs.
  void DropPairs();
  btDispatcher& Contacts();

 private:
  class World;
  void Part(double dt);
  void ClearForces();
  void BearOverlaps(double pull, double dt);

  std::size_t mMostBodies;
  std::unique_ptr<btDefaultCollisionConfiguration> mConfiguration;
  std::unique_ptr<btCollisionDispatcher> mDispatcher;
  std::unique_ptr<btBroadphaseInterface> mPairs;
  std::unique_ptr<btSequentialImpulseConstraintSolver> mSolver;
  std::unique_ptr<World> mWorld;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
