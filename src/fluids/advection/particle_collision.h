// Where particles stop: walls, obstacles and volumes.
#pragma once
#include <vector>

#include "fluids/flow/grid_boundary.h"
#include "fluids/volume/sharp_surface.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How far a place is from a solid, negative in it, simulation units.
struct SolidDistance {
  double distance = 0;
  Vec3d thinNormal{};  ///< of a part nearby that is too thin for distances at nodes; zero for none
  bool isOfThin = false;  ///< that part is the nearest
};

/// One volume as a solid for particles. Positions are in simulation units.
class VolumeSolid {
 public:
  explicit VolumeSolid(const VolumeBase& volume);
  bool IsEmpty() const { return !mVolume->HasGridData() || mVolume->IsSheet(); }
  /// Whether a way may meet it.
  bool MayMeet(const Vec3d& from, const Vec3d& to) const;
  SolidDistance At(const Vec3d& p) const;
  Vec3d NormalAt(const Vec3d& p, const SolidDistance& at) const;
  double CellSize() const { return mVolume->GetGrid()->mLayout.cellSize; }
  const VolumeBase& Volume() const { return *mVolume; }

 private:
  const VolumeBase* mVolume;
  std::optional<SharpSurface> mSharp;  ///< of a volume with parts that are thinner than two cells
};

/// The walls of a flow and the obstacles in it as one solid. Positions are in simulation units.
class FlowSolid {
 public:
  explicit FlowSolid(const GridBoundary& boundary);
  bool IsEmpty() const { return !mBoundary->GetLevelSet() || !mBoundary->GetLevelSet()->mData; }
  bool MayMeet(const Vec3d&, const Vec3d&) const { return true; }
  SolidDistance At(const Vec3d& p) const;
  Vec3d NormalAt(const Vec3d& p, const SolidDistance& at) const;
  double CellSize() const { return mBoundary->GetLevelSet()->mLayout.cellSize; }
  const GridBoundary& Boundary() const { return *mBoundary; }

 private:
  const GridBoundary* mBoundary;
  std::vector<VolumeSolid> mThin;  ///< obstacles that the level set shows only in part
};

/// Whether a straight way comes nearer to the solid than `radius` at its end, or passes through the
/// solid before it; then `contact` lies `radius` off the surface, on the side that the way came
/// from, and its depth is the distance at the end less `radius`. A place in the solid is never a
/// contact as long as the way begins outside.
bool StopAt(const FlowSolid& solid, const Vec3d& from, const Vec3d& to, f32 radius,
            SolidContact& contact);
bool StopAt(const VolumeSolid& solid, const Vec3d& from, const Vec3d& to, f32 radius,
            SolidContact& contact);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
