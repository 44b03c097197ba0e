// Forces on rigid bodies.
#pragma once
#include <vector>

#include "fluids/forces/force.h"
#include "fluids/mesh/mesh.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Lets forces that act on fluids push rigid bodies too, over the next step of their world.
///
/// What a force gives a fluid is a change of velocity, whatever its density; a body gets that times
/// its mass: as a whole at its centre of mass, or in equal parts at all of its vertices or at the
/// cells of its surface, where it may turn it.
class Bullet_VelocityEmitter : public iObject {
 public:
  Bullet_VelocityEmitter() = default;
  Bullet_VelocityEmitter(host::BaseNode* node, Scene* scene) : iObject(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  void CheckDirty() override;
  void ClearLinks() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  enum Mode : i32 { kCentre = 0, kVertices = 1, kSurface = 2 };
  /// The members whose meshes forces move, each mesh once.
  std::vector<VolumeBase*> Bodies() const;
  void PushAt(const std::vector<Vec3d>& places, BodyState& body) const;
  /// What all forces give at a place over the step, simulation units per second.
  Vec3d ChangeAt(const Vec3d& place) const;

  std::vector<iVolume*> mVolumes;
  std::vector<Force*> mForces;
  i32 mMode = kCentre;
  i32 mExcludes = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
