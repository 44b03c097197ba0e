#include "scene/hint_base.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/advection/particle_advection.h"
#include "fluids/emission/alignment_vector.h"
#include "fluids/emission/channel_pair.h"
#include "fluids/emission/channel_value.h"
#include "fluids/emission/emission_settings.h"
#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/emission/particle_emission_settings.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/forces/force_buoyancy.h"
#include "fluids/forces/force_curl.h"
#include "fluids/forces/force_gravity.h"
#include "fluids/forces/force_swirling.h"
#include "fluids/forces/force_trigo_wave.h"
#include "fluids/forces/force_vortex.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/operators/grid_diffusion.h"
#include "fluids/operators/grid_dissipate.h"
#include "fluids/particles/kernel.h"
#include "fluids/solvers/water_solver.h"
#include "fluids/surfaces/implicit_mesher.h"
#include "framework/duration.h"
#include "framework/server_rows.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Numbers, curves and times with which nothing happens.
class SettingHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAt(const BaseNode& server) {
    mNodes.clear();
    Collect(server);
    CheckSettings(server);
    for (const BaseNode* node : mNodes) {
      CheckWithoutValue(*node);
      CheckStrength(*node);
      if (IsA<Duration>(*node)) CheckWindow(*node);
      if (IsA<FluidSolver>(*node)) CheckPadding(*node);
      if (IsA<FluidSolver>(*node) || IsA<WaterSolver>(*node)) CheckViscosity(*node);
      if (IsA<GridEmissionSettings>(*node)) CheckSort(*node);
      if (IsA<ChannelValue>(*node)) CheckSortOfValue(*node);
      if (IsA<EmissionRate>(*node)) CheckSortOfRate(*node);
      if (IsA<Grid_CellEmitter>(*node))
        CheckSolverField(*node, Grid_CellEmitter::kChannelRow, Grid_CellEmitter::kSolverFieldRow);
    }
  }

 private:
  /// What a node can't do without and has no link for.
  void CheckWithoutValue(const BaseNode& node) {
    if (IsA<ParticleToGridEmitter>(node)) CheckPoints(node);
    if (IsA<AlignmentVector3D>(node)) CheckAlignment(node);
    if (IsA<ImplicitMesher>(node)) {
      CheckLevel(node);
      CheckColourRadius(node);
    }
    if (IsA<SurfaceReconstructor>(node)) CheckSurfaceSource(node);
    if (!IsA<ChannelOperator_Remap>(node) || !MayWork(node)) return;
    const Gradient* gradient = Get<Gradient>(node, ChannelOperator_Remap::kGradientRow);
    if (!gradient || gradient->knots.empty())
      WarnOfSleep(node, fmt::format("it has no '{}', and changes nothing",
                                    NameOf(node, ChannelOperator_Remap::kGradientRow)));
  }

  /// Points that reach no cell, or bring nothing there.
  void CheckPoints(const BaseNode& node) {
    using Points = ParticleToGridEmitter;
    const BaseNode* source = Linked(node, Points::kSourceRow);
    if (source && source->Type() != ParticleGroup::kNodeType)
      NoteUnread(node, Points::kParticleTypeRow, Named(*source) + " is no group of particles");
    const auto* constraints = Get<InExcludeData>(node, common_row::kConstraints);
    if (!constraints || constraints->entries.empty())
      NoteUnread(node, Points::kConstraintModeRow, "it has no 'constraints'");
    if (StaysZero(node, Points::kRadiusRow))
      WarnOfSleep(
          node,
          fmt::format("'{}' is 0: its points reach no cell", NameOf(node, Points::kRadiusRow)),
          Points::kRadiusRow);
    for (const i32 row : {Points::kMassScaleRow, Points::kRadiusScaleRow})
      if (StaysZero(node, row))
        WarnOfSleep(node, fmt::format("'{}' is 0: its points bring nothing", NameOf(node, row)),
                    row);
    constexpr i32 kByFalloff = 2;
    const Gradient* falloff = Get<Gradient>(node, Points::kFalloffRow);
    const bool fades = Whole(node, Points::kDistanceModeRow) == kByFalloff;
    if (fades && falloff && !falloff->knots.empty() &&
        std::all_of(falloff->knots.begin(), falloff->knots.end(),
                    [](const auto& knot) { return knot.colour.x == 0; }))
      WarnOfSleep(node,
                  fmt::format("'{}' is black throughout: its points bring nothing",
                              NameOf(node, Points::kFalloffRow)),
                  Points::kFalloffRow);
    if (fades && (!falloff || falloff->knots.empty()))
      WarnOfSleep(
          node,
          fmt::format("it has no '{}', which its '{}' asks for", NameOf(node, Points::kFalloffRow),
                      NameOf(node, Points::kDistanceModeRow)),
          Points::kFalloffRow);
  }

  /// A switch tells whether a surface takes an object or a group.
  void CheckSurfaceSource(const BaseNode& node) {
    constexpr i32 kSwitch = SurfaceReconstructor::kHostRow;
    const BaseNode* source = Linked(node, SurfaceReconstructor::kSourceRow);
    if (!source || node.Tracks().contains(kSwitch)) return;
    const bool isGroup = source->Type() == ParticleGroup::kNodeType;
    if ((Whole(node, kSwitch) != 0) != isGroup) return;
    WarnOfSleep(node,
                fmt::format("{} is {} '{}'", Named(*source),
                            isGroup ? "a group, whose particles count without"
                                    : "an object, whose points count only with",
                            NameOf(node, kSwitch)),
                kSwitch);
  }

  /// New nodes have a level for fields of other kinds than distances.
  void CheckLevel(const BaseNode& node) {
    const BaseNode* source = Linked(node, ImplicitMesher::kSourceRow);
    if (source && IsA<SurfaceReconstructor>(*source))
      NoteUnread(node, ImplicitMesher::kLevelRow,
                 "the surface of particles lies where 'radius_shift' of its source has it");
    if (source && !IsA<SurfaceReconstructor>(*source) && MayWork(node) &&
        !IsGiven(node, ImplicitMesher::kLevelRow) &&
        !node.Tracks().contains(ImplicitMesher::kLevelRow))
      Warn(node,
           fmt::format("'{}' is {} as in every new node: the surface lies that far outside of {}; "
                       "at 0 it is where that is",
                       NameOf(node, ImplicitMesher::kLevelRow),
                       Number(node, ImplicitMesher::kLevelRow), Named(*source)));
  }

  /// Points of a surface between particles that lie further apart than they colour.
  void CheckColourRadius(const BaseNode& node) {
    const i32 row = ImplicitMesher::kColourRadiusRow;
    const BaseNode* server = node.Parent();
    while (server && server->Type() != kServerNode) server = server->Parent();
    if (!server || !Linked(node, ImplicitMesher::kColourGroupRow) || node.Tracks().contains(row) ||
        Linked(node, ImplicitMesher::kColourFieldRow))
      return;
    const double radius = Number(node, row), apart = Number(*server, server_row::kCellSize) / 2;
    if (radius > 0 && radius < apart)
      Warn(node,
           fmt::format("'{}' is {:g}, and particles lie about {:g} apart, eight to a cell: points "
                       "of the surface between them stay white",
                       NameOf(node, row), radius, apart),
           row);
  }

  /// Modes that point by a volume.
  void CheckAlignment(const BaseNode& node) {
    const i32 mode = Whole(node, AlignmentVector3D::kModeRow);
    const BaseNode* centre = Linked(node, AlignmentVector3D::kCentreRow);
    const NodeKind* kind = centre ? FindKind(centre->Type()) : nullptr;
    if (kind && (kind->categories & kCategoryVolume)) return;
    if (node.Tracks().contains(AlignmentVector3D::kModeRow)) return;
    // Emitters of particles bring the surface on which they work.
    const std::vector<const BaseNode*>& readers = ReadersOf(node);
    if (!readers.empty() && std::all_of(readers.begin(), readers.end(), [](const BaseNode* reader) {
          return IsA<ParticleEmissionSettings>(*reader);
        }))
      return;
    if (mode == AlignmentVector3D::kBodyVelocity)
      Warn(node,
           fmt::format("it points nowhere: no volume under '{}' moves",
                       NameOf(node, AlignmentVector3D::kCentreRow)),
           AlignmentVector3D::kModeRow);
    if (mode == AlignmentVector3D::kNormal)
      Warn(node,
           fmt::format("there is no volume under '{}' whose surface it could follow: it points "
                       "along its 'vector'",
                       NameOf(node, AlignmentVector3D::kCentreRow)),
           AlignmentVector3D::kModeRow);
  }

  /// Numbers that each are allowed, and with which nothing happens.
  void CheckSettings(const BaseNode& server) {
    const BaseNode* kernel = Linked(server, server_row::kIsoKernel);
    if (kernel && !IsA<Kernel>(*kernel))
      Warn(server,
           fmt::format("'{}' is {}, which is no {}: it isn't used",
                       NameOf(server, server_row::kIsoKernel), Named(*kernel), Kernel::Kind().type),
           server_row::kIsoKernel);
    const double scale = Number(server, server_row::kTimeScale);
    constexpr i32 kFixed = 2;
    const bool isFixed = Whole(server, server_row::kTimeMode) == kFixed &&
                         !server.Tracks().contains(server_row::kTimeMode);
    for (const i32 row : {i32{server_row::kTimeScale}, i32{server_row::kFixedStep}})
      if (StaysAtMost(server, row, 0) && (row == server_row::kTimeScale || isFixed))
        Warn(server,
             fmt::format("'{}' is {}: time stands still, and nothing moves", NameOf(server, row),
                         Number(server, row)),
             row);
    if (std::none_of(mNodes.begin(), mNodes.end(),
                     [](const BaseNode* node) { return IsA<ParticleAdvection>(*node); }) &&
        !HasBodies())
      NoteUnread(server, server_row::kGravity,
                 "it pulls particles that fly and rigid bodies, and nothing moves any; smoke rises "
                 "and sinks by "
                 "forces");
    const bool ownRange = Whole(server, server_row::kUsePreviewRange) == 0;
    const double frames = ownRange
                              ? std::abs(double(Whole(server, server_row::kLastFrame)) -
                                         Whole(server, server_row::kFirstFrame))
                              : double(mScene.document->previewMax) - mScene.document->previewMin;
    // Where time doesn't go at the pace of frames, nor do windows.
    const bool isSteady = scale == 1 && !isFixed &&
                          !server.Tracks().contains(server_row::kTimeScale) &&
                          !server.Tracks().contains(server_row::kTimeMode);
    for (const BaseNode* node : mNodes) {
      if (IsA<ChannelPair>(*node)) CheckAmount(*node);
      if (IsA<ChannelValue>(*node)) CheckValue(*node);
      if (IsA<Duration>(*node) && isSteady) CheckStart(*node, frames);
    }
  }

  void CheckStart(const BaseNode& duration, double frames) {
    const bool usesFrames = Whole(duration, Duration::kUseFramesRow) != 0;
    const i32 row = usesFrames ? Duration::kStartFramesRow : Duration::kStartRow;
    const double start =
        usesFrames ? Whole(duration, row) : Number(duration, row) * mScene.document->fps;
    // What opens with the end of the last frame comes too late for all but caches, which work then.
    const auto& readers = ReadersOf(duration);
    const bool isForCache = std::any_of(readers.begin(), readers.end(), [](const BaseNode* reader) {
      const NodeKind* kind = FindKind(reader->Type());
      return kind && kind->list == kListCaches;
    });
    const double last = isForCache || frames == 0 ? frames : frames - 1e-6;
    if (start > last && duration.Tracks().empty())
      Warn(
          duration,
          fmt::format("'{}': it begins {:.4g} frames behind the first one, and the range has {:g}: "
                      "it never opens",
                      NameOf(duration, row), start, frames),
          row);
  }

  /// Padding that free sides have no use for.
  void CheckPadding(const BaseNode& gas) {
    constexpr i32 row = FluidSolver::kPaddingRow, sides = FluidSolver::kSidesRow;
    if (Whole(gas, sides) != 0 || Whole(gas, row) >= FluidSolver::kLeastPadding) return;
    Note(gas,
         fmt::format("'{}' counts as {}: with less, smoke passes the free sides of the container; "
                     "with 'walls' as '{}' any number counts",
                     NameOf(gas, row), FluidSolver::kLeastPadding, NameOf(gas, sides)),
         row);
  }

  /// How it is solved, where nothing is viscous, and a number that a channel replaces.
  void CheckViscosity(const BaseNode& solver) {
    using Rows = FluidSolver;
    const bool hasChannel = Linked(solver, Rows::kViscosityChannelRow) != nullptr;
    if (hasChannel)
      NoteUnread(solver, Rows::kViscosityRow,
                 fmt::format("its '{}' tells it", NameOf(solver, Rows::kViscosityChannelRow)));
    if (hasChannel || !StaysZero(solver, Rows::kViscosityRow)) return;
    for (const i32 row : {Rows::kViscosityIterationsRow, Rows::kViscosityToleranceRow})
      NoteUnread(solver, row, fmt::format("'{}' is 0", NameOf(solver, Rows::kViscosityRow)));
  }

  /// Windows without strength, and pauses that nothing follows.
  void CheckWindow(const BaseNode& duration) {
    if (IsFlatCurve(duration, Duration::kCurveRow))
      Warn(duration,
           fmt::format("'{}' is 0 throughout: nothing happens in its window",
                       NameOf(duration, Duration::kCurveRow)),
           Duration::kCurveRow);
    if (Whole(duration, Duration::kRepeatsRow) != 0 ||
        duration.Tracks().contains(Duration::kRepeatsRow))
      return;
    const i32 row = Whole(duration, Duration::kUseFramesRow) != 0 ? Duration::kPauseFramesRow
                                                                  : Duration::kPauseRow;
    const Value* pause = duration.Get(row);
    if (pause && *pause != FindRow(*duration.Table(), row)->creation)
      Note(duration,
           fmt::format("'{}' has no effect without '{}'", NameOf(duration, row),
                       NameOf(duration, Duration::kRepeatsRow)),
           row);
  }

  static bool IsFlatCurve(const BaseNode& node, i32 row) {
    const auto* curve = Get<SplineData>(node, row);
    return curve && !curve->knots.empty() &&
           std::all_of(curve->knots.begin(), curve->knots.end(),
                       [](const auto& knot) { return knot.y == 0; });
  }

  /// Nodes that are there and have no strength.
  void CheckStrength(const BaseNode& node) {
    const i32 row = IsA<Force_Gravity>(node)     ? Force_Gravity::kStrengthRow
                    : IsA<Force_Swirling>(node)  ? Force_Swirling::kStrengthRow
                    : IsA<Force_TrigoWave>(node) ? Force_TrigoWave::kAmplitudeRow
                    : IsA<Force_Vortex>(node)    ? Force_Vortex::kStrengthRow
                    : IsA<Force_Curl>(node)      ? Force_Curl::kStrengthRow
                    : IsA<GridDissipate>(node)   ? GridDissipate::kRateRow
                    : IsA<GridDiffusion>(node)   ? GridDiffusion::kStrengthRow
                                                 : 0;
    if (row && StaysZero(node, row))
      Note(node, fmt::format("'{}' is 0: it does nothing", NameOf(node, row)), row);
    else if (IsA<Force_Swirling>(node) && StaysAtMost(node, row, 0))
      Note(node, fmt::format("'{}' is below 0: it does nothing", NameOf(node, row)), row);
    if (IsA<Force_Gravity>(node) && !Linked(node, Force_Gravity::kAlignmentRow) &&
        StaysZero(node, Force_Gravity::kAccelerationRow))
      Note(node,
           fmt::format("'{}' has no length: it pushes nothing",
                       NameOf(node, Force_Gravity::kAccelerationRow)),
           Force_Gravity::kAccelerationRow);
    if (!IsA<Force_Buoyancy>(node)) return;
    using Buoyancy = Force_Buoyancy;
    if (StaysZero(node, Buoyancy::kDirectionRow))
      Note(node,
           fmt::format("'{}' has no length: it lifts nothing",
                       NameOf(node, Buoyancy::kDirectionRow)),
           Buoyancy::kDirectionRow);
    if (StaysZero(node, Buoyancy::kTemperatureRow) && StaysZero(node, Buoyancy::kDensityRow))
      Note(node, fmt::format("'{}' and '{}' are 0: it lifts nothing",
                             NameOf(node, Buoyancy::kTemperatureRow),
                             NameOf(node, Buoyancy::kDensityRow)));
  }

  /// Which part of a solver is meant, where there is none.
  void CheckSolverField(const BaseNode& node, i32 link, i32 row) {
    const BaseNode* target = Linked(node, link);
    const NodeKind* kind = target ? FindKind(target->Type()) : nullptr;
    if (kind && kind->list != kListSolvers) NoteUnread(node, row, Named(*target) + " is no solver");
  }

  /// A number for a field of vectors, or the other way round.
  void CheckSortOfValue(const BaseNode& value) {
    CheckSolverField(value, ChannelValue::kChannelRow, ChannelValue::kSolverFieldRow);
    const BaseNode* field = Linked(value, ChannelValue::kChannelRow);
    const NodeKind* kind = field ? FindKind(field->Type()) : nullptr;
    if (!kind || kind->list != kListChannels) return;
    const bool isVector = (kind->categories & kCategoryVector) != 0;
    NoteUnread(value, isVector ? i32{ChannelValue::kValueRow} : i32{ChannelValue::kVectorRow},
               fmt::format("{} is a field of {}", Named(*field), isVector ? "vectors" : "numbers"));
  }

  /// A rate of particles for fields, or the other way round.
  void CheckSortOfRate(const BaseNode& rate) {
    bool fillsFields = false, makesParticles = false;
    for (const BaseNode* settings : ReadersOf(rate)) {
      fillsFields = fillsFields || IsA<GridEmissionSettings>(*settings);
      makesParticles = makesParticles || IsA<ParticleEmissionSettings>(*settings);
    }
    if (fillsFields && !makesParticles)
      NoteUnread(rate, EmissionRate::kWholeRow, "it counts particles, and this one fills fields");
    if (!makesParticles) return;
    if (fillsFields && !IsGiven(rate, EmissionRate::kWholeRow) &&
        !rate.Tracks().contains(EmissionRate::kWholeRow))
      Note(rate, fmt::format(
                     "it fills fields and counts particles too: of these it makes its '{}', "
                     "which is {}, a second",
                     NameOf(rate, EmissionRate::kWholeRow), Whole(rate, EmissionRate::kWholeRow)));
    if (fillsFields) return;
    for (const i32 row : {EmissionRate::kRealRow, EmissionRate::kVectorRow})
      NoteUnread(rate, row, "it fills fields, and this one counts particles");
  }

  /// An amount of numbers for vectors, or the other way round.
  void CheckSort(const BaseNode& settings) {
    bool fillsNumbers = false, fillsVectors = false;
    for (const BaseNode* pair : ReadersOf(settings)) {
      const BaseNode* field =
          IsA<ChannelPair>(*pair) ? Linked(*pair, ChannelPair::kChannelRow) : nullptr;
      const NodeKind* kind = field ? FindKind(field->Type()) : nullptr;
      if (kind && kind->list == kListChannels)
        (kind->categories & kCategoryVector ? fillsVectors : fillsNumbers) = true;
    }
    if (fillsNumbers == fillsVectors) return;
    const i32 row =
        fillsVectors ? GridEmissionSettings::kAmountRow : GridEmissionSettings::kVectorAmountRow;
    const Value* value = settings.Get(row);
    if (value && *value != FindRow(*settings.Table(), row)->creation)
      Note(settings,
           fmt::format("'{}' has no effect: it fills fields of {} alone", NameOf(settings, row),
                       fillsVectors ? "vectors" : "numbers"),
           row);
  }

  /// Warns at `holder` that a pair or value adds nothing; whoever emits that alone does nothing.
  void TellNothing(const BaseNode& given, const BaseNode& holder, const std::string& text,
                   i32 row) {
    Warn(holder, text, row);
    for (const BaseNode* emitter : ReadersOf(given)) {
      std::size_t others = 0;
      for (const NodeId id : LinksOf(*emitter)) {
        const BaseNode* linked = mScene.document->Find(id);
        others += linked && linked != &given && linked->Type() == given.Type();
      }
      if (others == 0 && emitter->Type() != kServerNode)
        mDiagnostics.NoteSleeper(emitter->Id(), text);
    }
  }

  /// What points bring to a field, where it is nothing.
  void CheckValue(const BaseNode& value) {
    const BaseNode* channel = Linked(value, ChannelValue::kChannelRow);
    const NodeKind* kind = channel ? FindKind(channel->Type()) : nullptr;
    if (!kind || kind->list != kListChannels) return;
    const i32 row = kind->categories & kCategoryVector ? i32{ChannelValue::kVectorRow}
                                                       : i32{ChannelValue::kValueRow};
    if (StaysZero(value, row))
      TellNothing(
          value, value,
          fmt::format("'{}' is 0: it adds nothing to {}", NameOf(value, row), Named(*channel)),
          row);
  }

  /// What adds nothing to the field of a pair.
  void CheckAmount(const BaseNode& pair) {
    using Settings = GridEmissionSettings;
    const BaseNode* channel = Linked(pair, ChannelPair::kChannelRow);
    const BaseNode* settings = Linked(pair, ChannelPair::kSettingsRow);
    const NodeKind* kind = channel ? FindKind(channel->Type()) : nullptr;
    constexpr i32 kSet = 1;
    if (!kind || !settings || Whole(*settings, Settings::kModeRow) == kSet) return;
    const bool isVector = (kind->categories & kCategoryVector) != 0;
    const BaseNode* rate = Linked(*settings, Settings::kRateRow);
    const bool hasRate = rate && rate->IsEnabled();
    const BaseNode& holder = hasRate ? *rate : *settings;
    const i32 ofRate = isVector ? EmissionRate::kVectorRow : EmissionRate::kRealRow;
    const i32 own = isVector ? Settings::kVectorAmountRow : Settings::kAmountRow;
    if (const i32 row = hasRate ? ofRate : own; StaysZero(holder, row))
      TellNothing(
          pair, holder,
          fmt::format("'{}' is 0: it adds nothing to {}", NameOf(holder, row), Named(*channel)),
          row);
    constexpr i32 kToLimit = 2;
    const BaseNode* limit = Linked(*settings, Settings::kLimitRow);
    if (Whole(*settings, Settings::kModeRow) == kToLimit && limit && limit->IsEnabled() &&
        StaysZero(*limit, ofRate))
      TellNothing(pair, *limit,
                  fmt::format("'{}' is 0, the limit of {}: it adds nothing to {}",
                              NameOf(*limit, ofRate), Named(*settings), Named(*channel)),
                  ofRate);
    if (IsFlatCurve(*settings, Settings::kFalloffCurveRow) &&
        Whole(*settings, Settings::kFalloffRow) == Settings::kDepthCurve)
      TellNothing(pair, *settings,
                  fmt::format("'{}' is 0 at every depth: it adds nothing to {}",
                              NameOf(*settings, Settings::kFalloffCurveRow), Named(*channel)),
                  Settings::kFalloffCurveRow);
  }
};

}  // namespace

void AddSettingHints(const LoadedScene& scene, const ScenePlaces& places,
                     Diagnostics& diagnostics) {
  SettingHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) hints.LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
