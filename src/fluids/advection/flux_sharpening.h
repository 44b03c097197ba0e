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
  /// Before a step: what a unit of volume holds in `n` cells from `c` on, of `content` above
  /// `nothing`.
  void FindStrengths(const double* content, const double* volume, double nothing, i32 c, i32 n);
  /// Then the extremes of that over the cells that each of them asks, and what the weights spread;
  /// `moves` isn't 0 in cells that take part.
  void FindLimits(const BlockColumns& blocks, const u8* moves, i32 c, i32 n);
  /// After it, in place; nothing passes `closed`.
  void Run(const RowRuns& rows, const Carried& field, std::span<const ThinFaces::Face> closed,
           i32 threads);
  /// `n` cells from `c` on aren't active any more.
  void Leave(i32 c, i32 n);

 private:
  void WidenLimits(const Carried& field);
  void FindFluxes(const double* volume);
  void CloseFluxes(std::span<const ThinFaces::Face> closed);
  void FindRoom(const Carried& field);
  void Pass(double* content);
  template <class F>
  void ForEachRow(F&& f) const;

  VecInt3D mDims{};
  i32 mSlice = 0, mThreads = 1;
  const RowRuns* mRows = nullptr;
  std::unique_ptr<Grid<double>> mStrength;      ///< what a unit of volume holds
  std::unique_ptr<Grid<double>> mLeast, mMost;  ///< limits of that; later shares of the fluxes out
                                                ///< of a cell and into it that they allow
  std::unique_ptr<Grid<f32>> mSpread[3];        ///< by axis: a quarter of the variance
  std::unique_ptr<Grid<f32>> mFlux[3];          ///< into the next cell along the axis
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
