#include "fluids/solvers/fluid_solver.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/flow_cells.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr double kHuge = std::numeric_limits<double>::max();
// Cells between a container and the user's box that aren't worth a flow of their own.
constexpr double kLeastGap = 4;

// By the axis along which there is none.
constexpr const char* kNoCell[3] = {
    "no whole cell fits into its box along x; raise box_size or lower the server's cell_size",
    "no whole cell fits into its box along y; raise box_size or lower the server's cell_size",
    "no whole cell fits into its box along z; raise box_size or lower the server's cell_size"};

ParameterRow WallRow(i32 id, std::string_view name, std::string_view help) {
  return LongRow(id, name, 1, "", help).Choices({{0, "open"}, {1, "closed"}});
}

/// Whole cells, so that a whole number of cells never snaps to its neighbour by rounding.
double CellsUp(double cells) { return std::ceil(cells - 1e-6); }
double CellsDown(double cells) { return std::floor(cells + 1e-6); }

}  // namespace

const NodeKind& FluidSolver::Kind() {
  static const NodeKind kind = {
      .id = 1300002,
      .type = "fluid",
      .label = "Gaseous Dynamics",
      .className = "FluidSolver",
      .typeId = kTypeFluidSolver,
      .list = kListSolvers,
      .flags = "S",
      .stages = {kEmitters, kForcesEmission, kPressure, kFlip},
      .priority = 30,
      .menu = {"Dynamics"},
      .purpose = "the gas itself: the box that it may fill, its walls, its forces and its pressure",
      .example =
          {{},
           {R"({ "type": "force_gravity", "name": "draught", "parameters": { "acceleration": [0, 1, 0] } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150],)",
            R"(  "parameters": { "box_size": [300, 400, 300], "wall_high_y": "open", "forces": ["draught"], "linear_solver": "multigrid" } })"}},
      .rows = Parameters,
      .make = MakeNode<FluidSolver>,
  };
  return kind;
}

