#include "scene/hint_base.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "cache/cache_rows.h"
#include "fluids/advection/grid_advection.h"
#include "fluids/emission/channel_pair.h"
#include "fluids/emission/emission_settings.h"
#include "fluids/fields/field_rows.h"
#include "fluids/operators/grid_combustion.h"
#include "fluids/operators/grid_cooling.h"
#include "fluids/operators/grid_diffusion.h"
#include "fluids/operators/grid_dissipate.h"
#include "fluids/solvers/fluid_solver.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

class FieldHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAt(const BaseNode& server) {
    mFields.clear();
    mAdvections.clear();
    mHasSolver = mHasGas = false;
    mNodes.clear();
    Collect(server);
    Sort();
    for (const BaseNode* field : mFields) {
      LookAtRange(*field);
      if (mHasSolver) LookAtMoves(*field);
      // Where there is no gas, nothing is read either.
      if (mHasGas && !IsFed(*field)) TellUnfed(*field);
    }
    for (const BaseNode* advection : mAdvections) LookAtAdvection(*advection);
    LookAtGases();
    for (const BaseNode* node : mNodes)
      if (IsA<GridCombustion>(*node) && MayWork(*node)) LookAtSpark(*node);
  }

 private:
  void Sort() {
    for (const BaseNode* node : mNodes) {
      const NodeKind* kind = FindKind(node->Type());
      if (!kind) continue;
      if (kind->list == kListChannels) mFields.push_back(node);
      if (kind->list == kListSolvers) mHasSolver = true;
      if (kind->list == kListSolvers && MayWork(*node)) mHasGas = true;
      if (IsA<GridAdvection>(*node) && MayWork(*node)) mAdvections.push_back(node);
    }
  }

  // ---- what goes in -----------------------------------------------------------------------------

  /// Whether anything but 0 may ever come into a field.
  bool IsFed(const BaseNode& field) const {
    if (!BeginsWithNothing(field)) return true;
    const ParameterRow* map = FindRow(*field.Table(), field_row::kTextureCoordinates);
    if (map && Whole(field, map->id) == 1) return true;
    for (const BaseNode* reader : ReadersOf(field))
      if (MayWork(*reader) && Feeds(*reader, field)) return true;
    return false;
  }

  static bool BeginsWithNothing(const BaseNode& field) {
    double value = 0;
    for (const i32 row : {field_row::kInitialValue, field_row::kValueMin}) {
      if (!FindRow(*field.Table(), row)) continue;
      if (field.Tracks().contains(row)) return false;
      if (const Vec3d* vector = Get<Vec3d>(field, row); vector && *vector != Vec3d{}) return false;
      // A value below the range is raised to it.
      if (const double* real = Get<double>(field, row))
        value = row == field_row::kInitialValue ? *real : std::max(value, *real);
    }
    return value == 0;
  }

  bool Feeds(const BaseNode& node, const BaseNode& field) const {
    const NodeKind* kind = FindKind(node.Type());
    if (!kind) return false;
    if (IsA<ChannelPair>(node) && OnlyTakesAway(node, field)) return false;
    // Settings feed as far as someone emits by them.
    if (kind->list == kListSettings) {
      const auto& users = ReadersOf(node);
      return Names(node, field, true) && std::any_of(users.begin(), users.end(), [&](auto* user) {
               return user->Type() != kServerNode && MayWork(*user);
             });
    }
    if (kind->list == kListCaches) {
      const Value* mode = node.Get(cache_row::kMode);
      return !mode || LongOf(*mode, 0) != cache_row::kRecord;
    }
    if (OnlyTakes(node)) return false;
    if (IsA<GridCombustion>(node)) {
      const BaseNode* fuel = Linked(node, GridCombustion::kFuelRow);
      // Without fuel the fire is what it begins with.
      if (fuel == &field || (!fuel && Linked(node, GridCombustion::kFireRow) == &field))
        return false;
    }
    return Names(node, field, true);
  }

  /// An amount below 0, of a field that holds nothing below 0.
  bool OnlyTakesAway(const BaseNode& pair, const BaseNode& field) const {
    const BaseNode* settings = Linked(pair, ChannelPair::kSettingsRow);
    const double* least = Get<double>(field, field_row::kValueMin);
    if (!settings || !least || *least < 0) return false;
    const BaseNode* rate = Linked(*settings, GridEmissionSettings::kRateRow);
    const bool hasRate = rate && rate->IsEnabled();
    const BaseNode& holder = hasRate ? *rate : *settings;
    const i32 row = hasRate ? i32{EmissionRate::kRealRow} : i32{GridEmissionSettings::kAmountRow};
    return StaysAtMost(holder, row, 0) && !StaysZero(holder, row);
  }

  /// What moves, fades or blurs a field of nothing leaves nothing.
  static bool OnlyTakes(const BaseNode& node) {
    return IsA<GridAdvection>(node) || IsA<GridCooling>(node) || IsA<GridDissipate>(node) ||
           IsA<GridDiffusion>(node);
  }

  /// Whether a row of a node that changes what it names, or one that reads it, names a field.
  bool Names(const BaseNode& node, const BaseNode& field, bool writes) const {
    if (!node.Table()) return false;
    for (const ParameterRow& row : *node.Table()) {
      if (row.kept || !(writes ? row.writes : !row.writes || row.readsToo)) continue;
      const Value* value = node.Get(row.id);
      if (!value) continue;
      if (const Link* link = std::get_if<Link>(value); link && link->node == field.Id())
        return true;
      if (const auto* list = std::get_if<InExcludeData>(value))
        for (const InExcludeData::Entry& entry : list->entries)
          if (entry.node == field.Id()) return true;
    }
    return false;
  }

  void TellUnfed(const BaseNode& field) {
    for (const BaseNode* reader : ReadersOf(field)) {
      if (reader->Type() == kServerNode || !MayWork(*reader)) continue;
      const bool reads = IsA<GridCombustion>(*reader) || Names(*reader, field, false);
      if (!reads && !OnlyTakes(*reader)) continue;
      return Warn(field, fmt::format("{} {} it, and no emitter, operator or cache that works "
                                     "puts anything into it: it stays 0",
                                     Named(*reader), reads ? "reads" : "works on"));
    }
    if (mScene.IsExported(field))
      Warn(field,
           "it is exported, and no emitter, operator or cache that works puts anything into it: it "
           "stays 0");
  }

  /// Fuel that nothing but its own fire could light.
  void LookAtSpark(const BaseNode& burn) {
    const BaseNode* fuel = Linked(burn, GridCombustion::kFuelRow);
    const BaseNode* heat = Linked(burn, GridCombustion::kTemperatureRow);
    if (!fuel || !heat || !IsFed(*fuel) || heat->Tracks().contains(field_row::kInitialValue))
      return;
    const double ignition = GridCombustion::IgnitionOf(*fuel);
    if (std::max(Number(*heat, field_row::kInitialValue), Number(*heat, field_row::kValueMin)) >=
        ignition)
      return;
    for (const BaseNode* reader : ReadersOf(*heat))
      if (!IsA<GridCombustion>(*reader) && MayWork(*reader) && Feeds(*reader, *heat)) return;
    WarnOfSleep(burn,
                fmt::format("it never burns: {} catches fire from {:g} on, and nothing else puts "
                            "heat into {}",
                            Named(*fuel), ignition, Named(*heat)));
  }

  // ---- what moves -------------------------------------------------------------------------------

  /// Channels that an emitter feeds stand still where no advection has them as its target.
  void LookAtMoves(const BaseNode& field) {
    bool isFed = false, isMoved = false;
    for (const BaseNode* reader : ReadersOf(field)) {
      isFed = isFed || (IsA<ChannelPair>(*reader) && Feeds(*reader, field));
      isMoved = isMoved || IsA<GridAdvection>(*reader);
    }
    // What is cleared in each step shows where it was emitted, and means to.
    const ParameterRow* clears = FindRow(*field.Table(), field_row::kClearEachStep);
    if (!isFed || isMoved || (clears && Whole(field, clears->id) == 1)) return;
    Warn(field,
         fmt::format("an emitter feeds it, but nothing moves it; add a {} that has it as its '{}'",
                     GridAdvection::Kind().type,
                     FindRow(GridAdvection::Parameters(), GridAdvection::kTargetRow)->name));
  }

  /// The field or solver that an advection moves, and the solver whose flow it takes.
  std::pair<const BaseNode*, const BaseNode*> MoveOf(const BaseNode& advection) const {
    const BaseNode* solver = Linked(advection, GridAdvection::kSolverRow);
    const BaseNode* target = Linked(advection, GridAdvection::kTargetRow);
    if (!target) target = solver;
    const NodeKind* kind = target ? FindKind(target->Type()) : nullptr;
    return {target, kind && kind->list == kListSolvers ? target : solver};
  }

  void LookAtAdvection(const BaseNode& advection) {
    const auto [target, solver] = MoveOf(advection);
    if (!target) return;
    const BaseNode* named = Linked(advection, GridAdvection::kSolverRow);
    if (named && named != solver)
      Warn(advection,
           fmt::format("'{}' is without effect: {}, its '{}', moves by its own flow",
                       NameOf(advection, GridAdvection::kSolverRow), Named(*target),
                       NameOf(advection, GridAdvection::kTargetRow)),
           GridAdvection::kSolverRow);
    if (const ParameterRow* previous = FindRow(*target->Table(), field_row::kKeepPrevious);
        previous && Whole(*target, previous->id) == 0 && !target->Tracks().contains(previous->id) &&
        target != solver) {
      mDiagnostics.NoteSleeper(advection.Id(),
                               fmt::format("'{}' of {} is off", previous->name, Named(*target)));
      if (mStuck.insert(target).second)
        Warn(*target,
             fmt::format("'{}' is off, and {} can't move it without", previous->name,
                         Named(advection)),
             previous->id);
    }
    const auto [first, isNew] = mMoved.try_emplace({target, solver}, &advection);
    if (isNew) return;
    Warn(advection,
         fmt::format("it moves {}, which {} moves already: both together carry it twice as far as "
                     "the gas flows",
                     Named(*target), Named(*first->second)));
  }

  /// Gases that nobody asks for, and those whose whirls stay where they are. Where nothing leaves
  /// the program, the statistics of a gas are what is meant.
  void LookAtGases() {
    std::vector<const BaseNode*> used, unused;
    for (const BaseNode* node : mNodes)
      if (IsA<FluidSolver>(*node) && MayWork(*node))
        (IsUsed(*node) ? used : unused).push_back(node);
    const bool isForNumbers = mScene.exports.empty() && !mScene.render && used.empty();
    for (const BaseNode* gas : unused)
      if (!isForNumbers)
        Note(*gas,
             "nothing moves with its flow, and no export, picture or recording takes it: the "
             "statistics alone tell of it");
    for (const BaseNode* gas : used) {
      const auto& readers = ReadersOf(*gas);
      if (std::none_of(readers.begin(), readers.end(),
                       [&](const BaseNode* reader) { return Carries(*reader, *gas); }) &&
          !IsPlayed(*gas))
        Note(*gas,
             fmt::format("nothing carries its velocity along, so that whirls stay where they are; "
                         "add a {} that has it as its '{}'",
                         GridAdvection::Kind().type,
                         FindRow(GridAdvection::Parameters(), GridAdvection::kTargetRow)->name));
    }
  }
  /// Whether a node moves the velocity of a gas with its own flow.
  bool Carries(const BaseNode& node, const BaseNode& gas) const {
    return IsA<GridAdvection>(node) && MayWork(node) && MoveOf(node).first == &gas;
  }
  bool IsUsed(const BaseNode& gas) const {
    const auto& readers = ReadersOf(gas);
    return mScene.IsExported(gas) ||
           std::any_of(readers.begin(), readers.end(), [&](const BaseNode* reader) {
             return reader->Type() != kServerNode && !IsA<GridCombustion>(*reader) &&
                    !Carries(*reader, gas) && MayWork(*reader);
           });
  }
  bool IsPlayed(const BaseNode& node) const {
    const auto& readers = ReadersOf(node);
    return std::any_of(readers.begin(), readers.end(), [](const BaseNode* reader) {
      const NodeKind* kind = FindKind(reader->Type());
      return kind && kind->list == kListCaches &&
             Whole(*reader, cache_row::kMode) != cache_row::kRecord;
    });
  }

  // ---- what a field can hold --------------------------------------------------------------------

  void LookAtRange(const BaseNode& field) {
    for (const i32 row : {field_row::kValueMin, field_row::kValueMax, field_row::kInitialValue})
      if (!FindRow(*field.Table(), row) || field.Tracks().contains(row)) return;
    const double* least = Get<double>(field, field_row::kValueMin);
    const double* most = Get<double>(field, field_row::kValueMax);
    const double* first = Get<double>(field, field_row::kInitialValue);
    if (!least || !most || !first) return;
    if (*most <= *least) {
      Warn(field,
           fmt::format("'{}' is {}, not above '{}', {}: everything in it becomes one value",
                       NameOf(field, field_row::kValueMax), *most,
                       NameOf(field, field_row::kValueMin), *least),
           field_row::kValueMax);
    } else if (*first > *most || *first < *least) {
      // 0 is what every new field starts with.
      if (*first == 0 && *least > 0) return;
      Warn(field,
           fmt::format("'{}' is {}, outside of '{}' to '{}', {} to {}: it becomes the nearer end",
                       NameOf(field, field_row::kInitialValue), *first,
                       NameOf(field, field_row::kValueMin), NameOf(field, field_row::kValueMax),
                       *least, *most),
           field_row::kInitialValue);
    }
  }

  std::vector<const BaseNode*> mFields, mAdvections;  ///< of the server, those that take part
  std::map<std::pair<const BaseNode*, const BaseNode*>, const BaseNode*> mMoved;
  std::set<const BaseNode*> mStuck;          ///< told of: they keep nothing that could be moved
  bool mHasSolver = false, mHasGas = false;  ///< one that is on, one that something fills
};

}  // namespace

void AddFieldHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  FieldHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers)
    if (server->IsEnabled()) hints.LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
