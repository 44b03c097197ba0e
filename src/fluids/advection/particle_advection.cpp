#include "fluids/advection/particle_advection.h"

#include <algorithm>

#include "fluids/advection/particle_mover.h"
#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/wall_velocities.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleAdvection::Kind() {
  static const NodeKind kind = {
      .id = 1300126,
      .type = "particle_advection",
      .label = "POP::Advection",
      .className = "ParticleAdvection",
      .typeId = 106,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kAdvection},
      .priority = 10,
      .menu = {"Particles/Operators"},
      .purpose = "moves particles with a flow, or lets them fly, and stops them at what is solid",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleAdvection>,
  };
  return kind;
}

const ParameterTable& ParticleAdvection::Parameters() {
  static const ParameterTable table = {
      LinkRow(kGroupRow, "group", "whose particles move", {ParticleGroup::kNodeType})
          .To(&ParticleAdvection::mGroup)
          .Writes()
          .Required(),
      LongRow(kKindRow, "kind", kLiquid, "", "which particles of the group move")
          .Choices(ParticleKindChoices())
          .To(&ParticleAdvection::mKind),
      LongRow(kMotionRow, "motion", kGrid, "",
              "grid: a flow carries them; ballistic: they fly; grid_then_ballistic: they fly where "
              "no flow is")
          .Choices({{kOff, "off"},
                    {kGrid, "grid"},
                    {kBallistic, "ballistic"},
                    {kGridThenBallistic, "grid_then_ballistic"}})
          .To(&ParticleAdvection::mMode),
      AbsentLinksRow(kSolversRow, "solvers",
                     "whose flows carry them, the first that holds a particle; without the list "
                     "the liquid whose particles they are, or else all of the scene")
          .AcceptsAny(kSolvers)
          .AllWhenAbsent()
          .To(&ParticleAdvection::mNamedSolvers),
      LongRow(kSolverListRow, "solver_list", 1, "",
              "whether 'solvers' names those that carry, or those that don't")
          .Choices({{0, "exclude"}, {1, "include"}})
          .Missing(i32{0})
          .To(&ParticleAdvection::mListMode),
      LongRow(1009, "path_integration", 1, "",
              "how exactly curved paths are followed: heun keeps thin whirls round")
          .Choices({{0, "euler"}, {1, "heun"}, {2, "runge_kutta_3"}, {3, "runge_kutta_4"}})
          .OnlyWith(kMotionRow, {kGrid, kGridThenBallistic})
          .To(&ParticleAdvection::mOrder),
      LongRow(kIntegratorRow, "integrator", ParticleMotion::kEuler, "",
              "how free flight is computed; after verlet the velocity is the way of a substep")
          .Choices({{ParticleMotion::kEuler, "euler"},
                    {ParticleMotion::kVerlet, "verlet"},
                    {ParticleMotion::kVelocityVerlet, "velocity_verlet"}})
          .To(&ParticleAdvection::mIntegrator),
      LongRow(1013, "extra_substeps", 1, "",
              "parts of a step beyond the first one: more follow fast whirls")
          .Range(0, 255)
          .To(&ParticleAdvection::mExtraSubsteps),
      LongRow(kCollisionRow, "collision", ParticleMotion::kLevelSet, "",
              "what stops them: walls and all obstacles, one by one, or the level set in which the "
              "flow has both; where no flow is, obstacles")
          .Choices({{ParticleMotion::kNoCollision, "none"},
                    {ParticleMotion::kWallsAndVolumes, "walls_and_volumes"},
                    {ParticleMotion::kLevelSet, "level_set"}})
          .To(&ParticleAdvection::mCollision),
      RealRow(1015, "collision_offset", 0.001, "none",
              "how far off a surface they stop: in cells in a flow, in simulation units at "
              "obstacles one by one")
          .AtLeast(0)
          .To(&ParticleAdvection::mOffset),
      RealRow(kRestitutionRow, "restitution", 0.0, "none",
              "how high those that fly bounce: 0 slides on, 1 comes all the way back")
          .Range(0, 1)
          .OnlyWith(kCollisionRow, {ParticleMotion::kWallsAndVolumes, ParticleMotion::kLevelSet})
          .To(&ParticleAdvection::mRestitution),
      RealRow(kDragRow, "drag", 0.0, "1/s",
              "how soon those that fly in a flow take on its velocity; they sink by gravity / drag")
          .AtLeast(0)
          .OnlyWith(1010, {ParticleMotion::kEuler, ParticleMotion::kVelocityVerlet})
          .To(&ParticleAdvection::mDrag),
      LinksRow(1002, "on_collision", "what happens to those that hit something")
          .AcceptsAny({kListAuxiliary, kCategoryInstant})
          .To(&ParticleAdvection::mOperators),
      BoolRow(kKillOutsideRow, "kill_outside", true,
              "those that leave through an open side are gone; kept, they fly on with "
              "grid_then_ballistic as 'motion', and with grid they go on along the side without "
              "weight")
          .To(&ParticleAdvection::mKillsOutside),
      BoolRow(
          1016, "take_velocity", false,
          "what a flow carries gets the velocity of its way, for pictures and files; particles of "
          "a liquid have theirs from it")
          .OnlyWith(kMotionRow, {kGrid, kGridThenBallistic})
          .To(&ParticleAdvection::mTakesVelocity),
  };
  return table;
}