const ParameterTable& FluidSolver::Parameters() {
  static const ParameterTable table = {
      LinkRow(kDensityChannelRow, "density_channel",
              "gas of differing weight: a heavy cloud sinks and spreads along the ground")
          .AcceptsAny(kScalarChannels)
          .To(&GasSettings::densityChannel),
      RealRow(kDensityRow, "density", 1.23, "kg/m^3",
              "how heavy the gas is where no channel says so; matters for a viscous one, and once "
              "other bodies push it")
          .AtLeast(1e-6)
          .To(&GasSettings::density),
      LinksRow(kForcesRow, "forces",
               "what moves the gas, by name; none without names, and with null every grid force",
               {})
          .AcceptsAny({kListForces, kCategoryGrid})
          .AllWhenAbsent()
          .To(&GasSettings::forces),
      LongRow(kPaddingRow, "padding_cells", 5, "cells",
              "free air round the smoke: more of it lets eddies form unhindered, at a cost; fewer "
              "than 2 count as 2 where 'container_sides' are free, or smoke would pass them")
          .AtLeast(0)
          .To(&GasSettings::paddingCells),
      VectorRow(kBoxSizeRow, "box_size", {500, 500, 500}, "host",
                "the space that smoke may ever fill; it ends at the walls of this box")
          .Range(1e-6, 1e12)
          .To(&GasSettings::boxSize),
      WallRow(kWallRows[0], "wall_low_x",
              "closed keeps smoke in at the box's low x side, open lets it out there")
          .To(&GasSettings::wallLowX),
      WallRow(kWallRows[1], "wall_high_x",
              "closed keeps smoke in at the box's high x side, open lets it out there")
          .To(&GasSettings::wallHighX),
      WallRow(kWallRows[2], "wall_low_y",
              "the floor of the box: closed carries smoke, open lets it sink through")
          .To(&GasSettings::wallLowY),
      WallRow(kWallRows[3], "wall_high_y",
              "the ceiling of the box: under a closed one smoke spreads, through an open one it "
              "leaves")
          .To(&GasSettings::wallHighY),
      WallRow(kWallRows[4], "wall_low_z",
              "closed keeps smoke in at the box's low z side, open lets it out there")
          .To(&GasSettings::wallLowZ),
      WallRow(kWallRows[5], "wall_high_z",
              "closed keeps smoke in at the box's high z side, open lets it out there")
          .To(&GasSettings::wallHighZ),
      LongRow(kSidesRow, "container_sides", 0, "",
              "inside of the box the cells follow the smoke: free lets the gas beyond them move as "
              "in the whole box, walls ends the gas there as at the box's own sides")
          .Choices({{0, "free"}, {1, "walls"}})
          .To(&GasSettings::containerSides),
      LongRow(1018, "extrapolation_rounds", 3, "cells",
              "how many cells into a solid the flow is continued, so that smoke glides along it")
          .AtLeast(0)
          .To(&GasSettings::extrapolationRounds),
      RealRow(
          kViscosityRow, "viscosity", 0.0, "Pa s",
          "how thick it is: evens out differences of speed and holds what touches solids; air has "
          "0.00002, which shows in the smallest boxes alone")
          .AtLeast(0)
          .To(&GasSettings::viscosity),
      LongRow(kLinearSolverRow, "linear_solver", 2, "",
              "how the pressure is found: multigrid is the quickest, through narrow ways too, "
              "gauss_seidel for a rough look")
          .Choices({{0, "conjugate_gradients"}, {1, "gauss_seidel"}, {2, "multigrid"}})
          .To(&GasSettings::linearSolver),
      LongRow(1021, "max_iterations", 200, "",
              "gives up after that many rounds: too few let smoke shrink and swell")
          .AtLeast(0)
          .To(&GasSettings::maxIterations),
      RealRow(1022, "accuracy", 0.5, "none",
              "how well the gas keeps its volume: 0 is rough and quick, 1 exact")
          .Range(0, 1)
          .To(&GasSettings::accuracy),
      LongRow(1023, "viscosity_option", 2, "",
              "an option of the viscosity solve, kept with the scene")
          .Kept(),
      LongRow(1024, "viscosity_mode", 0, "", "a mode of the viscosity solve, kept with the scene")
          .Kept(),
      VectorRow(kBoxOffsetRow, "box_offset", {0, 0, 0}, "none",
                "where the node stands in its box: 0.5 puts it in the middle, 0 at the low corner")
          .To(&GasSettings::boxOffset),
      RealRow(1035, "solid_blend", 1.0, "none",
              "0 lets gas stick to walls, 1 lets it slide along them freely")
          .Range(0, 1)
          .To(&GasSettings::solidBlend),
      BoolRow(1036, "follow_obstacles", true,
              "a moving obstacle drags the gas along and leaves a wake")
          .To(&GasSettings::followObstacles),
      RealRow(1045, "min_diagonal_ratio", 0.25, "none",
              "keeps conjugate_gradients from going astray in thin gaps; leave it")
          .Range(0, 1)
          .OnlyWith(kLinearSolverRow, {0})
          .To(&GasSettings::minDiagonalRatio),
      RealRow(1046, "preconditioner_modification", 0.97, "none",
              "speeds conjugate_gradients up near 1; the picture doesn't change")
          .Range(0, 1)
          .OnlyWith(kLinearSolverRow, {0})
          .To(&GasSettings::modification),
      BoolRow(1047, "use_body_velocities", false,
              "walls of moving bodies push with the speed of the body itself")
          .To(&GasSettings::useBodyVelocities),
      LinkRow(kViscosityChannelRow, "viscosity_channel",
              "thick and thin gas in one scene: a field of viscosity in Pa s, in the place of "
              "'viscosity'")
          .AcceptsAny(kScalarChannels)
          .To(&GasSettings::viscosityChannel),
      LongRow(kViscosityIterationsRow, "viscosity_iterations", 100, "",
              "the viscosity solve gives up after that many rounds")
          .AtLeast(0)
          .To(&GasSettings::viscosityIterations),
      RealRow(kViscosityToleranceRow, "viscosity_tolerance", 0.2, "none",
              "how rough the viscosity solve may be, in thousandths of what it has to balance")
          .Range(1e-9, 1000)
          .To(&GasSettings::viscosityTolerance),
      LinkRow(1307, "projection_duration",
              "only inside this time window gas keeps its volume; outside, it can be squeezed",
              {Duration::Kind().id})
          .To(&GasSettings::projectionDuration),
      BoolRow(1309, "compatibility", false,
              "kept with the scene; what flows in and out of a closed region is always balanced")
          .Kept(),
  };
  return table;
}

FluidSolver::FluidSolver(BaseNode* node, Scene* scene) : iFluidSolver(node, scene), mFlow(scene) {
  mPressure.Rebind(nullptr, scene);
  mPressure.mFlow = &mFlow;
  mOuter.Rebind(nullptr, scene);
  mOuter.mFlow = &mFlow;
}

