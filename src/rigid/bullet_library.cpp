#include "rigid/bullet_library.h"

#include <BulletCollision/BroadphaseCollision/btAxisSweep3.h>
#include <BulletCollision/BroadphaseCollision/btDbvtBroadphase.h>
#include <BulletCollision/CollisionDispatch/btCollisionDispatcher.h>
#include <BulletCollision/CollisionDispatch/btDefaultCollisionConfiguration.h>
#include <BulletCollision/CollisionDispatch/btManifoldResult.h>
#include <BulletCollision/Gimpact/btGImpactCollisionAlgorithm.h>
#include <BulletDynamics/ConstraintSolver/btSequentialImpulseConstraintSolver.h>
#include <BulletDynamics/Dynamics/btDiscreteDynamicsWorld.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "rigid/bullet_frame.h"
#include "rigid/free_turn.h"
#include "rigid/rebound.h"
#include "rigid/rigid_body.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Simulation units by which what rests overlaps: contacts that are found anew in each frame are
// those of all corners then, and nothing rocks.
constexpr double kOverlap = 1e-4;
constexpr double kDeep = 1e-3;  // simulation units: an overlap that isn't one of things at rest
constexpr std::size_t kFewBodies = 16384, kManyBodies = 65536;  // that sweeps have room for
constexpr double kNear = 0.01;  // simulation units from each other: bodies that may touch

const RigidBody* BodyOf(const btCollisionObject& object) {
  return static_cast<const RigidBody*>(object.getUserPointer());
}

double Friction(const btCollisionObject* a, const btCollisionObject* b) {
  return a->getFriction() * b->getFriction();
}

/// How far off its point of contact a body that rolls is held: the coefficients times the radius of
/// the smaller of the two bodies that move.
double RollingFriction(const btCollisionObject* a, const btCollisionObject* b) {
  const RigidBody *one = BodyOf(*a), *other = BodyOf(*b);
  if (!one || !other) return 0;
  double radius = HUGE_VAL;
  for (const btCollisionObject* object : {a, b}) {
    if (!object->isStaticOrKinematicObject()) radius = std::min(radius, BodyOf(*object)->Radius());
  }
  if (radius == HUGE_VAL) return 0;
  return one->Settings().rollingFriction * other->Settings().rollingFriction * radius;
}

/// What the limits of two bodies leave of their friction at a contact. The library asks for
/// friction by bodies alone, when a contact comes up.
void LimitFriction(btPersistentManifold& pair) {
  const RigidBody *a = BodyOf(*pair.getBody0()), *b = BodyOf(*pair.getBody1());
  if (!a || !b) return;
  const auto isLimited = [&](BodyLimits::Limit limit) {
    return a->Limits().Has(limit) || b->Limits().Has(limit);
  };
  const bool slides = isLimited(BodyLimits::kFriction);
  const bool rolls = isLimited(BodyLimits::kRollingFriction);
  for (int k = 0; (slides || rolls) && k < pair.getNumContacts(); ++k) {
    btManifoldPoint& point = pair.getContactPoint(k);
    const Vec3d place = FromBullet(point.getPositionWorldOnB());
    const auto factor = [&](BodyLimits::Limit limit) {
      return a->Limits().Factor(limit, place) * b->Limits().Factor(limit, place);
    };
    if (slides)
      point.m_combinedFriction =
          Friction(pair.getBody0(), pair.getBody1()) * factor(BodyLimits::kFriction);
    if (rolls)
      point.m_combinedRollingFriction = point.m_combinedSpinningFriction =
          RollingFriction(pair.getBody0(), pair.getBody1()) * factor(BodyLimits::kRollingFriction);
  }
}

/// Bodies bounce in `Rebound`.
double NoRestitution(const btCollisionObject*, const btCollisionObject*) { return 0; }

struct NearBodies : btBroadphaseAabbCallback {
  std::vector<btRigidBody*> found;
  bool process(const btBroadphaseProxy* proxy) override {
    auto* object = static_cast<btCollisionObject*>(proxy->m_clientObject);
    if (btRigidBody* body = btRigidBody::upcast(object)) found.push_back(body);
    return true;
  }
};

}  // namespace