ParticleAdvection::ParticleAdvection(BaseNode* node, Scene* scene) : iObject(node, scene) {}

void ParticleAdvection::ClearLinks() {
  mMotion = {};
  iObject::ClearLinks();
}

void ParticleAdvection::CheckDirty() {
  iObject::CheckDirty();
  const bool works = (mScene->mFlags & Scene::kTimeChanged) && mTime->IsUnderWay();
  if (!works)
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  else if (!IsDirty())
    MarkDirty(false);
}

bool ParticleAdvection::CommutesWith(const iBase& other) const {
  const auto* advection = dynamic_cast<const ParticleAdvection*>(&other);
  return advection && (advection->mGroup != mGroup || advection->mKind != mKind);
}

bool ParticleAdvection::IsTheirLiquid(const iFluidSolver& solver) const {
  const std::vector<ParticleGroup*>* groups = mKind == kLiquid ? solver.LiquidGroups() : nullptr;
  return groups && std::find(groups->begin(), groups->end(), mGroup) != groups->end();
}

std::vector<iFluidSolver*> ParticleAdvection::Solvers() const {
  std::vector<iFluidSolver*> solvers;
  const bool isOpen = !Node() || !Node()->Get(kSolversRow);
  if (!isOpen && mListMode != 0) {
    for (iFluidSolver* solver : mNamedSolvers)
      if (solver->Has(FLAG_ENABLED)) solvers.push_back(solver);
    return solvers;
  }
  for (const auto& [id, object] : mScene->List(kListSolvers)) {
    auto* solver = dynamic_cast<iFluidSolver*>(object.get());
    const bool isNamed =
        std::find(mNamedSolvers.begin(), mNamedSolvers.end(), solver) != mNamedSolvers.end();
    if (solver && solver->Has(FLAG_ENABLED) && (isOpen || !isNamed)) solvers.push_back(solver);
  }
  // Water goes with its own flow, whatever else fills the place.
  const auto isTheirs = [&](const iFluidSolver* solver) { return IsTheirLiquid(*solver); };
  if (isOpen && std::any_of(solvers.begin(), solvers.end(), isTheirs))
    std::erase_if(solvers, [&](const iFluidSolver* solver) { return !isTheirs(solver); });
  // Where two flows hold a particle, names decide between them, not the order of the file.
  std::sort(solvers.begin(), solvers.end(),
            [](const iBase* a, const iBase* b) { return a->Node()->Path() < b->Node()->Path(); });
  return solvers;
}

void ParticleAdvection::CollectFlows(const std::vector<iFluidSolver*>& solvers) {
  for (iFluidSolver* solver : solvers) {
    Flow& flow = solver->GetFlow();
    if (!flow.HasVelocity()) continue;
    StaggeredGrids grids;
    for (i32 axis = 0; axis < 3; ++axis)
      grids[axis] = flow.mHasMoved ? flow.mVelocity.mPrevious[axis].get()
                                   : flow.mVelocity.GetGridForWrite(axis);
    if (!grids[0] || !grids[1] || !grids[2]) continue;
    // A gas without viscosity slips along its walls, though the projection leaves layers at rest
    // behind them.
    SetWallTangents(grids, flow.mBoundary.mWalls, flow.mWallSlip);
    // Beyond its cells a liquid that goes too far in a step would miss all that is solid.
    mMotion.flows.emplace_back(StaggeredVelocity(*grids[0], *grids[1], *grids[2]), flow.mBoundary,
                               solver->FreeSides(), solver->LiquidGroups() != nullptr);
  }
}