// ---- set-up -----------------------------------------------------------------------------------

bool FluidSolver::ReadParameters() {
  if (!iFluidSolver::ReadParameters()) return false;
  mFlow.mExpands = false;
  constexpr u8 bits[6] = {kWallLowX, kWallHighX, kWallLowY, kWallHighY, kWallLowZ, kWallHighZ};
  const i32 closed[6] = {wallLowX, wallHighX, wallLowY, wallHighY, wallLowZ, wallHighZ};
  mUserWalls = 0;
  for (i32 side = 0; side < 6; ++side)
    if (closed[side] != 0) mUserWalls |= bits[side];
  PlaceSides();
  Projection().mLinearSolver = linearSolver;
  mViscosity.mAccuracy = {viscosityIterations, 1e-3 * viscosityTolerance};
  Projection().mDensity = mOuter.mDensity = density;
  Projection().SetAccuracy({maxIterations, ToleranceOfSlider(accuracy)}, modification,
                           minDiagonalRatio);
  return true;
}

bool FluidSolver::ResolveLinks() {
  if (!iFluidSolver::ResolveLinks()) return false;
  Projection().mDensityChannel = densityChannel;
  Projection().mDuration = projectionDuration;
  mForces.mForces.clear();
  for (Force* force : forces)
    if (std::find(mForces.mForces.begin(), mForces.mForces.end(), force) == mForces.mForces.end())
      mForces.mForces.push_back(force);
  CollectObstacles(*mScene, mFlow.mBoundary.mObstacles);
  return true;
}

void FluidSolver::ClearLinks() {
  mFlow.mBoundary.mObstacles.clear();
  mForces.mForces.clear();
  Projection().ClearLinks();
  SetFlag(FLAG_ACTIVE, false);
  iFluidSolver::ClearLinks();
}

