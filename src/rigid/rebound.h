// How bodies bounce off each other.
#pragma once
#include <LinearMath/btVector3.h>

#include <vector>

class btDispatcher;
class btManifoldPoint;
class btPersistentManifold;
class btRigidBody;
template <typename T>
class btAlignedObjectArray;

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Restitution, in a pass of its own after the library has solved a step without any.
///
/// A contact that closes within the step at the speed w leaves at e w (Newton), where w is the
/// speed at which the bodies touch: w^2 = w0^2 - 2 a d from the gap d, the speed w0 before the step
/// and the acceleration a along the normal. What it has left at the end of the step, where the gap
/// is h, is u with u^2 = (e w)^2 + 2 a h: heights that a body rises to don't depend on the step.
/// Impulses by Gauss-Seidel over the contacts, with Coulomb's cone for their friction.
class Rebound {
 public:
  /// Before the library solves the step of `dt` seconds; what rests may overlap by `overlap`.
  void Note(btDispatcher& dispatcher, const btAlignedObjectArray<btRigidBody*>& bodies, double dt,
            double overlap);
  /// After it has: changes velocities.
  void Solve();
  /// What is left of an overlap that a bounce would carry on with, for the place of body `i` of the
  /// list, after it has moved.
  const btVector3& Shift(int i) const { return mMotions[static_cast<std::size_t>(i)].shift; }
  /// Whether nothing but its forces has changed the velocity of body `i`.
  bool IsFree(int i) const;
  /// Of its forces alone.
  const btVector3& Acceleration(int i) const {
    return mMotions[static_cast<std::size_t>(i)].acceleration;
  }

 private:
  struct Motion {
    btRigidBody* body;
    btVector3 linear, angular;  ///< before the step
    btVector3 acceleration;
    btVector3 shift;
    bool isTouched;  ///< this pass has changed its velocity
  };
  /// Along one direction at a contact.
  struct Row {
    btVector3 direction, armA, armB;  ///< r x direction
    btVector3 turnA, turnB;           ///< what an impulse of 1 changes of the spin
    double response;                  ///< m/s by an impulse of 1
    double impulse = 0;
  };
  struct Contact {
    btManifoldPoint* point;
    Motion *a, *b;  ///< null where nothing can push it
    btRigidBody *bodyA, *bodyB;
    double speed;    ///< at which the gap grows, before the step
    double pull;     ///< its acceleration
    double gap;      ///< before the step
    double least;    ///< speed after the step
    double rebound;  ///< the speed when it leaves; 0 where it doesn't bounce
    Row* rows;       ///< normal, tangents; null until something pushes here
  };

  Motion* MotionOf(const btRigidBody& body);
  void NotePoint(btPersistentManifold& pair, btManifoldPoint& point);
  void SetRow(const Contact& contact, const btVector3& direction, Row& row) const;
  void Aim(Contact& contact, Row* rows) const;
  static double Speed(const Contact& contact, const Row& row);
  static void Push(Contact& contact, const Row& row, double impulse);
  /// How much it changed, m/s.
  static double Relax(Contact& contact);
  void PushOut(Contact& contact) const;

  std::vector<Motion> mMotions;
  std::vector<Contact> mContacts;
  std::vector<Row> mRows;
  double mStep = 0, mOverlap = 0;
  bool mBounces = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
