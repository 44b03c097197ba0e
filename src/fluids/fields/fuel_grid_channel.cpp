#include "fluids/fields/fuel_grid_channel.h"

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

template <class T, class G>
FuelGridChannel<T, G>::FuelGridChannel() {
  this->mKind = 5;
}

template <class T, class G>
FuelGridChannel<T, G>::FuelGridChannel(BaseNode* node, Scene* scene)
    : ScalarGridChannel<T, G>(node, scene) {
  this->mKind = 5;
}

template <class T, class G>
const NodeKind& FuelGridChannel<T, G>::Kind() {
  static const NodeKind kind = {
      .id = 1300028,
      .type = "channel_fuel",
      .label = "Fuel",
      .className = "FuelGridChannel",
      .typeId = kTypeFuelChannel,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryScalar,
      .flags = "R",
      .menu = {"Grids"},
      .purpose = "a field of what burns",
      .example =
          {{},
           {R"({ "type": "channel_fuel", "name": "fuel", "parameters": { "ignition": 500, "value_max": 3 } })",
            example::kFire, example::kHeat,
            R"({ "type": "grid_combustion_fire", "name": "burn", "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat" } })"}},
      .rows = Parameters,
      .make = MakeNode<FuelGridChannel>,
  };
  return kind;
}

template <class T, class G>
const ParameterTable& FuelGridChannel<T, G>::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = ScalarGridChannel<T, G>::Rows(1);
    rows.insert(rows.begin() + 3,
                LongRow(2000, "ignition", 600, "K",
                        "how hot fuel has to be before it catches fire; 0 burns at once")
                    .To(&FuelGridChannel::mIgnition));
    return rows;
  }();
  return table;
}

template <class T, class G>
const NodeKind& FuelGridChannel<T, G>::ScalarKind() {
  static const NodeKind kind = {
      .id = 1300027,
      .type = "channel_scalar",
      .label = "Scalar",
      .className = "FuelGridChannel",
      .typeId = kTypeFuelChannel,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryScalar,
      .flags = "R",
      .menu = {"Grids"},
      .purpose = "a field of numbers that the gas carries, such as smoke",
      .example =
          {{},
           {R"({ "type": "channel_scalar", "name": "smoke", "parameters": { "value_max": 2 } })",
            R"({ "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } })",
            example::kGas}},
      .rows = ScalarParameters,
      .make = MakeNode<FuelGridChannel>,
  };
  return kind;
}

template <class T, class G>
const ParameterTable& FuelGridChannel<T, G>::ScalarParameters() {
  static const ParameterTable table = ScalarGridChannel<T, G>::Rows(1);
  return table;
}

template <class T, class G>
bool FuelGridChannel<T, G>::ReadParameters() {
  if (!ScalarGridChannel<T, G>::ReadParameters()) return false;
  return true;
}

template class FuelGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