/// What the library steps, with what is ours between its parts.
class BulletLibrary::World : public btDiscreteDynamicsWorld {
 public:
  using btDiscreteDynamicsWorld::btDiscreteDynamicsWorld;
  void Part(double dt) { internalSingleStepSimulation(dt); }

 protected:
  void solveConstraints(btContactSolverInfo& info) override;
  void integrateTransforms(btScalar dt) override;

 private:
  void PutBackToSleep();

  Rebound mRebound;
  std::vector<btRigidBody*> mSleepers;  ///< that wait for something to touch them, or don't wake
};

void BulletLibrary::World::solveConstraints(btContactSolverInfo& info) {
  mSleepers.clear();
  for (int i = 0; i < m_nonStaticRigidBodies.size(); ++i) {
    const RigidBody* body = BodyOf(*m_nonStaticRigidBodies[i]);
    if (body && ((body->Waits() && body->AwaitsTouch()) || (body->IsFrozen() && body->IsAsleep())))
      mSleepers.push_back(m_nonStaticRigidBodies[i]);
  }
  for (int i = 0; i < getDispatcher()->getNumManifolds(); ++i)
    LimitFriction(*getDispatcher()->getManifoldByIndexInternal(i));
  mRebound.Note(*getDispatcher(), m_nonStaticRigidBodies, info.m_timeStep, info.m_linearSlop);
  btDiscreteDynamicsWorld::solveConstraints(info);
  mRebound.Solve();
  if (!mSleepers.empty()) PutBackToSleep();
}

/// The library wakes what is merely near.
void BulletLibrary::World::PutBackToSleep() {
  std::erase_if(mSleepers, [&](const btRigidBody* sleeper) {
    if (!sleeper->isActive() || BodyOf(*sleeper)->IsFrozen()) return false;
    for (int i = 0; i < getDispatcher()->getNumManifolds(); ++i) {
      const btPersistentManifold& pair = *getDispatcher()->getManifoldByIndexInternal(i);
      if (pair.getBody0() != sleeper && pair.getBody1() != sleeper) continue;
      for (int k = 0; k < pair.getNumContacts(); ++k)
        if (pair.getContactPoint(k).getDistance() <= 0) return true;
    }
    return false;
  });
  for (btRigidBody* sleeper : mSleepers) {
    sleeper->setLinearVelocity({0, 0, 0});
    sleeper->setAngularVelocity({0, 0, 0});
    sleeper->forceActivationState(ISLAND_SLEEPING);
  }
}

void BulletLibrary::World::integrateTransforms(btScalar dt) {
  std::vector<btQuaternion> turns;
  for (int i = 0; i < m_nonStaticRigidBodies.size(); ++i)
    turns.push_back(m_nonStaticRigidBodies[i]->getWorldTransform().getRotation());
  btDiscreteDynamicsWorld::integrateTransforms(dt);
  for (int i = 0; i < m_nonStaticRigidBodies.size(); ++i) {
    btRigidBody& body = *m_nonStaticRigidBodies[i];
    if (body.isStaticOrKinematicObject() || !body.isActive()) continue;
    btTransform place = body.getWorldTransform();
    btVector3 shift = mRebound.Shift(i), spin = body.getAngularVelocity();
    // The library moves bodies at the velocity that they have at the end of the step, which brings
    // one that falls freely ahead.
    if (mRebound.IsFree(i)) shift -= mRebound.Acceleration(i) * (0.5 * dt * dt);
    place.setOrigin(place.getOrigin() + shift);
    const btVector3& inverse = body.getInvInertiaDiagLocal();
    const bool isHeld = body.getAngularFactor() != btVector3(1, 1, 1);
    if (!isHeld && inverse.x() > 0 && inverse.y() > 0 && inverse.z() > 0 && !spin.isZero()) {
      btQuaternion turn = turns[static_cast<std::size_t>(i)];
      TurnFreely({1 / inverse.x(), 1 / inverse.y(), 1 / inverse.z()}, dt, turn, spin);
      place.setRotation(turn);
      body.setAngularVelocity(spin);
    }
    body.setCenterOfMassTransform(place);
  }
}

