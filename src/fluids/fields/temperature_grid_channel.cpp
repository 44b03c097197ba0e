#include "fluids/fields/temperature_grid_channel.h"

#include "framework/node_kind.h"

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
const NodeKind& TemperatureGridChannel<T, G>::Kind() {
  static const NodeKind kind = {
      .id = 1300112,
      .type = "channel_temp",
      .label = "Temperature",
      .className = "TemperatureGridChannel",
      .typeId = kTypeTemperatureChannel,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryScalar,
      .flags = "RA",
      .menu = {"Grids"},
      .purpose = "a field of heat, in kelvin above the still air",
      .example =
          {{},
           {R"({ "type": "channel_temp", "name": "heat", "parameters": { "value_max": 1000 } })",
            R"({ "type": "force_buoyancy", "name": "lift", "parameters": { "temperature_channel": "heat" } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["lift"] } })"}},
      .rows = Parameters,
      .make = MakeNode<TemperatureGridChannel>,
  };
  return kind;
}

template <class T, class G>
const ParameterTable& TemperatureGridChannel<T, G>::Parameters() {
  static const ParameterTable table = ScalarGridChannel<T, G>::Rows(5000);
  return table;
}

template class TemperatureGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
