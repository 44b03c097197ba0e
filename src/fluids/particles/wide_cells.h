// The level set of a liquid with few particles in a cell.
#pragma once
#include "fluids/particles/smooth_surface.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Finds the surface of a liquid on cells twice as wide, by `SmoothSurface`, and brings it to the
/// cells of a grid by linear interpolation. With one particle in a cell those have eight, and
/// chance tears nothing. Where a closed layer bounds the grid on its low side, the wide cells begin
/// with it as their upper half; elsewhere they begin at even cells of the world. Keeps its memory
/// from run to run.
class WideCells {
 public:
  /// Fills `phi` from particles sorted by its cells; `rest` of them fill one. `open` are the open
  /// fractions of these cells; null where all is open. Tells crowds as `SmoothSurface` does, each
  /// cell that of the wide one that it is in. False without memory. Runs on all workers, with one
  /// result for any number.
  bool Run(const ParticleSort& sort, const EGrid<float>* open, EGrid<double>& phi, double rest,
           const SmoothSurface::Crowd& crowd);
  /// By how much cells of films hold more than their particles, in full cells of `phi`.
  double Surplus() const { return mSurplus; }

 private:
  /// Lays the wide cells over those of `phi`; false without memory.
  bool Fit(const GridLayout& fine);
  void MeasureOpen();
  void BringBack(EGrid<double>& phi) const;
  /// What the cells of `phi` tell of wide ones that count whole, less the particles of those.
  double FindSurplus(const SmoothSurface& surface, const EGrid<double>& phi, double rest) const;
  VecInt3D WideOf(const VecInt3D& cell) const {
    return {(cell.x + mFirst.x) / 2, (cell.y + mFirst.y) / 2, (cell.z + mFirst.z) / 2};
  }

  const EGrid<float>* mOpen = nullptr;
  VecInt3D mFirst{};  ///< 1 along axes on which the first cell is the upper half of a wide one
  ParticleSort mSort;
  std::unique_ptr<EGrid<float>> mWideOpen;
  std::unique_ptr<EGrid<double>> mWidePhi, mExcess;
  double mSurplus = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
