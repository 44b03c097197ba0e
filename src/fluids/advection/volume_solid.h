// Volumes as solids for particles.
#pragma once
#include <optional>

#include "fluids/advection/particle_contact.h"
#include "fluids/advection/solid_motion.h"
#include "fluids/advection/swept_surface.h"
#include "fluids/volume/sharp_surface.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One volume as a solid for particles. Positions are in simulation units.
///
/// A stiff solid that moves is looked at from itself: a leg is carried to where it would be if it
/// had gone with the solid up to the end of the step, whose distances are known. The corners of one
/// that deforms, and of a sheet, which has no inside, are followed through the step.
class VolumeSolid {
 public:
  explicit VolumeSolid(const VolumeBase& volume);
  VolumeSolid(const VolumeBase& volume, const SolidMotion& motion);
  bool IsEmpty() const { return !mVolume->HasGridData() || (mVolume->IsSheet() && !mSwept); }
  /// In this step it moves.
  bool Moves() const { return mTravel > 0; }
  /// The distances at the nodes of a flow don't tell of it.
  bool IsSheet() const { return mVolume->IsSheet(); }
  bool HasThinParts() const { return mSharp.has_value(); }
  /// Whether a way through the step may come near it.
  bool MayMeet(const Leg& leg) const;
  /// Finds where a leg meets it. A place in the solid is never a contact as long as the leg begins
  /// outside.
  bool Meet(const Leg& leg, const Touch& touch, ParticleContact& contact) const;

  /// Whether a place is so far off it that its thin parts don't count there.
  bool IsFarFrom(const Vec3d& p) const {
    return !mVolume->IsInBounds(p) || IsBeyondThin(mVolume->DistanceAtWorld(p));
  }
  const VolumeBase& Volume() const { return *mVolume; }
  SolidDistance At(const Vec3d& p) const;
  Vec3d NormalAt(const Vec3d& p, const SolidDistance& at) const;
  double CellSize() const { return mVolume->GetGrid()->mLayout.cellSize; }

 private:
  bool IsBeyondThin(double distance) const { return distance > 2 * CellSize(); }
  void Sweep(const Mesh& mesh);
  void MeetSkin(const Vec3d& from, const Vec3d& to, const Touch& touch,
                ParticleContact& contact) const;
  bool MeetSwept(const Leg& leg, const Touch& touch, ParticleContact& contact) const;
  bool MeetAtRest(const Vec3d& from, const Vec3d& to, const Touch& touch,
                  ParticleContact& contact) const;

  const VolumeBase* mVolume;
  SolidMotion mMotion;
  double mTravel = 0;                  ///< the longest way of its points in the step
  std::optional<SharpSurface> mSharp;  ///< of a volume with parts that are thinner than two cells
  std::optional<SweptSurface> mSwept;  ///< of one that deforms, or is a sheet
  std::optional<SweptSurface> mSkin;   ///< triangles of one with thin parts, as they are at the end
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
