// The projection of a liquid, whose surface is free.
#pragma once
#include "fluids/pressure/grid_incompressibility.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes the velocity of a liquid divergence-free inside of the flow's surface, on which the
/// pressure is 0: at the place between two cells where the level set is 0, by ghost values (Gibou,
/// Fedkiw, Cheng and Kang 2002; Enright, Nguyen, Gibou and Fedkiw 2003). Liquid that meets no air,
/// such as what fills a box to the brim or is trapped below an obstacle, is a closed region.
class Grid_Incompressibility_FreeSurface : public Grid_Incompressibility {
 public:
  Grid_Incompressibility_FreeSurface() { mMatter = "liquid"; }
  void BuildSystem(const CellBox& block) override;
  void SubtractGradient(const CellBox& block) override;

 protected:
  /// False without a surface of the flow's cells too.
  bool GatherFields(ProjectionFields& fields) override;
  bool PrepareSystem() override;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
