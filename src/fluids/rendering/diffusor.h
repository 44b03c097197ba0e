// A blur of grids that keeps constants.
#pragma once
#include <vector>

#include "grids/grid.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Convolves a grid with a separable Gaussian, an axis at a time, on the workers.
class Diffusor {
 public:
  /// Blurs `grid` in place, `iterations` times, with the weights exp(-k^2 / strength^2) for offsets
  /// |k| up to the whole part of 3 * strength. `strength` is in cells. Samples outside the grid
  /// don't count: the weights inside are scaled up. `scratch` has the shape of `grid` and is
  /// overwritten; without its data nothing happens. The same bytes for every number of workers.
  void Blur(Grid<double>& grid, Grid<double>& scratch, double strength, i32 iterations);
  /// The same with a scratch grid of its own.
  void Blur(Grid<double>& grid, double strength, i32 iterations);

 private:
  /// One axis pass over a z layer.
  void FilterLayer(i32 z) const;
  void FilterRow(const double* source, double* target) const;
  void MixRows(const double* source, double* target, i32 position, i32 step) const;

  std::vector<double> mWeights;  ///< 2 * mRadius + 1, of sum 1
  i32 mRadius = 0;
  std::vector<double> mScale[3];  ///< per axis and position: 1 / sum of the weights inside
  VecInt3D mDims{};
  i32 mAxis = 0;
  const Grid<double>* mSource = nullptr;
  Grid<double>* mTarget = nullptr;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
