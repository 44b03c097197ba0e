// Tells gaps from creases.
#pragma once
#include <optional>

#include "fluids/flow/solid_surfaces.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A look at a place where two sides of solids face each other. In a crease they meet: following it
/// to where it gets narrower ends at nothing. A gap stays open there, or its sides run side by
/// side.
class GapProbe {
 public:
  struct Gap {
    Vec3d at;                 ///< midway between the sides
    double width;             ///< simulation units
    i32 one, other;           ///< the solids of its sides, as `SolidSurfaces` counts them
    Vec3d normal;             ///< of the first side
    bool isParallel = false;  ///< its sides run side by side
  };

  GapProbe(const SolidSurfaces& solids, double cell) : mSolids(solids), mCell(cell) {}

  /// The narrowest place of the gap at `p`, or nothing for a crease, less than three cells from the
  /// end of a gap, for one that ends at solids all round, and where there is none.
  std::optional<Gap> Look(const Vec3d& p) const;

 private:
  struct Across {
    Gap gap;
    Vec3d opening;  ///< sum of the normals of the two sides: points to where the gap gets wider
  };
  std::optional<Across> Measure(Vec3d p) const;
  std::optional<Gap> Narrowest(const Vec3d& p) const;
  bool GoesOn(const Gap& gap) const;
  bool EndsNearby(const Gap& gap) const;
  bool LeadsOut(const Gap& gap) const;

  const SolidSurfaces& mSolids;
  double mCell;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
