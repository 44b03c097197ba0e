// The projection of a liquid, whose surface is free.
#pragma once
#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/pressure/seepage.h"
#include "fluids/pressure/wall_release.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes the velocity of a liquid divergence-free inside of the flow's surface, on which the
/// pressure is 0: at the place between two cells where the level set is 0, by ghost values (Gibou,
/// Fedkiw, Cheng and Kang 2002; Enright, Nguyen, Gibou and Fedkiw 2003). Liquid that meets no air
/// keeps its volume as a gas in a sealed room does.
class Grid_Incompressibility_FreeSurface : public Grid_Incompressibility {
 public:
  Grid_Incompressibility_FreeSurface() { mMatter = "liquid"; }
  void BuildSystem(const CellBox& block) override;
  void SubtractGradient(const CellBox& block) override;
  /// Gives the surface back what the last projection changed of it: where the liquid has let go of
  /// walls, and gaps that it filled. To be called before the next one.
  void RestoreSurface();
  /// The parts of the liquid that the last projection found.
  const ClosedRegions& Regions() const { return mRegions; }

 protected:
  /// False without a surface of the flow's cells too.
  bool GatherFields(ProjectionFields& fields) override;
  bool PrepareSystem() override;
  void Settle() override;
  /// What particles that crowd ask for in a sealed room is evened out, and no one's concern.
  bool IsConcern(const Region& region) const override;

 private:
  WallRelease mRelease;
  FilledGaps mGaps;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
