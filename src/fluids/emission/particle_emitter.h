// What the emitters of particles have in common.
#pragma once
#include <utility>

#include "fluids/emission/object_volume.h"
#include "fluids/emission/particle_emission_handler.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"
#include "framework/constraint.h"
#include "host/image.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of the emitters that make particles of one kind in a group, in stage 5.
class ParticleEmitter : public ObjectVolume {
 public:
  using ObjectVolume::ObjectVolume;
  ConstraintList* Constraints() override { return &mConstraints; }
  void CheckDirty() override;
  /// Births of several emitters stand in the order of their names, not in that of the file.
  bool Commutes() const override { return true; }
  /// Of two that fill one kind of a group, the second keeps clear of what the first has made.
  bool CommutesWith(const iBase& other) const override;
  void Reset() override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  std::vector<std::string> TakeWarnings() override { return std::exchange(mWarnings, {}); }

  static constexpr i32 kGroupRow = 1000, kKindRow = 1001;

 protected:
  /// The rows of all such emitters; those of a class have their own numbers for settings and
  /// properties.
  struct RowNumbers {
    i32 settings, properties;
  };
  static host::ParameterTable WithRows(const RowNumbers& numbers, host::ParameterTable own);

  /// Group, settings and time window of a step; false, and inactive, where one of them lets nothing
  /// come. Fills the template and the handler.
  bool PrepareEmission();
  /// Whether `births` particles have room; false, and inactive, where they haven't.
  bool HasRoom(double births);
  /// How much time its rate is taken times in a step; 0 for one that doesn't give by the second.
  virtual double TimeGiven() const { return 0; }
  /// Whether it asks how near other particles of its kind are.
  virtual bool LooksAtOthers() const = 0;
  /// Runs the enabled constraints at a point.
  bool IsAllowed(const Vec3d& p, double weight, i32 share) const;
  /// How an image is seen in this step; nothing without one.
  static std::optional<host::ImageObject::Sampler> SamplerOf(const host::ImageObject* image);

  ParticleGroup* mGroup = nullptr;
  i32 mKind = 0;
  ParticleEmissionSettings* mSettings = nullptr;
  std::vector<iProperty*> mProperties;
  host::ImageObject* mColourImage = nullptr;
  ConstraintList mConstraints;

  // Of one step.
  double mWeight = 1;  ///< of the time window
  ParticleTemplate mTemplate;
  ParticleEmissionHandler mHandler;

 private:
  void FillTemplate();
  /// The obstacle, other than its own source, in which all births of the step lie; null without.
  const VolumeBase* FindBurial() const;

  bool mHasToldBurial = false;
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