void FluidSolver::CheckDirty() {
  iFluidSolver::CheckDirty();
  if ((mScene->mFlags & Scene::kTimeChanged) && mTime->IsUnderWay()) {
    if (!IsDirty()) MarkDirty(false);
  } else {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
}

void FluidSolver::Reset() {
  mFlow.Reset();
  Projection().Reset();
  mOuter.Reset();
  mMaxSpeedSq = 0.001;
  SetFlag(FLAG_ACTIVE, false);
}

void FluidSolver::Release(bool full) {
  if (full) iFluidSolver::Release(true);
  mFlow.Release(full);
  Projection().Release(full);
  mOuter.Release(full);
  mExtrapolation.Release();
  mConstrain.Release();
  mViscosity.Release();
  mMaxSpeedSq = 0.001;
  // Links stay until the frame ends: a box that holds nothing in one step may get its content in
  // the next one, which needs the obstacles and forces.
  SetFlag(FLAG_ACTIVE, false);
}

void FluidSolver::Persist(StateArchive& archive) {
  iFluidSolver::Persist(archive);
  mFlow.Persist(archive);
  Projection().Persist(archive);
  mOuter.Persist(archive);
  archive(mMaxSpeedSq);
}

void FluidSolver::UpdateRange() {
  if (mFlow.mVelocity.GetGrid(2)) mMaxSpeedSq = mFlow.MeasureMaxSpeedSq();
}

bool FluidSolver::TakeCachedPlace(const GridLayout& layout, i32 kind) {
  if (kind != kFaceX) return false;
  mStoredLayout = layout;
  return mHasStoredBox = true;
}

// ---- bounds -----------------------------------------------------------------------------------

void FluidSolver::UserBox(Vec3d& lo, Vec3d& hi) const {
  const GridLayout& domain = GetDomain();
  const Vec3d scale = domain.worldToSim;
  const double voxel = domain.cellSize;
  Matrix placement;
  mInterface.GetMatrix(placement);
  const Vec3d size = boxSize * scale;
  const Vec3d low = placement.offset * scale - size * boxOffset;
  for (int a = 0; a < 3; ++a) {
    lo[a] = CellsUp(low[a] / voxel);
    hi[a] = CellsDown((low[a] + size[a]) / voxel);
  }
}

void FluidSolver::GetUserBox(Vec3d& min, Vec3d& max) const {
  UserBox(min, max);
  const double voxel = GetDomain().cellSize;
  max = Max(max, min + Vec3d{1, 1, 1}) * voxel;
  min *= voxel;
}

bool FluidSolver::GetReach(Vec3d& low, Vec3d& high) const {
  const double voxel = GetDomain().cellSize;
  UserBox(low, high);
  low = (low - Vec3d{1, 1, 1}) * voxel;
  high = (high + Vec3d{1, 1, 1}) * voxel;
  return true;
}

void FluidSolver::ExpandBounds(Vec3d& min, Vec3d& max) {
  const double voxel = GetDomain().cellSize;
  Vec3d lo, hi;
  UserBox(lo, hi);
  lo -= Vec3d{1, 1, 1};
  hi += Vec3d{1, 1, 1};

  for (int a = 0; a < 3; ++a)
    if (hi[a] - lo[a] < 3) {
      Deactivate(kNoCell[a]);
      return;
    }
  bool usable = mTime->stepDuration != 0;
  for (int a = 0; a < 3; ++a) usable = usable && min[a] != kHuge && max[a] != -kHuge;
  // Whole cells from here on, so that a box that stays has the same origin to the last bit.
  Vec3d from, to;
  for (int a = 0; a < 3 && usable; ++a) {
    from[a] = CellsDown(min[a] / voxel);
    to[a] = CellsUp(max[a] / voxel);
    usable = lo[a] <= hi[a] && lo[a] <= to[a] && from[a] <= hi[a];
  }
  if (!usable) {
    Deactivate(kDryReason);
    return;
  }
  const double padding = HasSurroundings() ? std::max(paddingCells, kLeastPadding) : paddingCells;
  const Room room = RoomAhead();
  for (int a = 0; a < 3; ++a) {
    from[a] = std::max(lo[a], from[a] - std::max(padding, room.low[a]));
    to[a] = std::min(hi[a], to[a] + std::max(padding, room.high[a]));
  }
  // What moves across a side pushes on both of its sides: the cells outside are too coarse for it.
  if (HasSurroundings())
    mFlow.mBoundary.WidenToMovers(std::max(padding, kLeastGap), lo, hi, from, to);
  for (int a = 0; a < 3; ++a) {
    if (HasSurroundings()) {
      if (from[a] < lo[a] + kLeastGap) from[a] = lo[a];
      if (to[a] > hi[a] - kLeastGap) to[a] = hi[a];
    }
    // Samples need two cells; the widened box always has them.
    to[a] = std::max(to[a], lo[a] + 2);
    from[a] = std::min(from[a], to[a] - 2);
  }
  min = from * voxel;
  max = to * voxel;
  // A recording of another cell size, or one that was moved, fits no lattice of this scene.
  if (Has(FLAG_CACHED) && mHasStoredBox) mStoredLayout.GetCellBox(voxel, min, max);
  SetFlag(FLAG_ACTIVE, true);
}

u8 FluidSolver::FreeSides() const {
  const GridLayout* layout = mFlow.GetLayout();
  if (containerSides != 0 || !layout) return 0;
  Vec3d lo, hi;
  UserBox(lo, hi);
  u8 free = 0;
  for (int a = 0; a < 3; ++a) {
    if (layout->originCell[a] > lo[a] - 1) free |= kLowWall[a];
    if (layout->originCell[a] + layout->dims[a] < hi[a] + 1) free |= kHighWall[a];
  }
  return free;
}

void FluidSolver::PlaceSides() {
  const u8 free = FreeSides();
  mFlow.mBoundary.mWalls = mUserWalls & static_cast<u8>(~free);
  mPressure.mFarField = free != 0 && HasSurroundings() ? &mOuter : nullptr;
  Vec3d lo, hi;
  UserBox(lo, hi);
  // No lattice goes as far as that.
  const Vec3d most{5e8, 5e8, 5e8};
  mOuter.SetBox(TruncateNudged(Max(lo, -most)), TruncateNudged(Min(hi, most)), mUserWalls, free);
}

bool FluidSolver::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  const bool isCached = Has(FLAG_CACHED);
  const std::optional<GridLayout> before =
      mFlow.GetLayout() ? std::optional(*mFlow.GetLayout()) : std::nullopt;
  const char* problem = Has(FLAG_ACTIVE) ? mFlow.Fit(min, max, isCached) : mInactiveReason;
  if (problem || !Has(FLAG_ACTIVE)) {
    Release(true);
    return Deactivate(problem);
  }
  PlaceSides();
  if (isCached) Projection().Release(true);
  if (isCached || !mPressure.mFarField)
    mOuter.Release(true);
  else if (before && !before->Equals(*mFlow.GetLayout()))
    mOuter.Continue(*before);
  return true;
}

