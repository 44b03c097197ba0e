#include "fluids/solvers/fluid_solver.h"

#include <limits>

#include "fluids/flow/wall_velocities.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr double kHuge = std::numeric_limits<double>::max();

ParameterRow WallRow(i32 id, std::string_view name, std::string_view help) {
  return LongRow(id, name, 1, "", help).Choices({{0, "open"}, {1, "closed"}});
}

/// Whole cells, so that a whole number of cells never snaps to its neighbour by rounding.
double CellsUp(double cells) { return std::ceil(cells - 1e-6); }
double CellsDown(double cells) { return std::floor(cells + 1e-6); }

/// The largest magnitude; eight lanes, so that the loop runs at the speed of memory.
double LargestMagnitude(const double* values, i64 count) {
  double most[8] = {};
  i64 i = 0;
  for (; i + 8 <= count; i += 8)
    for (int lane = 0; lane < 8; ++lane) {
      const double v = std::abs(values[i + lane]);
      most[lane] = v > most[lane] ? v : most[lane];
    }
  for (; i < count; ++i) most[0] = std::max(most[0], std::abs(values[i]));
  return *std::max_element(most, most + 8);
}

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
      LinkRow(1000, "density_channel",
              "gas of differing weight: a heavy cloud sinks and spreads along the ground",
              {1300027, 1300028, 1300029, 1300112}),
      RealRow(1001, "density", 1.23, "kg/m^3",
              "how heavy the gas is where no channel says so; matters once other bodies push it")
          .AtLeast(1e-6),
      LinksRow(1008, "forces",
               "what moves the gas, by name; none without names, and with null every grid force",
               {1300014, 1300015, 1300016, 1300017, 1300089, 1300115, 1300142, 1300161, 13000141}),
      LongRow(1009, "padding_cells", 5, "cells",
              "free air round the smoke: more of it lets eddies form unhindered, at a cost")
          .AtLeast(0),
      VectorRow(1010, "box_size", {500, 500, 500}, "host",
                "the space that smoke may ever fill; it ends at the walls of this box"),
      WallRow(1011, "wall_low_x",
              "closed keeps smoke in at the box's low x side, open lets it out there"),
      WallRow(1012, "wall_high_x",
              "closed keeps smoke in at the box's high x side, open lets it out there"),
      WallRow(1013, "wall_low_y",
              "the floor of the box: closed carries smoke, open lets it sink through"),
      WallRow(1014, "wall_high_y",
              "the ceiling of the box: under a closed one smoke spreads, through an open one it "
              "leaves"),
      WallRow(1015, "wall_low_z",
              "closed keeps smoke in at the box's low z side, open lets it out there"),
      WallRow(1016, "wall_high_z",
              "closed keeps smoke in at the box's high z side, open lets it out there"),
      LongRow(1018, "extrapolation_rounds", 3, "cells",
              "how many cells into a solid the flow is continued, so that smoke glides along it")
          .AtLeast(0),
      RealRow(
          1019, "viscosity", 0.0, "",
          "honey instead of air: slows differences of speed; acts once the viscosity solve does")
          .AtLeast(0),
      LongRow(1020, "linear_solver", 1, "",
              "how the pressure is found: multigrid is the quickest for large boxes, gauss_seidel "
              "for a rough look")
          .Choices({{0, "conjugate_gradients"}, {1, "gauss_seidel"}, {2, "multigrid"}}),
      LongRow(1021, "max_iterations", 200, "",
              "gives up after that many rounds: too few let smoke shrink and swell")
          .AtLeast(0),
      RealRow(1022, "accuracy", 0.5, "",
              "how well the gas keeps its volume: 0 is rough and quick, 1 exact")
          .Range(0, 1),
      LongRow(1023, "viscosity_option", 2, "",
              "an option of the viscosity solve, kept with the scene"),
      LongRow(1024, "viscosity_mode", 0, "", "a mode of the viscosity solve, kept with the scene"),
      VectorRow(1028, "box_offset", {0, 0, 0}, "",
                "where the node stands in its box: 0.5 puts it in the middle, 0 at the low corner"),
      RealRow(1035, "solid_blend", 1.0, "",
              "0 lets gas stick to walls, 1 lets it slide along them freely")
          .Range(0, 1),
      BoolRow(1036, "follow_obstacles", true,
              "a moving obstacle drags the gas along and leaves a wake"),
      RealRow(1045, "min_diagonal_ratio", 0.25, "",
              "keeps conjugate_gradients from going astray in thin gaps; leave it")
          .Range(0, 1),
      RealRow(1046, "preconditioner_modification", 0.97, "",
              "speeds conjugate_gradients up near 1; the picture doesn't change")
          .Range(0, 1),
      BoolRow(1047, "use_body_velocities", false,
              "walls of moving bodies push with the speed of the body itself"),
      LinkRow(1300, "viscosity_channel", "thick and thin gas in one scene: a field of viscosity",
              {1300027, 1300028, 1300029, 1300112}),
      LongRow(1301, "viscosity_iterations", 100, "",
              "how hard the viscosity solve works before it gives up"),
      RealRow(1302, "viscosity_tolerance", 0.2, "", "how rough the viscosity solve may be"),
      LinkRow(1307, "projection_duration",
              "only inside this time window gas keeps its volume; outside, it can be squeezed",
              {1028240}),
      BoolRow(1309, "compatibility", false,
              "kept with the scene; what flows in and out of a closed region is always balanced"),
  };
  return table;
}

