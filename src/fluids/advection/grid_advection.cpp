#include "fluids/advection/grid_advection.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/flow_cells.h"
#include "fluids/flow/wall_velocities.h"
#include "framework/dead_link.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr i32 kLeastOrder = 1;  // of the paths of conservative schemes: those of order 0 make holes

const ThinFaces* ThinFacesOf(const Flow& flow) {
  return flow.mThinFaces.HasAny() ? &flow.mThinFaces : nullptr;
}

}  // namespace

const NodeKind& GridAdvection::Kind() {
  static const NodeKind kind = {
      .id = 1300122,
      .type = "grid_advection",
      .label = "GOP::Advection",
      .className = "GridAdvection",
      .list = kListOperators,
      .categories = kCategoryGrid,
      .flags = "SI",
      .stages = {kAdvection},
      .priority = 5,
      .menu = {"Grids/Operators"},
      .purpose = "moves a field, or the velocity itself, along with the flow",
      .example =
          {{},
           {example::kSmoke, example::kGas,
            R"({ "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas", "path_integration": "heun" } })",
            R"({ "type": "grid_advection", "name": "move gas", "parameters": { "target": "gas", "solver": "gas" } })"}},
      .rows = Parameters,
      .make = MakeNode<GridAdvection>,
  };
  return kind;
}

const ParameterTable& GridAdvection::Parameters() {
  static const ParameterTable table = {
      LinkRow(kTargetRow, "target",
              "what is carried along: a field; the solver, or nothing, means the flow itself")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&GridAdvection::mScalarTarget)
          .To(&GridAdvection::mVectorTarget)
          .To(&GridAdvection::mSolverTarget)
          .RestsWhereDead()
          .Writes(),
      LongRow(kSchemeRow, "scheme", 1, "",
              "sharper or safer: semi_lagrangian blurs, MacCormack keeps detail, the conservative "
              "ones lose no smoke")
          .Choices({{0, "semi_lagrangian"},
                    {1, "maccormack"},
                    {2, "conservative"},
                    {3, "conservative_maccormack"}})
          .To(&GridAdvection::mScheme),
      LongRow(
          kPathRow, "path_integration", kAutomaticPath, "",
          "how exactly curved paths are followed: euler is fast and loses smoke in whirls, heun "
          "keeps thin ones round; automatic is heun for fields, euler for the velocity; "
          "conservative schemes take heun for euler")
          .Choices({{0, "euler"},
                    {1, "heun"},
                    {2, "runge_kutta_3"},
                    {3, "runge_kutta_4"},
                    {kAutomaticPath, "automatic"}})
          .To(&GridAdvection::mTraceOrder),
      LongRow(1004, "sampling", 0, "",
              "how the field is read between cells: cubic ways stay sharper than linear")
          .Choices({{0, "linear"}, {1, "bspline"}, {2, "monotonic_cubic"}})
          .To(&GridAdvection::mSampling),
      LinkRow(kSolverRow, "solver", "whose flow carries it")
          .AcceptsAny(kSolvers)
          .Required()
          .WritesWithout(kTargetRow)
          .To(&GridAdvection::mNamedSolver),
      RealRow(1007, "strength", 1.0, "none",
              "how much of the detail MacCormack brings back: lower is calmer")
          .AtLeast(0)
          .OnlyWith(kSchemeRow, {1})
          .To(&GridAdvection::mStrength),
  };
  return table;
}

GridAdvection::GridAdvection(BaseNode* node, Scene* scene) : iObject(node, scene) {}

void GridAdvection::Reset() {
  iObject::Reset();
  mConservative.Release();
  mWatch.Reset();
  mSolidWatch.Reset();
  mHasToldSolids = false;
  mWarnings.clear();
  mIsBooking = mIsStirred = mMetMover = false;
  mOwed = 0;
}

void GridAdvection::Release(bool full) {
  if (full) iObject::Release(true);
  mConservative.Release();
  for (auto& spline : mSplines) spline.reset();
  mOutflow.reset();
  mThinning.reset();
}

bool GridAdvection::ResolveLinks() {
  mSolver = nullptr;
  if (!iObject::ResolveLinks() || !mNamedSolver) return false;
  mSolver = mSolverTarget ? mSolverTarget : mNamedSolver;
  return true;
}

void GridAdvection::ClearLinks() {
  mSolver = nullptr;
  iObject::ClearLinks();
}

bool GridAdvection::CommutesWith(const iBase& other) const {
  const auto* advection = dynamic_cast<const GridAdvection*>(&other);
  if (!advection || !mSolver || !advection->mSolver || advection->mSolver == mSolver) return false;
  // A reach ends a cell outside of its box.
  const double cell = GetDomain().cellSize;
  const Vec3d inside{1.5 * cell, 1.5 * cell, 1.5 * cell};
  Vec3d low, high, otherLow, otherHigh;
  if (!mSolver->GetReach(low, high) || !advection->mSolver->GetReach(otherLow, otherHigh))
    return false;
  return !BoxesMeet(low + inside, high - inside, otherLow, otherHigh);
}

