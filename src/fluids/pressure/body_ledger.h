// Momentum that the particles of a liquid get from bodies beside that of the pressure.
#pragma once
#include <span>
#include <vector>

#include "fluids/flow/flow.h"
#include "fluids/particles/particle_sort.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class BodyState;
class VolumeBase;

/// Keeps the momentum of a liquid and the bodies in it.
///
/// A face is as heavy as the particles about it by their weights in the transfer, m_f. Of faces
/// that a body cuts the pressure moves the open part, and closed ones take the velocity of the
/// body: what that gives to particles beyond what the pressure has taken from the body,
///   sum (m_f - open part) (u_f - what particles brought),
/// is the body's to pay, and so is what it gives to particles that touch it. Most of that is known
/// ahead and acts within the projection, as a mass that moves with the body; the rest is paid when
/// the flow has its velocity. Forces of the step aren't part of it, and nothing is paid for a
/// liquid at rest.
class BodyLedger {
 public:
  /// What has to follow a body along each axis: e n n^T summed over its faces, with e = m_f less
  /// the open part and the normal n.
  struct Follower {
    Vec3d mass{};      ///< kg
    Vec3d momentum{};  ///< that it brings, kg m/s
  };
  struct Particles {
    const ParticleSort& sort;
    double mass;  ///< of each, kg
  };
  /// A particle that touched a solid, and what that changed of its velocity.
  struct Touch {
    Vec3d place, change;
  };

  /// Opens an account for each body that the pressure moves: behind the forces, before solids take
  /// hold of the velocity of the flow, whose second buffers hold what particles brought.
  void Open(const Particles& particles, Flow& flow, double density);
  void Close() { mAccounts.clear(); }
  bool IsEmpty() const { return mAccounts.empty(); }
  /// Of the body in a volume; null without an account.
  const Follower* Find(const VolumeBase* volume) const;
  /// Books what the particles are about to take from the flow.
  void BookFlow(const Flow& flow);
  void BookTouches(std::span<const Touch> touches, const Flow& flow);
  /// The bodies pay; closes the accounts.
  void Pay(double dt);

 private:
  struct Face {
    i32 axis, index;
    double mass;
    VecInt3D at;
  };
  struct Account {
    const VolumeBase* volume;
    BodyState* body;
    Follower follower{};
    std::vector<Face> faces{};
    Vec3d owed{};  ///< kg m/s
  };
  void OpenFaces(Account& account, const Particles& particles, Flow& flow) const;
  /// What the pressure moves of a face, kg.
  double OpenPart(const Flow& flow, i32 axis, const VecInt3D& face) const;

  std::vector<Account> mAccounts;
  double mFull = 0;          ///< kg in a cell full of liquid
  double mParticleMass = 0;  ///< kg
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