FluidSolver::FluidSolver(BaseNode* node, Scene* scene) : iFluidSolver(node, scene) {
  mVelocity.mValueMin = {-kHuge, -kHuge, -kHuge};
  mVelocity.mValueMax = {kHuge, kHuge, kHuge};
  mDivergence.SetRange(-kHuge, kHuge);
  BindMembers(node, scene);
}

FluidSolver::FluidSolver(const FluidSolver& other)
    : iFluidSolver(other),
      mVelocity(other.mVelocity),
      mFractions(other.mFractions),
      mBoundary(other.mBoundary),
      mForces(other.mForces),
      mConstrain(other.mConstrain),
      mExtrapolation(other.mExtrapolation),
      mDivergence(other.mDivergence),
      mPressure(other.mPressure),
      mMaxSpeedSq(other.mMaxSpeedSq),
      mPadding(other.mPadding),
      mBoxSize(other.mBoxSize),
      mBoxOffset(other.mBoxOffset),
      mHasStoredBox(other.mHasStoredBox),
      mStoredLayout(other.mStoredLayout) {
  LinkMembers();
  if (other.mWorkers) CreateWorkers();
}

void FluidSolver::BindMembers(BaseNode* node, Scene* scene) {
  // Channels of a solver have no parameters of their own; the operators read the solver's.
  for (iBase* channel : {static_cast<iBase*>(&mVelocity), static_cast<iBase*>(&mDivergence),
                         static_cast<iBase*>(&mBoundary.mLevelSet)})
    channel->Rebind(nullptr, scene);
  for (iBase* member : {static_cast<iBase*>(&mFractions), static_cast<iBase*>(&mBoundary),
                        static_cast<iBase*>(&mForces), static_cast<iBase*>(&mConstrain),
                        static_cast<iBase*>(&mExtrapolation), static_cast<iBase*>(&mPressure)})
    member->Rebind(node, scene);
  LinkMembers();
}

void FluidSolver::LinkMembers() {
  mPressure.mSolver = this;
  mForces.mSolver = this;
  mConstrain.mSolver = this;
  mExtrapolation.mSolver = this;
}

// ---- set-up -----------------------------------------------------------------------------------

