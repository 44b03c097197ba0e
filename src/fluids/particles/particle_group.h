// The node that owns particles.
#pragma once
#include "fluids/particles/particle_set.h"
#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A group of particles of up to four kinds. Emitters fill it, what moves particles moves them; at
/// the end of each step the dead leave.
class ParticleGroup : public iBase, public ParticleSet {
 public:
  static constexpr i32 kNodeType = 1300036;
  ParticleGroup() = default;
  ParticleGroup(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();

  bool ResetsOnChange() const override;
  void Reset() override;
  void Release(bool full) override;
  void CheckDirty() override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  /// Removes the dead, ends births and renews the bounds.
  void CommitStep() override;
  void UpdateRange() override;
  void Persist(StateArchive& archive) override;

 private:
  bool KeepsOrder(i32 kind) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
