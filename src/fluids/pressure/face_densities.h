// The densities of a mixture beside solids.
#pragma once
#include <memory>

#include "fluids/flow/cut_cells.h"
#include "fluids/pressure/projection_fields.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The densities from which the faces of a projection take theirs.
///
/// A cell in a solid holds nothing, and has open faces nevertheless: for the faces of an axis it
/// counts as `CutCells` continues what is beside it along the layers across that axis. Nothing
/// depends on the number of workers.
class FaceDensities {
 public:
  /// Sets the densities of `fields`, whose open fractions are there, from those of the cells of a
  /// flow; closed cells that no open one is connected with count as the mean of all open ones.
  void Find(const EGrid<double>& mixture, const Flow& flow, ProjectionFields& fields);
  void Release() { mAlong = {}; }

 private:
  double MeanOf(const EGrid<double>& mixture, const Flow& flow) const;

  std::array<std::unique_ptr<EGrid<double>>, 3> mAlong;
  CutCells mCut;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