bool GridAdvection::HandsOver(const iBase& field) const {
  return mSolver && HasConservativeScheme() && mScalarTarget == &field;
}

iBase* GridAdvection::Target() const {
  if (mScalarTarget) return mScalarTarget;
  if (mVectorTarget) return mVectorTarget;
  return mSolver;
}

void GridAdvection::CheckDirty() {
  iObject::CheckDirty();
  mMovedByCompanion = false;
  iBase* target = Target();
  if (IsDirty()) {
    if (target) target->MarkDirty(false);
  } else if ((mScene->mFlags & Scene::kTimeChanged) && mTime->IsUnderWay()) {
    if (target) target->MarkDirty(false);
    MarkDirty(false);
  } else {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
}

void GridAdvection::Prepare() {
  if (mMovedByCompanion) return;
  SetFlag(FLAG_ACTIVE, false);
  const auto hasData = [](const EGrid<double>* grid) { return grid && grid->mData; };
  if (RestsByDeadLink(*this)) return;
  if (!mSolver) return (void)Deactivate("it has no solver; name one under 'solver'");
  if (Target()->Has(FLAG_CACHED)) return (void)Deactivate(kPlayedTargetReason);
  for (i32 axis = 0; axis < 3; ++axis)
    if (!hasData(mSolver->GetFlow().mVelocity.GetGrid(axis)))
      return (void)Deactivate("its solver has no velocity");
  if (mScalarTarget) {
    if (!hasData(mScalarTarget->GetGrid(0))) return (void)Deactivate("its target has no grid");
    if (!mScalarTarget->mPrevious) return (void)Deactivate("its target keeps no second buffer");
    mScalarTarget->BookEmission();  // what nobody has booked came from a cache
    mScalarTarget->SwapBuffers();
    mIsBooking = mScalarTarget->IsAccounted();
    mLeft = mTrapped = mGain = 0;
  } else {
    VectorField& target = mVectorTarget ? *mVectorTarget : mSolver->GetFlow().mVelocity;
    for (i32 i = 0; i < 3; ++i) {
      if (!hasData(target.GetGrid(i))) return (void)Deactivate("its target has no grid");
      if (!target.mPrevious[i]) return (void)Deactivate("its target keeps no second buffer");
    }
    target.SwapBuffers();
  }
  SetFlag(FLAG_ACTIVE, true);
}

bool GridAdvection::IsCompanion(const GridAdvection& other) const {
  return mScalarTarget && other.mScalarTarget && other.Has(FLAG_ENABLED) &&
         other.mSolver == mSolver && other.mScheme == mScheme && other.PathOrder() == PathOrder() &&
         other.mSampling == mSampling;
}

i32 GridAdvection::PathOrder() const {
  if (mTraceOrder != kAutomaticPath) return mTraceOrder;
  return mScalarTarget || mVectorTarget ? 1 : 0;
}

bool GridAdvection::HasConservativeScheme() const {
  return mScalarTarget && mScheme >= static_cast<i32>(AdvectionScheme::Conservative);
}

AdvectedField GridAdvection::PrepareTarget() {
  PrepareSource(*mScalarTarget->mPrevious);
  return {.source = mScalarTarget->mPrevious.get(),
          .destination = mScalarTarget->GetGridForWrite(0),
          .strength = mStrength,
          .walls = WallValues(),
          .isAmount = mScalarTarget->IsAccounted(),
          .isTotalKnown = IsTotalKnown(),
          .gain = mGain - mLeft};
}

ScalarWalls::Values GridAdvection::WallValues() const {
  return {.nothing = mScalarTarget->mValueMin,
          .outside = std::max(mScalarTarget->mInitial, mScalarTarget->mValueMin),
          .initial = mScalarTarget->mInitial};
}

i32 GridAdvection::HandOverReach() const {
  return 1 + static_cast<i32>(std::ceil(mSolver->GetFlow().ObstacleTravel()));
}

std::vector<AdvectedField> GridAdvection::TakeCompanions(const std::vector<iObject*>& group) {
  std::vector<AdvectedField> fields{PrepareTarget()};
  const EGrid<double>& shape = *fields.front().source;
  std::vector<const ScalarField*> targets{mScalarTarget};
  auto next = std::find(group.begin(), group.end(), this);
  if (next == group.end()) return fields;
  // Only those that follow at once: whatever ran in between may change what they read.
  while (++next != group.end() && fields.size() < ScratchGrids::kSlots) {
    auto* other = dynamic_cast<GridAdvection*>(*next);
    if (!other || !IsCompanion(*other)) break;
    if (std::find(targets.begin(), targets.end(), other->mScalarTarget) != targets.end()) break;
    const EGrid<double>* grid = other->mScalarTarget->GetGrid(0);
    if (!grid || grid->mKind != shape.mKind || grid->Dims() != shape.Dims()) break;
    if (other->mMetMover || other->OwesTotal() || other->FindStirred(grid)) break;
    other->SetStirred(nullptr);
    other->Prepare();
    if (!other->Has(FLAG_ACTIVE)) break;
    other->mMovedByCompanion = true;
    targets.push_back(other->mScalarTarget);
    fields.push_back(other->PrepareTarget());
  }
  return fields;
}

void GridAdvection::Evaluate(const EvaluationThreadData& block) {
  if (!Has(FLAG_ACTIVE) || std::exchange(mMovedByCompanion, false)) return;
  VelocityField& field = mSolver->GetFlow().mVelocity;
  // All things move through the velocity as it was before this stage, which is free of divergence,
  // whether it moves before them or behind.
  if (!mScalarTarget && !mVectorTarget) mSolver->GetFlow().mHasMoved = true;
  StaggeredGrids grids;
  for (i32 axis = 0; axis < 3; ++axis)
    grids[axis] =
        mSolver->GetFlow().mHasMoved ? field.mPrevious[axis].get() : field.GetGridForWrite(axis);
  // The projection leaves resting layers behind walls. A gas without viscosity slips along them:
  // sampled as they are, they would brake whatever moves beside a wall.
  SetWallTangents(grids, mSolver->GetFlow().mBoundary.mWalls, mSolver->GetFlow().mWallSlip);
  const std::array<const EGrid<double>*, 3> velocity = {grids[0], grids[1], grids[2]};

  if (mScalarTarget) {
    SetStirred(mScalarTarget->mPrevious.get());
    if (block.objects && !IsConservative() && IsOnFlow(*mScalarTarget->mPrevious))
      AdvectGrids(TakeCompanions(*block.objects), velocity);
    else
      MoveGrid(*mScalarTarget->mPrevious, *mScalarTarget->GetGridForWrite(0), velocity);
  } else {
    VectorField& target = mVectorTarget ? *mVectorTarget : field;
    for (i32 i = 0; i < 3; ++i)
      if (!MoveGrid(*target.mPrevious[i], *target.GetGridForWrite(i), velocity)) break;
  }
}

void GridAdvection::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  mConservative.Persist(archive);
  archive(mMetMover, mOwed, mHasToldSolids);
  mWatch.Persist(archive);
  mSolidWatch.Persist(archive);
}

