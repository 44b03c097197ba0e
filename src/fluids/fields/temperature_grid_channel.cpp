#include "fluids/fields/temperature_grid_channel.h"

#include "fluids/fields/channel_rows.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

template <class T, class G>
TemperatureGridChannel<T, G>::TemperatureGridChannel() {
  this->mKind = 4;
  this->mValueMax = 5000;
}

template <class T, class G>
TemperatureGridChannel<T, G>::TemperatureGridChannel(BaseNode* node, Scene* scene)
    : ScalarGridChannel<T, G>(node, scene) {
  this->mKind = 4;
  this->mValueMax = 5000;
}

template <class T, class G>
const ParameterTable& TemperatureGridChannel<T, G>::Parameters() {
  static const ParameterTable table = ScalarChannelRows(5000);
  return table;
}

template class TemperatureGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
