// The densities of a mixture beside solids.
#pragma once
#include <memory>
#include <vector>

#include "fluids/flow/flow.h"
#include "fluids/pressure/projection_fields.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The densities from which the faces of a projection take theirs.
///
/// A cell whose centre lies in a solid holds nothing, and has open faces nevertheless. What it
/// counts as for the faces of an axis is the mean of the cells that open faces lead to in its layer
/// across that axis, from cell to cell, and where none does, of those above and below. So all faces
/// of a layer get the same density where its open cells have the same: layers of a heavy gas under
/// a light one rest on whatever stands in them. Nothing depends on the number of workers.
class FaceDensities {
 public:
  /// Sets the densities of `fields`, whose open fractions are there, from those of the cells of a
  /// flow; closed cells that no open one is connected with count as the mean of all open ones.
  void Find(const EGrid<double>& mixture, const Flow& flow, ProjectionFields& fields);
  void Release() { mAlong = {}; }

 private:
  void ListClosed(const Flow& flow, const ProjectionFields& fields);
  double MeanOf(const EGrid<double>& mixture, const Flow& flow) const;
  void Continue(i32 axis, double mean, const ProjectionFields& fields,
                EGrid<double>& density) const;

  std::array<std::unique_ptr<EGrid<double>>, 3> mAlong;
  std::vector<VecInt3D> mCut;  ///< closed cells with open faces
  std::vector<i32> mShut;      ///< those without
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
