// What a projection works on.
#pragma once
#include <array>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The fields that a projection works on, for one step.
struct ProjectionFields {
  std::array<EGrid<double>*, 3> velocity{};   ///< faces, simulation units per second
  std::array<const EGrid<float>*, 3> open{};  ///< open fractions of faces
  const EGrid<float>* openCell = nullptr;     ///< open fractions of cells
  const EGrid<double>* source = nullptr;      ///< wanted divergence, cells, 1/s; may be null
  /// Cells, for the faces of each axis; null means constant density.
  std::array<const EGrid<double>*, 3> density{};
  /// A liquid's level set, cells, negative inside: cells of air have no pressure. Null for a gas.
  const EGrid<double>* surface = nullptr;
  double dt = 0;  ///< seconds
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
