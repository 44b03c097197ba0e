#include "fluids/fields/fire_grid_channel.h"

#include "fluids/fields/emission_handlers.h"
#include "fluids/fields/field_rows.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

template <class T, class G>
FireGridChannel<T, G>::FireGridChannel() {
  this->mKind = 6;
  FireGridChannel::CreateEmissionHandler();
}

template <class T, class G>
FireGridChannel<T, G>::FireGridChannel(BaseNode* node, Scene* scene)
    : ScalarGridChannel<T, G>(node, scene) {
  this->mKind = 6;
  FireGridChannel::CreateEmissionHandler();
}

template <class T, class G>
const NodeKind& FireGridChannel<T, G>::Kind() {
  static const NodeKind kind = {
      .id = 1300029,
      .type = "channel_fire",
      .label = "Fire",
      .className = "FireGridChannel",
      .typeId = kTypeFireChannel,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryScalar,
      .flags = "R",
      .menu = {"Grids"},
      .purpose = "a field of the age of flames: 1 where it burns, then down to 0",
      .example =
          {{},
           {example::kFuel, example::kHeat,
            R"({ "type": "channel_fire", "name": "fire", "parameters": { "ignition": 900, "burn_time": 0.5, "fade_time": 0.3 } })",
            R"({ "type": "grid_combustion_fire", "name": "burn", "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat" } })",
            R"({ "type": "grid_cooling", "name": "cool", "parameters": { "temperature": "heat", "fire": "fire", "rate": 0.12 } })"}},
      .rows = Parameters,
      .make = MakeNode<FireGridChannel>,
  };
  return kind;
}

template <class T, class G>
const ParameterTable& FireGridChannel<T, G>::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = ScalarGridChannel<T, G>::Rows(1);
    const ParameterTable own = {
        RealRow(field_row::kFireIgnition, "ignition", 1600.0, "K",
                "how hot the gas has to be before a flame is seen in it")
            .To(&FireGridChannel::mIgnition),
        RealRow(field_row::kBurnTime, "burn_time", 2.5, "s",
                "how long a flame stays bright: longer makes taller flames")
            .AtLeast(0)
            .To(&FireGridChannel::mBurnTime),
        RealRow(field_row::kFadeTime, "fade_time", 0.5, "s",
                "how long its tip takes to die out: longer makes softer tips")
            .AtLeast(0)
            .To(&FireGridChannel::mFadeTime),
    };
    rows.insert(rows.begin() + 3, own.begin(), own.end());
    return rows;
  }();
  return table;
}

template <class T, class G>
bool FireGridChannel<T, G>::ReadParameters() {
  if (!ScalarGridChannel<T, G>::ReadParameters()) return false;
  return true;
}

template <class T, class G>
void FireGridChannel<T, G>::CreateEmissionHandler() {
  this->mEmissionHandler = std::make_unique<FireEmissionHandler<T, G>>(this);
}

template class FireGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
