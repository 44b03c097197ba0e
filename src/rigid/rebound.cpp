#include "rigid/rebound.h"

#include <BulletCollision/BroadphaseCollision/btDispatcher.h>
#include <BulletCollision/NarrowPhaseCollision/btPersistentManifold.h>
#include <BulletDynamics/Dynamics/btRigidBody.h>

#include <algorithm>
#include <cmath>

#include "rigid/bullet_frame.h"
#include "rigid/rigid_body.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kCalmSteps = 2;    // slower than gravity makes it in so many steps: no bounce
constexpr int kMostPasses = 50;     // over the contacts
constexpr double kAccuracy = 1e-7;  // m/s
constexpr double kFalling = 1e-2;   // of what forces change: less from elsewhere isn't a contact

btVector3 VelocityAt(const btRigidBody& body, const btVector3& arm) {
  return body.getLinearVelocity() + body.getAngularVelocity().cross(arm);
}

/// The gap of a contact as its bodies stand now.
double GapNow(const btRigidBody& a, const btRigidBody& b, const btManifoldPoint& point) {
  const btVector3 on = a.getWorldTransform() * point.m_localPointA;
  return (on - b.getWorldTransform() * point.m_localPointB).dot(point.m_normalWorldOnB);
}

btVector3 InverseMass(const btRigidBody& body) {
  return body.getLinearFactor() * body.getInvMass();
}

}  // namespace

Rebound::Motion* Rebound::MotionOf(const btRigidBody& body) {
  const int index = body.getUserIndex();
  if (index < 0 || body.isStaticOrKinematicObject()) return nullptr;
  return &mMotions[static_cast<std::size_t>(index)];
}

void Rebound::Note(btDispatcher& dispatcher, const btAlignedObjectArray<btRigidBody*>& bodies,
                   double dt, double overlap) {
  mStep = dt;
  mOverlap = overlap;
  mBounces = false;
  mContacts.clear();
  mMotions.clear();
  for (int i = 0; i < bodies.size(); ++i) {
    btRigidBody& body = *bodies[i];
    body.setUserIndex(i);
    mMotions.push_back({&body,
                        body.getLinearVelocity(),
                        body.getAngularVelocity(),
                        body.getTotalForce() * body.getInvMass(),
                        {0, 0, 0},
                        false});
  }
  for (int i = 0; i < dispatcher.getNumManifolds(); ++i) {
    btPersistentManifold& pair = *dispatcher.getManifoldByIndexInternal(i);
    if (!pair.getBody0()->hasContactResponse() || !pair.getBody1()->hasContactResponse()) continue;
    for (int k = 0; k < pair.getNumContacts(); ++k) NotePoint(pair, pair.getContactPoint(k));
  }
}

void Rebound::NotePoint(btPersistentManifold& pair, btManifoldPoint& point) {
  Contact contact{};
  contact.bodyA = const_cast<btRigidBody*>(btRigidBody::upcast(pair.getBody0()));
  contact.bodyB = const_cast<btRigidBody*>(btRigidBody::upcast(pair.getBody1()));
  if (!contact.bodyA || !contact.bodyB) return;
  contact.a = MotionOf(*contact.bodyA);
  contact.b = MotionOf(*contact.bodyB);
  if (!contact.a && !contact.b) return;
  const btRigidBody &a = *contact.bodyA, &b = *contact.bodyB;
  const btVector3& n = point.m_normalWorldOnB;
  const btVector3 atA = VelocityAt(a, point.m_positionWorldOnA - a.getCenterOfMassPosition());
  const btVector3 atB = VelocityAt(b, point.m_positionWorldOnB - b.getCenterOfMassPosition());
  const btVector3 zero(0, 0, 0);
  const btVector3 &pullA = contact.a ? contact.a->acceleration : zero,
                  &pullB = contact.b ? contact.b->acceleration : zero;
  contact.point = &point;
  contact.speed = n.dot(atA - atB);
  contact.pull = n.dot(pullA - pullB);
  // What keys move stands where it will at the end of the step.
  contact.gap =
      point.getDistance() + n.dot((contact.b ? zero : atB) - (contact.a ? zero : atA)) * mStep;
  double e = a.getRestitution() * b.getRestitution();
  const Vec3d place = FromBullet(point.getPositionWorldOnB());
  for (const btRigidBody* body : {&a, &b})
    if (const auto* limited = static_cast<const RigidBody*>(body->getUserPointer()))
      e *= limited->Limits().Factor(BodyLimits::kRestitution, place);
  if (e > 0 && contact.speed < 0) {
    const double free = contact.gap + (contact.speed + 0.5 * contact.pull * mStep) * mStep;
    const double held = point.getDistance() + mOverlap +
                        (contact.speed + contact.pull * mStep) * mStep;  // as the library sees it
    const double squared = contact.speed * contact.speed - 2 * contact.pull * contact.gap;
    const double calm = kCalmSteps * mStep * std::max(pullA.length(), pullB.length());
    if (std::min(free, held) <= 0 && squared > calm * calm)
      contact.rebound = e * std::sqrt(squared);
  }
  mBounces = mBounces || contact.rebound > 0;
  mContacts.push_back(contact);
}

