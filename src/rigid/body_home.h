// Where bodies live.
#pragma once

class btRigidBody;

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The world as a body knows it.
class BodyHome {
 public:
  virtual ~BodyHome() = default;
  /// Into the world; a body that is there stays.
  virtual void Add(btRigidBody& body) = 0;
  virtual void Remove(btRigidBody& body) = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
