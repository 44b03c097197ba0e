// Curvature of a level set.
#pragma once
#include "grids/egrid.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the curvature of the surfaces of equal distance through each sample. A sphere of radius
/// r (negative inside) has 2 / r by the modes `kMean` and `kNormals`, the sum of its two principal
/// curvatures, and 1 / r^2 by `kGaussian`; where the field is flat the curvature is 0. All
/// differences are central, of second order (decision 34).
///
/// Goldman, "Curvature formulas for implicit curves and surfaces" (2005), eq. 4.1 and 4.2.
class CurvatureGrid {
 public:
  enum Mode : i32 {
    kMean = 0,
    kGaussian = 1,
    kNormals = 2,  ///< divergence of the unit normals at the six faces of a cell
  };

  /// Fills the inner samples of `mCurvature`, or those of them that lie in `box`; the others keep
  /// what they hold. False without grids of one shape, or where nothing lies inside.
  bool Run(const CellBox* box = nullptr, host::HostThread* thread = nullptr) const;

  Mode mMode = kMean;
  const EGrid<double>* mLevelSet = nullptr;
  EGrid<double>* mCurvature = nullptr;  ///< 1 / simulation unit, limited to its range if it has one
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
