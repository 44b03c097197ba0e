// Values beyond the cells and faces where they are known.
#pragma once
#include <array>
#include <memory>

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Fills samples that have no valid value with the mean of their valid neighbours, a layer a round;
/// the outermost layer isn't touched. Keeps its grids of flags from run to run.
class GridExtrapolation {
 public:
  /// Continues the velocity from the open faces (in a liquid: from those at its cells) into closed
  /// ones, in a gas no deeper than two cells into a solid. With `byChange` a face that had a
  /// velocity before, by the flow's second buffers, gets the change of its neighbours on top of it:
  /// what the surface of a liquid carries of its own isn't smoothed away.
  void ExtendVelocity(Flow& flow, i32 rounds, bool byChange = false);
  /// Continues a field from the samples above `initial` into the others.
  void ExtendField(EGrid<double>& field, double initial, i32 rounds, i32 threads);
  void Release();

 private:
  /// The flags of a grid: what is valid now, and what was before the round.
  struct Flags {
    std::unique_ptr<Grid<u8>> valid, known;
    bool Fit(const EGrid<double>& target);
  };
  /// Solids below which nothing is filled; null fills everything.
  void Extend(EGrid<double>& grid, Flags& flags, const EGrid<double>* solids, const double* before,
              i32 rounds, i32 threads) const;

  std::array<Flags, 3> mFaces;
  Flags mField;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
