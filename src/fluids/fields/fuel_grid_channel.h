// Fuel, and plain scalars.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Fuel of a combustion, in grids of kind 5. A plain scalar channel is one too: its node doesn't
/// set the ignition, which only combustion reads.
template <class T, class G>
class FuelGridChannel : public ScalarGridChannel<T, G> {
 public:
  FuelGridChannel();
  FuelGridChannel(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  /// Rows of a plain scalar: without the ignition.
  static const NodeKind& ScalarKind();
  static const host::ParameterTable& ScalarParameters();
  bool ReadParameters() override;

  double mIgnition = 600;  ///< temperature at which the fuel burns
};

using FuelField = FuelGridChannel<double, EGrid<double>>;

extern template class FuelGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
