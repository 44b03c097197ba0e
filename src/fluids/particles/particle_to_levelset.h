// The level set of a liquid, from its particles.
#pragma once
#include "fluids/particles/wide_cells.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What of a liquid's particles tells where it is.
enum class SurfaceMode : i32 {
  Count = 0,    ///< cells that hold some
  Density = 1,  ///< cells where they are dense
  Smooth = 2,   ///< the space that they fill, by `SmoothSurface`
};

/// Makes a level set (simulation units, negative inside) of a liquid's particles. A liquid solver
/// embeds one.
///
/// By count, a cell with more than `mCountThreshold` particles lies inside: the outermost ones get
/// minus half a cell, the rest the distance to them. By density, each cell gets the density that
/// its particles lack, which is no distance. In both, surface cells inside solids count as liquid
/// at the end, so that the surface doesn't pull away from walls.
class ParticleToLevelset {
 public:
  static constexpr double kFar = 1e308;  ///< where no distance reaches

  /// What is solid about the particles; each may be missing.
  struct Solids {
    const EGrid<double>* levelSet = nullptr;  ///< at the nodes of the cells
    const EGrid<float>* open = nullptr;       ///< open fractions of the cells
  };
  /// Fills `phi` from particles that are sorted by the same cells. False without grids of these
  /// shapes or without memory. Runs on all workers, with one result for any number.
  bool Run(const ParticleSort& sort, const Solids& solids, EGrid<double>& phi,
           host::HostThread* thread = nullptr);

  SurfaceMode mMode = SurfaceMode::Count;
  /// Particles that fill a cell; a smooth surface finds them anew when it is 0.
  double mRest = 0;
  i64 mRestCells = 0;                ///< that told it in the last run
  SmoothSurface::Crowd mCrowd;       ///< where a smooth surface tells crowds of them
  std::unique_ptr<EvenCells> mEven;  ///< of a smooth surface in the last run, or null
  double mSurplus = 0;               ///< full cells that the last run told more than particles fill
  double mDensityThreshold = 0.2;    ///< per an eighth of a cell
  u8 mCountThreshold = 4;            ///< cells with more than so many particles lie inside
  /// Distances as they are along every direction (`EikonalSweeper`), instead of counted in steps to
  /// neighbours (`FastSweeper`); a smooth surface has none elsewhere than near it without them.
  bool mTrueDistances = false;

 private:
  void FillByDensity(const ParticleSort& sort, EGrid<double>& phi) const;
  bool FillByCount(const ParticleSort& sort, EGrid<double>& phi, host::HostThread* thread) const;
  double SurplusByCount(const ParticleSort& sort, const EGrid<float>* open,
                        const EGrid<double>& phi) const;
  bool IsInside(const ParticleSort& sort, const VecInt3D& cell) const;
  void EnterSolids(const EGrid<double>& solid, EGrid<double>& phi) const;

  WideCells mWide;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
