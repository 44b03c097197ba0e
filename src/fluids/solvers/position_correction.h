// What keeps the particles of a liquid evenly dense.
#pragma once
#include "fluids/flow/even_density.h"
#include "fluids/flow/grid_extrapolation.h"
#include "fluids/pressure/grid_incompressibility_free_surface.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Moves particles apart where they crowd and together where they leave gaps, and lets their
/// velocity alone: by a flow of its own that a second projection makes of nothing but the source of
/// `EvenDensity` (Kugelstadt, Longva, Thuerey and Bender 2019).
class PositionCorrection {
 public:
  PositionCorrection(Scene* scene, Flow& flow);
  /// Moves particles that are sorted over the cells of the flow, no farther than `kMost` cells and
  /// not into solids, and none in cells that are even. Takes the flow's second buffers, and leaves
  /// its velocity as it was.
  void Run(const ParticleSort& sort, Flow& flow, i32 rounds);
  void Reset() { mProjection.Reset(); }
  void Release(bool full);

  EvenDensity mSource;
  Grid_Incompressibility& Projection() { return mProjection; }

  static constexpr double kMost = 0.25;

 private:
  /// Solids don't push, nothing lets go of them, and no sealed room warns: nothing flows here.
  class OwnProjection : public Grid_Incompressibility_FreeSurface {
   protected:
    void GatherSolids(std::vector<MovingBody>& /*moving*/,
                      std::vector<const VolumeBase*>& /*resting*/) const override {}
    void CheckRegions() override {}
    void Settle() override {}
  };
  void Move(const ParticleSort& sort, const Flow& flow) const;

  OwnProjection mProjection;
  GridExtrapolation mExtrapolation;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
