#include "fluids/fields/fuel_grid_channel.h"

#include "fluids/fields/field_rows.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

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
      .flags = "RA",
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
    ParameterTable rows = PlainGridChannel<T, G>::Parameters();
    rows.insert(rows.begin() + 3,
                LongRow(field_row::kFuelIgnition, "ignition", 600, "K",
                        "how hot fuel has to be before it catches fire; 0 burns at once")
                    .To(&FuelGridChannel::mIgnition));
    return rows;
  }();
  return table;
}

template class FuelGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
