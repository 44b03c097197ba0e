// A volume that particles fill.
#pragma once
#include <optional>

#include "fluids/volume/sharp_surface.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A volume with its surface between the nodes of its grid, where that is known: distances at nodes
/// cut the edges of a box off. Good for a step.
class FilledVolume {
 public:
  /// With `isExact` the triangles tell what lies in cells that the surface passes.
  FilledVolume(VolumeBase& volume, bool isExact)
      : mVolume(&volume), mOutline(isExact ? volume.GetOutline() : std::nullopt) {
    if (mOutline) mOutline->LinkTriangles();
  }
  VolumeBase* Volume() const { return mVolume; }
  const EGrid<double>& Grid() const { return *mVolume->GetGrid(); }
  Vec3d Middle() const { return (mVolume->mBoxMin + mVolume->mBoxMax) * 0.5; }
  /// Simulation units, negative inside; a place on the surface itself isn't.
  double DistanceAt(const Vec3d& p) const;

 private:
  VolumeBase* mVolume;
  std::optional<SharpSurface> mOutline;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
