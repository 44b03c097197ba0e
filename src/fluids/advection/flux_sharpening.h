// Takes back what sharing by trilinear weights blurs.
#pragma once
#include <memory>
#include <span>

#include "fluids/advection/contribution.h"
#include "fluids/advection/volume_evening.h"
#include "fluids/flow/thin_faces.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Linear weights at a fraction f between two cells spread what is moved by a variance of f (1 - f)
/// cells squared, as a diffusion of half that a step does. The same flux backwards, in each axis
/// and limited as by Zalesak ("Fully multidimensional flux-corrected transport algorithms for
/// fluids", 1979), makes the step one of second order. It passes from cell to cell, so that no
/// content is made or lost and none gets past a solid: beside solids and sides, where weights lack
/// a corner, there is none.
class FluxSharpening {
 public:
  /// False without memory.
  bool Fit(const VecInt3D& dims);
  void Release();
  /// Before a step: the extremes of what a unit of volume holds, over the cells that each asks.
  /// `source` holds the content above `nothing`.
  void FindLimits(const BlockColumns& blocks, const double* source, double nothing,
                  const double* volume, i32 threads);
  /// After it, in place; `moves` isn't 0 in cells that take part, and nothing passes `closed`.
  void Run(const BlockColumns& blocks, const u8* moves, const Carried& field,
           std::span<const ThinFaces::Face> closed, i32 threads);

 private:
  void FindSpreads(const BlockColumns& blocks, const u8* moves, const Carried& field, i32 threads);
  void FindFluxes(const double* volume, i32 threads);
  void CloseFluxes(std::span<const ThinFaces::Face> closed);
  void FindRoom(const Carried& field, i32 threads);
  void Pass(double* content, i32 threads);
  template <class F>
  void ForEachRow(i32 threads, F&& f) const;

  VecInt3D mDims{};
  i32 mSlice = 0;
  std::unique_ptr<Grid<double>> mStrength;      ///< what a unit of volume holds
  std::unique_ptr<Grid<double>> mLeast, mMost;  ///< limits of that; later shares of the fluxes out
                                                ///< of a cell and into it that they allow
  std::unique_ptr<Grid<f32>> mSpread[3];        ///< by axis: a quarter of the variance
  std::unique_ptr<Grid<f32>> mFlux[3];          ///< into the next cell along the axis
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