void Rebound::SetRow(const Contact& contact, const btVector3& direction, Row& row) const {
  const btManifoldPoint& point = *contact.point;
  const btRigidBody &a = *contact.bodyA, &b = *contact.bodyB;
  row.direction = direction;
  row.armA = (point.m_positionWorldOnA - a.getCenterOfMassPosition()).cross(direction);
  row.armB = (point.m_positionWorldOnB - b.getCenterOfMassPosition()).cross(direction);
  row.response = row.impulse = 0;
  if (contact.a) {
    row.turnA = a.getInvInertiaTensorWorld() * row.armA * a.getAngularFactor();
    row.response += direction.dot(direction * InverseMass(a)) + row.armA.dot(row.turnA);
  }
  if (contact.b) {
    row.turnB = b.getInvInertiaTensorWorld() * row.armB * b.getAngularFactor();
    row.response += direction.dot(direction * InverseMass(b)) + row.armB.dot(row.turnB);
  }
}

/// At which speed it has to part at least.
void Rebound::Aim(Contact& contact, Row* rows) const {
  // The library has pushed overlaps out meanwhile.
  const double gap = contact.gap + GapNow(*contact.bodyA, *contact.bodyB, *contact.point) -
                     contact.point->getDistance();
  if (contact.rebound > 0) {
    const double change = contact.pull * mStep, u = contact.rebound;
    const double square = change * change + u * u + 2 * contact.pull * gap;
    contact.least = gap + u * mStep < 0 || square < 0 ? u : change + std::sqrt(square);
  } else {
    contact.least = -std::max(0.0, contact.point->getDistance() + mOverlap) / mStep;
  }
  contact.rows = rows;
  btVector3 one, other;
  const btVector3& normal = contact.point->m_normalWorldOnB;
  btPlaneSpace1(normal, one, other);
  SetRow(contact, normal, rows[0]);
  SetRow(contact, one, rows[1]);
  SetRow(contact, other, rows[2]);
  contact.gap = gap;
}

double Rebound::Speed(const Contact& contact, const Row& row) {
  const btRigidBody &a = *contact.bodyA, &b = *contact.bodyB;
  return row.direction.dot(a.getLinearVelocity() - b.getLinearVelocity()) +
         row.armA.dot(a.getAngularVelocity()) - row.armB.dot(b.getAngularVelocity());
}

void Rebound::Push(Contact& contact, const Row& row, double impulse) {
  const auto push = [&](Motion& motion, const btVector3& turn, double strength) {
    btRigidBody& body = *motion.body;
    body.setLinearVelocity(body.getLinearVelocity() + row.direction * InverseMass(body) * strength);
    body.setAngularVelocity(body.getAngularVelocity() + turn * strength);
    motion.isTouched = true;
  };
  if (contact.a) push(*contact.a, row.turnA, impulse);
  if (contact.b) push(*contact.b, row.turnB, -impulse);
}

double Rebound::Relax(Contact& contact) {
  Row& normal = contact.rows[0];
  if (!(normal.response > 0)) return 0;
  const double missing = contact.least - Speed(contact, normal);
  const double sum = std::max(0.0, normal.impulse + missing / normal.response);
  const double push = sum - normal.impulse;
  normal.impulse = sum;
  if (push != 0) Push(contact, normal, push);
  const double most = contact.point->m_combinedFriction * sum;
  if (!(most > 0)) return std::fabs(push) * normal.response;
  double wanted[2];
  for (int k = 0; k < 2; ++k) {
    const Row& row = contact.rows[k + 1];
    wanted[k] = row.response > 0 ? row.impulse - Speed(contact, row) / row.response : 0;
  }
  const double length = std::hypot(wanted[0], wanted[1]);
  const double share = length > most ? most / length : 1;
  for (int k = 0; k < 2; ++k) {
    Row& row = contact.rows[k + 1];
    Push(contact, row, wanted[k] * share - row.impulse);
    row.impulse = wanted[k] * share;
  }
  return std::fabs(push) * normal.response;
}

void Rebound::PushOut(Contact& contact) const {
  const btVector3& n = contact.rows[0].direction;
  const btVector3 none(0, 0, 0);
  const double gap =
      contact.gap + contact.least * mStep +
      n.dot((contact.a ? contact.a->shift : none) - (contact.b ? contact.b->shift : none));
  const btVector3 a = contact.a ? n * InverseMass(*contact.bodyA) : none;
  const btVector3 b = contact.b ? n * InverseMass(*contact.bodyB) : none;
  const double response = n.dot(a + b);
  if (gap >= 0 || !(response > 0)) return;
  if (contact.a) contact.a->shift -= a * (gap / response);
  if (contact.b) contact.b->shift += b * (gap / response);
}

void Rebound::Solve() {
  if (!mBounces) return;
  mRows.resize(3 * mContacts.size());
  for (int round = 0; round < kMostPasses; ++round) {
    double most = 0;
    for (std::size_t i = 0; i < mContacts.size(); ++i) {
      Contact& contact = mContacts[i];
      if (!(contact.rebound > 0) && !(contact.a && contact.a->isTouched) &&
          !(contact.b && contact.b->isTouched))
        continue;
      if (!contact.rows) Aim(contact, &mRows[3 * i]);
      most = std::max(most, Relax(contact));
    }
    if (most <= kAccuracy) break;
  }
  for (Contact& contact : mContacts)
    if (contact.rebound > 0 && contact.rows[0].impulse > 0) PushOut(contact);
}

bool Rebound::IsFree(int i) const {
  const Motion& motion = mMotions[static_cast<std::size_t>(i)];
  const btVector3 change = motion.acceleration * mStep;
  return (motion.body->getLinearVelocity() - motion.linear - change).length() <=
         kFalling * change.length();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