BulletLibrary::BulletLibrary(i32 broadphase, i32 iterations, std::size_t bodies)
    : mMostBodies(std::numeric_limits<int>::max()) {
  btDefaultCollisionConstructionInfo sizes;
  sizes.m_defaultMaxPersistentManifoldPoolSize = 4096;
  sizes.m_defaultMaxCollisionAlgorithmPoolSize = 4096;
  sizes.m_useEpaPenetrationAlgorithm = true;
  mConfiguration = std::make_unique<btDefaultCollisionConfiguration>(sizes);
  mDispatcher = std::make_unique<btCollisionDispatcher>(mConfiguration.get());
  const btVector3 far(kFarthestBody, kFarthestBody, kFarthestBody);
  // A sweep that is full writes past its end.
  if (broadphase == 0) {
    mPairs = std::make_unique<btDbvtBroadphase>();
  } else if (broadphase == 1 && bodies <= kFewBodies) {
    mMostBodies = kFewBodies;
    mPairs = std::make_unique<btAxisSweep3>(-far, far, kFewBodies);
  } else {
    mMostBodies = std::max(2 * bodies, kManyBodies);
    mPairs = std::make_unique<bt32BitAxisSweep3>(-far, far, static_cast<unsigned>(mMostBodies));
  }
  mSolver = std::make_unique<btSequentialImpulseConstraintSolver>();
  mWorld =
      std::make_unique<World>(mDispatcher.get(), mPairs.get(), mSolver.get(), mConfiguration.get());
  btGImpactCollisionAlgorithm::registerAlgorithm(mDispatcher.get());
  // Process-wide, and without any state.
  gCalculateCombinedFrictionCallback = Friction;
  gCalculateCombinedRollingFrictionCallback = RollingFriction;
  gCalculateCombinedSpinningFrictionCallback = RollingFriction;
  gCalculateCombinedRestitutionCallback = NoRestitution;
  btContactSolverInfo& info = mWorld->getSolverInfo();
  info.m_solverMode |= SOLVER_SIMD | SOLVER_RANDMIZE_ORDER;
  info.m_numIterations = iterations;
  info.m_splitImpulse = true;
  info.m_linearSlop = kOverlap;
  info.m_splitImpulseTurnErp = 0.1;
  btDispatcherInfo& dispatch = mWorld->getDispatchInfo();
  dispatch.m_useContinuous = true;
  dispatch.m_allowedCcdPenetration = 0.04;
}

BulletLibrary::~BulletLibrary() = default;

void BulletLibrary::DropPairs() {
  btOverlappingPairCache& cache = *mPairs->getOverlappingPairCache();
  while (cache.getNumOverlappingPairs() > 0) {
    const btBroadphasePair& last =
        cache.getOverlappingPairArrayPtr()[cache.getNumOverlappingPairs() - 1];
    cache.removeOverlappingPair(last.m_pProxy0, last.m_pProxy1, mDispatcher.get());
  }
}

/// Overlaps are pushed out without a speed, which would make bodies bounce, but for those that take
/// no more than gravity gives in a step: stacks lean where these are.
void BulletLibrary::BearOverlaps(double pull, double dt) {
  btContactSolverInfo& info = mWorld->getSolverInfo();
  info.m_splitImpulsePenetrationThreshold = -std::min(kDeep, pull * dt * dt / info.m_erp);
}

void BulletLibrary::Add(btRigidBody& body) { mWorld->addRigidBody(&body); }

void BulletLibrary::Remove(btRigidBody& body) { mWorld->removeRigidBody(&body); }

void BulletLibrary::Part(double dt) { mWorld->Part(dt); }

void BulletLibrary::ClearForces() { mWorld->clearForces(); }

std::vector<btRigidBody*> BulletLibrary::Neighbours(const btRigidBody& body) const {
  btVector3 low, high;
  body.getAabb(low, high);
  const btVector3 reach(kNear, kNear, kNear);
  NearBodies near;
  mPairs->aabbTest(low - reach, high + reach, near);
  std::erase(near.found, &body);
  return near.found;
}

btDispatcher& BulletLibrary::Contacts() { return *mDispatcher; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
