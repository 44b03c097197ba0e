#include "scene/hint_base.h"

#include <fmt/format.h>

#include "fluids/fields/field_rows.h"
#include "fluids/fields/fire_grid_channel.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/operators/grid_combustion.h"
#include "fluids/operators/grid_cooling.h"
#include "fluids/operators/grid_variable_density.h"
#include "fluids/solvers/fluid_solver.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Combustion, cooling and the density of mixtures: links and numbers with which they do nothing.
class FireHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAt(const BaseNode& server) {
    mNodes.clear();
    Collect(server);
    for (const BaseNode* node : mNodes) {
      if (IsA<FireField>(*node) || IsA<FuelField>(*node)) LookAtUsers(*node);
      if (!MayWork(*node)) continue;
      if (IsA<GridCombustion>(*node)) LookAtCombustion(*node);
      if (IsA<GridCooling>(*node)) LookAtCooling(*node);
      if (IsA<GridVariableDensity>(*node)) LookAtDensity(*node);
    }
  }

 private:
  using Burn = GridCombustion;
  using Mix = GridVariableDensity;

  void TellWithout(const BaseNode& node, i32 row, i32 link) {
    if (IsGiven(node, row))
      Note(node,
           fmt::format("'{}' has no effect without '{}'", NameOf(node, row), NameOf(node, link)),
           row);
  }

  void TellZero(const BaseNode& node, i32 row, std::string_view what) {
    if (StaysZero(node, row))
      Note(node, fmt::format("'{}' is 0: {}", NameOf(node, row), what), row);
  }

  /// A field that stands for two things of one node at once.
  void TellTwoRoles(const BaseNode& node, const std::vector<i32>& rows) {
    for (std::size_t i = 0; i < rows.size(); ++i)
      for (std::size_t j = i + 1; j < rows.size(); ++j) {
        const BaseNode* field = Linked(node, rows[i]);
        if (field && field == Linked(node, rows[j]))
          Warn(node,
               fmt::format("{} is its '{}' and its '{}' at once", Named(*field),
                           NameOf(node, rows[i]), NameOf(node, rows[j])),
               rows[j]);
      }
  }

  void LookAtCombustion(const BaseNode& burn) {
    TellTwoRoles(burn, {Burn::kTemperatureRow, Burn::kFireRow, Burn::kFuelRow, Burn::kSmokeRow});
    const bool hasFuel = Linked(burn, Burn::kFuelRow);
    const bool hasSmoke = Linked(burn, Burn::kSmokeRow);
    const bool hasSolver = Linked(burn, Burn::kSolverRow);
    if (!hasSmoke) TellWithout(burn, Burn::kSmokeAmountRow, Burn::kSmokeRow);
    if (!hasSolver) TellWithout(burn, Burn::kExpansionRow, Burn::kSolverRow);
    if (hasSmoke) TellZero(burn, Burn::kSmokeAmountRow, "it leaves no smoke");
    if (hasSolver) TellZero(burn, Burn::kExpansionRow, "it blows nothing apart");
    if (hasFuel) {
      TellZero(burn, Burn::kBurnRateRow, "it uses up no fuel, and heats nothing");
      TellZero(burn, Burn::kHeatRow, "what burns gets no hotter");
      TellTooCold(burn);
    } else {
      TellWithout(burn, Burn::kHeatRow, Burn::kFuelRow);
      // The pace of the burn counts for what swells the gas, too.
      if (!hasSolver)
        for (const i32 row : {Burn::kBurnRateRow, Burn::kModeRow})
          TellWithout(burn, row, Burn::kFuelRow);
      if (Whole(burn, Burn::kModeRow) != 0) TellWithout(burn, Burn::kRatioRow, Burn::kFuelRow);
    }
  }

  /// Fuel that waits for more heat than its temperature can hold.
  void TellTooCold(const BaseNode& burn) {
    const BaseNode* fuel = Linked(burn, Burn::kFuelRow);
    const BaseNode* heat = Linked(burn, Burn::kTemperatureRow);
    if (!heat || !FindRow(*heat->Table(), field_row::kValueMax)) return;
    const double ignition = Burn::IgnitionOf(*fuel);
    const double most = Number(*heat, field_row::kValueMax);
    if (heat->Tracks().contains(field_row::kValueMax) ||
        fuel->Tracks().contains(field_row::kFuelIgnition) || ignition <= most)
      return;
    WarnOfSleep(burn,
                fmt::format("it never burns: {} catches fire from {:g} on, and {} holds at most "
                            "{:g}, its '{}'",
                            Named(*fuel), ignition, Named(*heat), most,
                            NameOf(*heat, field_row::kValueMax)));
  }

  void LookAtCooling(const BaseNode& cool) {
    TellTwoRoles(cool, {GridCooling::kTemperatureRow, GridCooling::kFireRow});
    TellZero(
        cool, GridCooling::kRateRow,
        Linked(cool, GridCooling::kFireRow) ? "flames age, and nothing cools" : "it does nothing");
  }

  /// What only the operators on it read of a field.
  void LookAtUsers(const BaseNode& field) {
    const auto isUsed = [&](const NodeKind& kind, i32 link) {
      const auto& readers = ReadersOf(field);
      return std::any_of(readers.begin(), readers.end(), [&](const BaseNode* reader) {
        return reader->Type() == kind.id && Linked(*reader, link) == &field;
      });
    };
    const auto tell = [&](i32 row, const NodeKind& kind, i32 link) {
      if (IsGiven(field, row))
        Note(field,
             fmt::format("'{}' has no effect without a {} that names it under '{}'",
                         NameOf(field, row), kind.type, FindRow(kind.rows(), link)->name),
             row);
    };
    if (IsA<FuelField>(field)) {
      if (!isUsed(Burn::Kind(), Burn::kFuelRow))
        tell(field_row::kFuelIgnition, Burn::Kind(), Burn::kFuelRow);
      return;
    }
    if (isUsed(GridCooling::Kind(), GridCooling::kFireRow)) return;
    for (const i32 row : {field_row::kBurnTime, field_row::kFadeTime})
      tell(row, GridCooling::Kind(), GridCooling::kFireRow);
    if (!isUsed(Burn::Kind(), Burn::kFireRow))
      tell(field_row::kFireIgnition, Burn::Kind(), Burn::kFireRow);
  }

  void LookAtDensity(const BaseNode& mix) {
    TellTwoRoles(mix, {Mix::kTargetRow, Mix::kAdmixtureRow, Mix::kTemperatureRow});
    if (!mix.Tracks().contains(Mix::kBaseRow) && !mix.Tracks().contains(Mix::kOtherRow) &&
        Number(mix, Mix::kBaseRow) == Number(mix, Mix::kOtherRow))
      Note(mix,
           fmt::format("'{}' is as heavy as '{}': its '{}' changes nothing",
                       NameOf(mix, Mix::kOtherRow), NameOf(mix, Mix::kBaseRow),
                       NameOf(mix, Mix::kAdmixtureRow)),
           Mix::kOtherRow);
    const BaseNode* target = Linked(mix, Mix::kTargetRow);
    const ParameterRow* clears =
        target ? FindRow(*target->Table(), field_row::kClearEachStep) : nullptr;
    if (!clears) return;
    if (Whole(*target, clears->id) == 0 && !target->Tracks().contains(clears->id))
      Warn(*target,
           fmt::format("'{}' is off, and {} adds its density in each step: it piles up",
                       clears->name, Named(mix)),
           clears->id);
    const auto& readers = ReadersOf(*target);
    if (std::none_of(readers.begin(), readers.end(),
                     [&](const BaseNode* reader) { return reader != &mix && MayWork(*reader); }))
      Note(*target,
           fmt::format("{} writes the density of the gas into it, and no fluid has it as "
                       "its '{}': the gas stays as heavy as it is",
                       Named(mix),
                       FindRow(FluidSolver::Parameters(), FluidSolver::kDensityChannelRow)->name));
  }
};

}  // namespace

void AddFireHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  FireHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers)
    if (server->IsEnabled()) hints.LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