bool FluidSolver::ReadParameters(void* context) {
  if (!iFluidSolver::ReadParameters(context)) return false;
  mExpands = false;
  mVelocity.ReadParameters();
  mBoundary.ReadParameters();
  mPressure.ReadParameters();
  mExtrapolation.ReadParameters();
  mConstrain.ReadParameters();
  mForces.ReadParameters();
  mFractions.ReadParameters();
  mFractions.mMethod = FractionMethod::Analytic;
  mFractions.mInvert = true;
  mFractions.mKinds = kFractionCell | kFractionFaces;
  mFractions.mLeast = kLeastOpening;
  if (!Has(FLAG_ACTIVE)) mBoundary.MarkDirty(false);

  mPadding = mInterface.GetLong(1009) * static_cast<double>(GetDomain().cellSize);
  mBoxSize = mInterface.GetVector(1010);
  mBoxOffset = mInterface.GetVector(1028);
  return true;
}

bool FluidSolver::ResolveLinks() {
  if (!iFluidSolver::ResolveLinks()) return false;
  LinkMembers();
  mPressure.ResolveLinks();
  mBoundary.ResolveLinks();
  mFractions.ResolveLinks();
  mForces.ResolveLinks();
  mExtrapolation.ResolveLinks();
  mConstrain.ResolveLinks();
  return true;
}

void FluidSolver::ClearLinks() {
  mBoundary.ClearLinks();
  mPressure.ClearLinks();
  mForces.ClearLinks();
  mFractions.ClearLinks();
  mConstrain.ClearLinks();
  mExtrapolation.ClearLinks();
  SetFlag(FLAG_ACTIVE, false);
  iFluidSolver::ClearLinks();
}

void FluidSolver::CheckDirty() {
  mForces.CheckDirty();
  iFluidSolver::CheckDirty();
  if ((mScene->mFlags & Scene::kTimeChanged) && mTime->IsUnderWay()) {
    if (!IsDirty()) MarkDirty(false);
  } else {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
}

void FluidSolver::Reset() {
  mVelocity.Reset();
  mBoundary.Reset();
  mPressure.Reset();
  mDivergence.Reset();
  mForces.Reset();
  mFractions.Reset();
  mMaxSpeedSq = 0.001;
  SetFlag(FLAG_ACTIVE, false);
}

void FluidSolver::Release(bool full) {
  if (full) iFluidSolver::Release(true);
  ReleaseWorkers();
  mVelocity.Release(full);
  mBoundary.Release(full);
  mPressure.Release(full);
  mDivergence.Release(full);
  mForces.Release(full);
  mExtrapolation.Release(full);
  mFractions.Release(full);
  mSolidCells.Release();
  mScratch.Release();
  mMaxSpeedSq = 0.001;
  ClearLinks();
  SetFlag(FLAG_ACTIVE, false);
}

void FluidSolver::Persist(StateArchive& archive) {
  iFluidSolver::Persist(archive);
  for (iBase* member : {static_cast<iBase*>(&mVelocity), static_cast<iBase*>(&mDivergence),
                        static_cast<iBase*>(&mBoundary), static_cast<iBase*>(&mForces),
                        static_cast<iBase*>(&mConstrain), static_cast<iBase*>(&mExtrapolation),
                        static_cast<iBase*>(&mPressure), static_cast<iBase*>(&mFractions)})
    member->Persist(archive);
  archive(mMaxSpeedSq);
}

void FluidSolver::GetName(std::string& out) const {
  switch (mScene ? mScene->mStage : 0) {
    case kEmitters: out = "Initialise Boundaries & Threads"; break;
    case kForcesEmission: out = "GOP::Grid Forces"; break;
    case kPressure: out = "GOP::Divergence & Pressure Solver"; break;
    case kFlip: out = "Free Data"; break;
    default: out = mName;
  }
}

void FluidSolver::UpdateRange() {
  if (!mVelocity.GetGrid(2)) return;
  const i32 threads = mScene->mThreadCount;
  double sum = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& g = *mVelocity.GetGrid(axis);
    const double top = MaxBlocks(g.mCount, 1 << 16, threads, [&](i64 first, i64 last) {
      return LargestMagnitude(g.mData + first, last - first);
    });
    sum += top * top;
  }
  mMaxSpeedSq = std::max(sum, 1e-8);
}