// ---- stages -----------------------------------------------------------------------------------

void FluidSolver::Prepare() {
  if (Has(FLAG_ACTIVE) && IsDirty() && !Has(FLAG_CACHED) && mScene->mStage == kForcesEmission)
    mForces.Prepare(mFlow);
}

void FluidSolver::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE) || !IsDirty() || !mFlow.HasVelocity()) return;
  if (mScene->mStage == kEmitters) {
    mFlow.mHasMoved = false;
    FindViscousReach();
    mFlow.BuildSolids();
    if (mPressure.mFarField && !Has(FLAG_CACHED)) mOuter.BeginStep();
  }
  if (Has(FLAG_CACHED)) return;
  if (mScene->mStage == kForcesEmission) ApplyGridForces();
  if (mScene->mStage == kPressure) {
    ApplyViscosity();
    SolvePressure();
  }
}

void FluidSolver::Finish() {
  if (mScene->mStage == kForcesEmission) mForces.Finish();
  // The step is over for the gas: it rests until the next one finds content in its box.
  if (mScene->mStage == kFlip) SetFlag(FLAG_ACTIVE, false);
}

std::vector<std::string> FluidSolver::TakeWarnings() {
  std::vector<std::string> warnings = Projection().TakeWarnings();
  for (const std::string& warning : mOuter.TakeWarnings())
    warnings.push_back("round the container, " + warning);
  return warnings;
}

bool FluidSolver::ApplyGridForces() {
  BodyLayers& layers = Projection().mLayers;
  layers.OpenForces(mFlow);
  mForces.Run(mFlow);
  layers.CloseForces(mFlow);
  if (mPressure.mFarField) mOuter.AddForce(mForces);
  return true;
}

/// What is thick has no layer of its own along a wall: within four cells it rests with it. Where
/// viscosity reaches less far, the fluid beside the wall slips by what is left.
void FluidSolver::FindViscousReach() {
  double mean = viscosity;
  if (CellSamples thick; viscosityChannel && mFlow.GetLayout() &&
                         thick.Bind(viscosityChannel->GetGrid(0), *mFlow.GetLayout())) {
    struct Sum {
      double value = 0, count = 0;
    };
    const i64 layer = thick.Grid()->mSlice;
    const Sum all = ReduceBlocks(
        thick.Grid()->mNz, mScene->mThreadCount, Sum{},
        [&](i32 z) {
          Sum sum;
          for (i64 i = z * layer; i < (z + 1) * layer; ++i)
            if (const double own = thick.Data()[i]; own > 0) sum.value += own, ++sum.count;
          return sum;
        },
        [](const Sum& a, const Sum& b) {
          return Sum{a.value + b.value, a.count + b.count};
        });
    mean = all.count > 0 ? all.value / all.count : 0.0;
  }
  const double h = GetDomain().cellSize;
  mViscousReach = mean / density * mTime->stepDuration / (h * h);
  mFlow.mWallSlip = (1 - 4 * mViscousReach) / (1 + 4 * mViscousReach);
  const bool isViscous = mViscousReach > 0;
  mConstrain.mSettings = {isViscous ? solidBlend * 0.5 * (1 + mFlow.mWallSlip) : solidBlend,
                          followObstacles, useBodyVelocities || isViscous};
}

bool FluidSolver::ApplyViscosity() {
  if (!IsViscous()) return false;
  const GridLayout& layout = *mFlow.GetLayout();
  CellSamples thick, heavy;
  ViscousFluid fluid{.viscosity = viscosity, .density = density};
  if (viscosityChannel) {
    fluid.viscosity = 0;
    if (!thick.Bind(viscosityChannel->GetGrid(0), layout)) return false;
    fluid.viscosities = thick.Grid();
  }
  if (densityChannel && heavy.Bind(densityChannel->GetGrid(0), layout))
    fluid.densities = heavy.Grid();
  return mViscosity.Apply(mFlow, fluid);
}

void FluidSolver::ContinueVelocity() {
  mExtrapolation.ExtendVelocity(mFlow, extrapolationRounds);
  mFlow.SetWallVelocities(0.0);
  mConstrain.Run(mFlow);
}

bool FluidSolver::SolvePressure() {
  mFlow.SetWallVelocities(1.0);
  mConstrain.Run(mFlow);
  mPressure.Project();
  ContinueVelocity();
  if (mPressure.mFarField) mOuter.EndStep();
  mFlow.mDivergence.Reset();
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
