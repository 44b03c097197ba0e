#include "fluids/fields/plain_grid_channel.h"

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

template <class T, class G>
PlainGridChannel<T, G>::PlainGridChannel() {
  this->mKind = 5;
}

template <class T, class G>
PlainGridChannel<T, G>::PlainGridChannel(BaseNode* node, Scene* scene)
    : ScalarGridChannel<T, G>(node, scene) {
  this->mKind = 5;
}

template <class T, class G>
const NodeKind& PlainGridChannel<T, G>::Kind() {
  static const NodeKind kind = {
      .id = 1300027,
      .type = "channel_scalar",
      .label = "Scalar",
      .className = "PlainGridChannel",
      .typeId = kTypeFuelChannel,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryScalar,
      .flags = "RA",
      .menu = {"Grids"},
      .purpose = "a field of numbers that the gas carries, such as smoke",
      .example =
          {{},
           {R"({ "type": "channel_scalar", "name": "smoke", "parameters": { "value_max": 2 } })",
            R"({ "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } })",
            example::kGas}},
      .rows = Parameters,
      .make = MakeNode<PlainGridChannel>,
  };
  return kind;
}

template <class T, class G>
const ParameterTable& PlainGridChannel<T, G>::Parameters() {
  static const ParameterTable table = ScalarGridChannel<T, G>::Rows(1);
  return table;
}

template class PlainGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