bool FluidSolver::ContainsPoint(const Vec3d& world) const {
  const GridLayout* layout = GetLayout();
  if (!layout) return false;
  for (int a = 0; a < 3; ++a)
    if (!(world[a] > layout->simOrigin[a] + layout->cellSize &&
          world[a] < layout->simMax[a] - layout->cellSize))
      return false;
  return true;
}

const GridLayout* FluidSolver::GetLayout() const {
  const EGrid<double>* u = mVelocity.GetGrid(0);
  return u ? &u->mLayout : nullptr;
}

const EGrid<float>* FluidSolver::GetOpenFaces(i32 axis) const {
  if (!mFractions.HasField(axis, 1)) return nullptr;
  const EGrid<float>* open = mFractions.GetRead(axis, 1);
  const EGrid<double>* velocity = mVelocity.GetGrid(axis);
  return open && open->mData && velocity && open->Dims() == velocity->Dims() ? open : nullptr;
}

bool FluidSolver::HasVelocity() const {
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>* g = mVelocity.GetGrid(axis);
    if (!g || !g->mData) return false;
  }
  return true;
}

// ---- bounds -----------------------------------------------------------------------------------

void FluidSolver::UserBox(Vec3d& lo, Vec3d& hi) const {
  const GridLayout& domain = GetDomain();
  const Vec3d scale = domain.worldToSim;
  const double voxel = domain.cellSize;
  Matrix placement;
  mInterface.GetMatrix(placement);
  const Vec3d size = mBoxSize * scale;
  const Vec3d low = placement.offset * scale - size * mBoxOffset;
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

void FluidSolver::ExpandBounds(Vec3d& min, Vec3d& max) {
  const double voxel = GetDomain().cellSize;
  Vec3d lo, hi;
  UserBox(lo, hi);
  lo -= Vec3d{1, 1, 1};
  hi += Vec3d{1, 1, 1};

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
    Deactivate(
        "no emitter fills anything in its box; it begins at its position, its lowest corner, and "
        "its "
        "box_size is in host units");
    return;
  }
  const double padding = std::round(mPadding / voxel);
  for (int a = 0; a < 3; ++a) {
    from[a] = std::max(lo[a], from[a] - padding);
    to[a] = std::min(hi[a], to[a] + padding);
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

bool FluidSolver::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  const GridLayout before = GetLayout() ? *GetLayout() : GetDomain();
  const auto fail = [&](const char* reason) {
    Release(true);
    return Deactivate(reason);
  };
  if (!Has(FLAG_ACTIVE)) return fail(mInactiveReason);
  const bool cached = Has(FLAG_CACHED);
  mVelocity.SetFlag(FLAG_CACHED, cached);
  if (!mVelocity.ApplyBounds(min, max)) return fail("its velocity grids couldn't be allocated");
  if (cached) mPressure.Release(true);
  const bool hasSolids = cached || (mBoundary.GetLevelSet() && mDivergence.GetGrid(0));
  if (hasSolids && GetLayout() && GetLayout()->Equals(before)) {
    SetFlag(FLAG_ACTIVE, true);
    return true;
  }
  if (!mBoundary.ApplyBounds(min, max)) return fail("its solid level set couldn't be allocated");
  if (cached) {
    mDivergence.Release(true);
    return true;
  }
  const bool fresh = !mDivergence.GetGrid(0);
  mDivergence.mKind = kCentre;
  mDivergence.SetRange(-kHuge, kHuge);
  mDivergence.ApplyBounds(min, max);
  if (fresh) mDivergence.Reset();
  return true;
}

// ---- stages -----------------------------------------------------------------------------------

void FluidSolver::ReleaseWorkers() {
  mWorkers.reset();
  SetFlag(FLAG_ACTIVE, false);
}

void FluidSolver::CreateWorkers() {
  mWorkers.reset();
  if (!GetLayout()) return;
  mWorkers = std::make_unique<Workers>();
  mWorkers->SetRegion({0, 0, 0}, GetLayout()->dims);
  MPdata data;
  data.thread = mScene->mThread;
  data.user = static_cast<iObject*>(this);
  if (!mWorkers->Init(data, mScene->mThreadCount)) mWorkers.reset();
}

void FluidSolver::RunOnWorkers(iObject& target) {
  if (!mWorkers) return;
  mWorkers->SetTarget(&target);
  mWorkers->Run();
}

void FluidSolver::RunPasses(iObject& target) {
  while (target.NextPass())
    if (target.Has(FLAG_ACTIVE)) RunOnWorkers(target);
}

void FluidSolver::Project() {
  while (mPressure.NextPass()) {
    mPressure.Prepare();
    // The solve has shared itself out already.
    if (mPressure.Has(FLAG_ACTIVE) && !mPressure.IsSolving()) RunOnWorkers(mPressure);
    mPressure.Finish();
  }
}

void FluidSolver::Prepare(void*) {
  if (!Has(FLAG_ACTIVE) || !IsDirty()) return;
  switch (mScene->mStage) {
    case kEmitters:
      CreateWorkers();
      mBoundary.Prepare(this);
      mFractions.mSource.grid = mBoundary.GetLevelSet();
      mFractions.mSource.layout = GetLayout();
      mFractions.Prepare(this);
      if (mFractions.HasFields())
        for (i32 axis = 0; axis < 3; ++axis) mFractions.ZeroWallFaces(axis, mBoundary.mWalls);
      break;
    case kForcesEmission:
      if (!Has(FLAG_CACHED)) mForces.Prepare(this);
      break;
    default: break;
  }
}

void FluidSolver::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE) || !IsDirty() || !mWorkers || !HasVelocity()) return;
  switch (mScene->mStage) {
    case kEmitters: BuildSolids(); break;
    case kForcesEmission:
      if (!Has(FLAG_CACHED)) ApplyGridForces();
      break;
    case kPressure:
      if (Has(FLAG_CACHED)) break;
      mConstrain.Prepare(this);
      ApplyViscosity();
      SolvePressure(true);
      break;
    default: break;
  }
}

