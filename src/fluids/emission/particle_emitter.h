// What the emitters of particles have in common.
#pragma once
#include <utility>

#include "fluids/emission/object_volume.h"
#include "fluids/emission/particle_emission_handler.h"
#include "fluids/flow/full_rooms.h"
#include "fluids/flow/ifluid_solver.h"
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
  /// It is a liquid of the particles that are made here.
  bool IsMadeOfOurs(const iFluidSolver& solver) const;
  /// Whether a liquid of these particles takes more at a point.
  bool HasRoomAt(const Vec3d& p) const {
    return std::none_of(mFull.begin(), mFull.end(),
                        [&](const FullRooms* full) { return full->Holds(p); });
  }
  /// From a share's worker: nothing is made at a point for want of room, of which the user is told.
  void NoteRefusal(const Vec3d& p, i32 share) {
    if (!mRefused[share]) mRefused[share] = p;
  }
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
  std::vector<const FullRooms*> mFull;  ///< of the liquids of its particles that are full anywhere

 private:
  void FillTemplate();
  /// The obstacle, other than its own source, in which all births of the step lie; null without.
  const VolumeBase* FindBurial() const;

  void FindFull();
  void TellRefusal();

  std::array<std::optional<Vec3d>, kShares> mRefused;  ///< the first place, by share
  bool mHasToldBurial = false, mHasToldRefusal = false;
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