bool GridAdvection::IsOnFlow(const EGrid<double>& grid) const {
  const GridLayout& layout = *mSolver->GetFlow().GetLayout();
  return grid.mLayout.dims == layout.dims && grid.mLayout.originCell == layout.originCell;
}

bool GridAdvection::MoveGrid(EGrid<double>& source, EGrid<double>& destination,
                             const Velocity& velocity) {
  if (IsOnFlow(source)) return MoveOnFlow(source, destination, velocity);
  // With several solvers a field covers the boxes of all: each carries what lies in its own.
  if (destination.Dims() != source.Dims()) return false;
  std::copy_n(source.mData, source.mCount, destination.mData);
  const GridLayout& layout = *mSolver->GetFlow().GetLayout();
  const auto from = PartOver(source, layout), to = PartOver(source, layout);
  if (!from || !to || !MoveOnFlow(*from, *to, velocity)) return false;
  PutBack(*to, destination);
  return true;
}

bool GridAdvection::MoveOnFlow(EGrid<double>& source, EGrid<double>& destination,
                               const Velocity& velocity) {
  AdvectedField field{.source = &source, .destination = &destination, .strength = mStrength};
  if (!mScalarTarget) return AdvectGrids({field}, velocity);
  PrepareSource(source);
  if (IsConservative()) return MoveConservative(source, destination, velocity);
  field.walls = WallValues();
  field.isAmount = mScalarTarget->IsAccounted();
  field.isTotalKnown = IsTotalKnown();
  field.gain = mGain - mLeft;
  return AdvectGrids({field}, velocity);
}

bool GridAdvection::MoveConservative(const EGrid<double>& source, EGrid<double>& destination,
                                     const Velocity& velocity) {
  if (destination.Dims() != source.Dims()) return false;
  const double nothing = mScalarTarget->mValueMin;
  const ConservativeAdvection::Flow flow{.velocity = {*velocity[0], *velocity[1], *velocity[2]},
                                         .boundary = &mSolver->GetFlow().mBoundary,
                                         .solidCells = mSolver->GetFlow().mSolidCells.Get(),
                                         .wallCells = &mSolver->GetFlow().mWallCells,
                                         .thin = ThinFacesOf(mSolver->GetFlow()),
                                         .reach = HandOverReach(),
                                         .nothing = nothing > -kUnbounded ? nothing : 0.0,
                                         .order = std::max(PathOrder(), kLeastOrder),
                                         .step = mTime->stepDuration,
                                         .threads = mScene->mThreadCount};
  const bool sharp = mScheme == static_cast<i32>(AdvectionScheme::ConservativeMacCormack) ||
                     (IsCorrected() && mStrength > 0);
  const bool done = !IsCancelled() && mConservative.Advect(flow, source, destination, sharp);
  if (done)
    mLeft += mConservative.Left();
  else
    std::copy_n(source.mData, source.mCount, destination.mData);  // as it was
  return done;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