void FluidSolver::Finish() {
  if (mScene->mStage == kForcesEmission) mForces.Finish();
  if (mScene->mStage == kFlip) ReleaseWorkers();
}

void FluidSolver::BuildSolids() {
  const EGrid<double>* levelSet = mBoundary.GetLevelSet();
  if (!levelSet || !levelSet->mData) return mSolidCells.Release();
  if (!mBoundary.IsDirty() && !(mScene->mFlags & Scene::kTimeChanged)) return;
  mBoundary.Reset();
  RunOnWorkers(mBoundary);
  RunOnWorkers(mFractions);
  mBoundary.ComputeActiveBox();
  mSolidCells.Build(*levelSet, mScene->mThreadCount);
}

bool FluidSolver::ApplyGridForces() {
  RunPasses(mForces);
  return true;
}

bool FluidSolver::ApplyViscosity() { return true; }

void FluidSolver::SetWallVelocities(double factor) {
  MELDO_SULVA::SetWallVelocities(
      {mVelocity.GetGridForWrite(0), mVelocity.GetGridForWrite(1), mVelocity.GetGridForWrite(2)},
      mBoundary.mWalls, factor);
}

bool FluidSolver::SolvePressure(bool) {
  if (!mWorkers) return false;
  SetWallVelocities(1.0);
  RunPasses(mConstrain);
  Project();
  ExtrapolateVelocity();
  SetWallVelocities(0.0);
  mConstrain.Prepare(this);
  RunPasses(mConstrain);
  mConstrain.Finish();
  mDivergence.Reset();
  return true;
}

void FluidSolver::ExtrapolateVelocity() {
  mExtrapolation.mPass = -1;
  mExtrapolation.NextPass();
  mExtrapolation.Prepare(this);
  for (i32 axis = 0; axis < 3; ++axis) {
    mExtrapolation.mPass = -1;
    mExtrapolation.SelectAxis(axis);
    RunPasses(mExtrapolation);
  }
  mExtrapolation.Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
