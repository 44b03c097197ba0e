// Fuel.
#pragma once
#include "fluids/fields/plain_grid_channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Fuel of a combustion, which asks for its ignition.
template <class T, class G>
class FuelGridChannel : public PlainGridChannel<T, G> {
 public:
  using PlainGridChannel<T, G>::PlainGridChannel;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();

  double mIgnition = 600;  ///< temperature at which the fuel burns
};

using FuelField = FuelGridChannel<double, EGrid<double>>;

extern template class FuelGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
