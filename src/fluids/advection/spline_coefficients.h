// Coefficients of a B-spline through samples.
#pragma once
#include "grids/grid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sets `coefficients`, of the shape of `samples`, so that the quadratic B-spline of them passes
/// through the samples (Unser, Aldroubi, Eden, "B-spline signal processing", 1993). Beyond the grid
/// the outermost coefficients go on, as `SAMPLE_BSPLINE` reads them.
void FindSplineCoefficients(const Grid<double>& samples, i32 threads, Grid<double>& coefficients);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
