// What is known between projections of the fluid that a lattice binds to bodies.
#pragma once
#include <map>
#include <vector>

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;
class VolumeBase;
struct MovingBody;

/// The velocities of layers of fluid that move with bodies.
///
/// A layer goes on as the last projection left its body. The faces beside it don't tell that: what
/// stands a cell off flows otherwise, and a body that took its velocity from there would be driven
/// on or braked by each projection, whether anything moved or not. Until the next projection
/// forces change a layer as they change the open faces beside the body, in the mean.
class BodyLayers {
 public:
  /// Round the forces of a step, which change the velocity of the flow.
  void OpenForces(const Flow& flow);
  void CloseForces(const Flow& flow);
  /// What they changed beside a body, simulation units per second; 0 where nothing is known.
  Vec3d ForcedChange(const MovingBody& body) const;

  /// A projection begins: what isn't kept by it is forgotten.
  void Begin();
  /// The velocity behind the last projection that kept one; null for a body that is new to the
  /// fluid.
  const Vec3d* Find(const MovingBody& body) const;
  void Keep(const MovingBody& body, const Vec3d& velocity);

  void Clear();
  void Persist(StateArchive& archive);

 private:
  /// The open faces of an axis beside a body's, and the sum of what they gained.
  struct Beside {
    std::vector<i32> faces;
    double gained = 0;
  };
  struct Account {
    const VolumeBase* volume;
    Beside beside[3]{};
    Vec3d change{};
  };

  std::vector<Account> mAccounts;       ///< within a step
  std::map<u64, Vec3d> mBefore, mKept;  ///< by the object of the body
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
