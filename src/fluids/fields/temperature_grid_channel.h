// Temperature.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Temperature, up to 5000 unless told otherwise, in grids of kind 4.
template <class T, class G>
class TemperatureGridChannel : public ScalarGridChannel<T, G> {
 public:
  TemperatureGridChannel();
  TemperatureGridChannel(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
};

using TemperatureField = TemperatureGridChannel<double, EGrid<double>>;

extern template class TemperatureGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