void ParticleAdvection::WatchSleepers() {
  std::vector<VolumeBase*> obstacles;
  CollectObstacles(*mScene, obstacles);
  mWatch.Collect(obstacles);
  if (!mWatch.IsEmpty()) mMotion.watch = &mWatch;
}

void ParticleAdvection::CollectVolumes() {
  // The level set of a flow has the obstacles already; what flies outside of it meets them one by
  // one.
  if (mCollision == ParticleMotion::kNoCollision ||
      (mCollision == ParticleMotion::kLevelSet && !mMotion.flows.empty() && mMode == kGrid))
    return;
  std::vector<VolumeBase*> obstacles;
  CollectObstacles(*mScene, obstacles);
  for (const VolumeBase* obstacle : obstacles)
    if (VolumeSolid solid(*obstacle); obstacle->Has(FLAG_ENABLED) && !solid.IsEmpty())
      mMotion.volumes.push_back(std::move(solid));
}

void ParticleAdvection::Prepare() {
  SetFlag(FLAG_ACTIVE, false);
  mMotion = {};
  if (mTime->stepDuration == 0) return void(Deactivate(kNoStepReason));
  if (mMode == kOff) return void(Deactivate(kOffReason));
  if (!mGroup) return void(Deactivate("it has no particles; name their group under 'group'"));
  if (!IsParticleKind(mKind)) return void(Deactivate("there is no such kind of particles"));
  if (mGroup->IsCached(mKind)) return void(Deactivate(kPlayedParticlesReason));
  if (mGroup->Count(mKind) == 0) return void(Deactivate(kNoParticlesReason));
  mMotion.takesVelocity = mTakesVelocity;
  if (UsesFlows() || mDrag > 0) {
    const std::vector<iFluidSolver*> solvers = Solvers();
    // A liquid takes its velocity from its particles, and gives it back itself.
    for (const iFluidSolver* solver : solvers)
      if (IsTheirLiquid(*solver)) mMotion.takesVelocity = false;
    if (solvers.empty() && mMode == kGrid)
      return void(Deactivate(mNamedSolvers.empty() ? kNoFlowReason : kNoFlowLeftReason));
    CollectFlows(solvers);
    if (mMode == kGrid && mMotion.flows.empty()) return void(Deactivate(kNoGridReason));
  }
  CollectVolumes();
  if (mCollision != ParticleMotion::kNoCollision) WatchSleepers();
  mMotion.carries = UsesFlows();
  mMotion.fliesOutside = mMode == kBallistic || mMode == kGridThenBallistic;
  mMotion.order = mOrder;
  mMotion.integrator = mIntegrator;
  mMotion.substeps = mExtraSubsteps + 1;
  mMotion.collision = mCollision;
  mMotion.offset = mOffset;
  mMotion.restitution = mRestitution;
  mMotion.drag = mDrag;
  // What a flow only brakes isn't in its box.
  mMotion.killsOutside = mKillsOutside && UsesFlows();
  mMotion.step = mTime->stepDuration;
  mMotion.gravity = mScene->mGravity;
  mMotion.isFirst = mTime->substep <= 1;
  mMotion.isLast = mTime->isLastSubstep != 0;
  for (InstantOperator* each : mOperators)
    if (each->Has(FLAG_ENABLED)) mMotion.operators.push_back(each);
  for (InstantOperator* each : mMotion.operators) each->Attach(*this, mGroup->Store(mKind));
  mMotion.RequireColumns(mGroup->Store(mKind));
  SetFlag(FLAG_ACTIVE, true);
}

void ParticleAdvection::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  ParticleStore& store = mGroup->Store(mKind);
  const IndexRange rows = store.PartOf(data.index, data.count);
  constexpr i32 kRun = 64 * 64;
  for (i32 first = rows.first; first < rows.last && !data.TestBreak(); first += kRun)
    MoveParticles(mMotion, store, {first, std::min(first + kRun, rows.last)},
                  static_cast<u32>(data.index));
}

void ParticleAdvection::Finish() {
  if (Has(FLAG_ACTIVE)) mGroup->MarkTreeStale(mKind);
  mWatch.Wake();
  for (InstantOperator* each : mMotion.operators) each->End();
  mMotion = {};
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
