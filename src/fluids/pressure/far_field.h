// What lies beyond the sides of a projection's grid.
#pragma once
#include <span>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

struct ProjectionFields;

/// The outermost cells at one side of a grid.
struct SideLayer {
  i32 axis = 0;
  bool high = false;
  /// By cell of the whole layer, that of the lower one of the other two axes counting fastest.
  std::vector<double> pressure;
};

/// Knows the pressure beyond the sides of a grid that end in the open.
class FarField {
 public:
  virtual ~FarField() = default;
  /// The pressures of the outermost layers at such sides. `rhs` holds, by cell, what the pressure
  /// of the grid has to bring about, 1/s. The layers last until the next call.
  virtual std::span<const SideLayer> FindPressures(const ProjectionFields& fields,
                                                   std::span<const double> rhs) = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
