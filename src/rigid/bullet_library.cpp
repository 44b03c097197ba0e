#include "rigid/bullet_library.h"

#include <BulletCollision/BroadphaseCollision/btAxisSweep3.h>
#include <BulletCollision/BroadphaseCollision/btDbvtBroadphase.h>
#include <BulletCollision/CollisionDispatch/btCollisionDispatcher.h>
#include <BulletCollision/CollisionDispatch/btDefaultCollisionConfiguration.h>
#include <BulletCollision/CollisionDispatch/btManifoldResult.h>
#include <BulletCollision/Gimpact/btGImpactCollisionAlgorithm.h>
#include <BulletDynamics/ConstraintSolver/btSequentialImpulseConstraintSolver.h>

#include <algorithm>
#include <cmath>

#include "rigid/rigid_body.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Simulation units by which what rests overlaps: contacts that are found anew in each frame are
// those of all corners then, and nothing rocks.
constexpr double kOverlap = 1e-4;

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
    if (object->isStaticOrKinematicObject()) continue;
    btVector3 centre;
    btScalar size;
    object->getCollisionShape()->getBoundingSphere(centre, size);
    radius = std::min<double>(radius, size);
  }
  if (radius == HUGE_VAL) return 0;
  return one->Settings().rollingFriction * other->Settings().rollingFriction * radius;
}

double NoFriction(const btCollisionObject*, const btCollisionObject*) { return 0; }

}  // namespace

BulletLibrary::BulletLibrary(i32 broadphase, i32 iterations) {
  btDefaultCollisionConstructionInfo sizes;
  sizes.m_defaultMaxPersistentManifoldPoolSize = 4096;
  sizes.m_defaultMaxCollisionAlgorithmPoolSize = 4096;
  sizes.m_useEpaPenetrationAlgorithm = true;
  mConfiguration = std::make_unique<btDefaultCollisionConfiguration>(sizes);
  mDispatcher = std::make_unique<btCollisionDispatcher>(mConfiguration.get());
  const btVector3 far(kFarthestBody, kFarthestBody, kFarthestBody);
  if (broadphase == 0)
    mPairs = std::make_unique<btDbvtBroadphase>();
  else if (broadphase == 1)
    mPairs = std::make_unique<btAxisSweep3>(-far, far, 16384);
  else
    mPairs = std::make_unique<bt32BitAxisSweep3>(-far, far, 65536);
  mSolver = std::make_unique<btSequentialImpulseConstraintSolver>();
  mWorld =
      std::make_unique<World>(mDispatcher.get(), mPairs.get(), mSolver.get(), mConfiguration.get());
  btGImpactCollisionAlgorithm::registerAlgorithm(mDispatcher.get());
  // Process-wide, and without any state.
  gCalculateCombinedFrictionCallback = Friction;
  gCalculateCombinedRollingFrictionCallback = RollingFriction;
  gCalculateCombinedSpinningFrictionCallback = NoFriction;
  btContactSolverInfo& info = mWorld->getSolverInfo();
  info.m_solverMode |= SOLVER_SIMD | SOLVER_RANDMIZE_ORDER;
  info.m_numIterations = iterations;
  info.m_splitImpulse = true;
  info.m_linearSlop = kOverlap;
  info.m_splitImpulsePenetrationThreshold = -0.02;
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

btDispatcher& BulletLibrary::Contacts() { return *mDispatcher; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
