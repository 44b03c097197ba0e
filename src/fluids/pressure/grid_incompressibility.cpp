#include "fluids/pressure/grid_incompressibility.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "fluids/pressure/bound_fluid.h"
#include "fluids/pressure/projection_lines.h"
#include "fluids/pressure/seepage.h"
#include "fluids/volume/volume_base.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kSqueezeRate = 1e-3;  // of a room's volume in a second, below which no one is told
constexpr double kSqueezeCells = 8;    // the least volume of a room, in cells
constexpr double kMuchLeft = 0.01;  // residual of a solve that ran out of iterations, which is told
constexpr double kLeftByRounding = 1e-12;  // of what flows in a cell, at most

}  // namespace

LatticeSolver& Grid_Incompressibility::Used() {
  return *LinearSolvers()[std::clamp(SolverInUse(), 0, 2)];
}

i32 Grid_Incompressibility::Threads() const {
  return mScene ? mScene->mThreadCount : host::ThreadCount();
}

void Grid_Incompressibility::SetAccuracy(const SolverAccuracy& accuracy, double modification,
                                         double minDiagonalRatio) {
  for (LatticeSolver* solver : LinearSolvers()) {
    solver->Rebind(nullptr, mScene);
    solver->mAccuracy = accuracy;
  }
  mCG.mModification = modification;
  mCG.mMinDiagonalRatio = minDiagonalRatio;
}

void Grid_Incompressibility::ClearLinks() {
  mDensityChannel = nullptr;
  mDuration = nullptr;
  for (LatticeSolver* solver : LinearSolvers()) solver->Release(false);
  iObject::ClearLinks();
}

void Grid_Incompressibility::Reset() {
  for (LatticeSolver* solver : LinearSolvers()) solver->Reset();
  mReports.clear();
  mLedger = {};
  mWatch.Reset();
  mLayers.Clear();
  mDivergenceMax = 0;
  mWarned = 0;
  mWarnings.clear();
}

void Grid_Incompressibility::Release(bool full) {
  if (full) {
    iObject::Release(full);
    mLayers.Clear();
  }
  for (LatticeSolver* solver : LinearSolvers()) solver->Release(full);
}

bool Grid_Incompressibility::GatherFields(ProjectionFields& fields) {
  if (!mFlow) return false;
  const Grid_VolumeFractions& fractions = mFlow->mFractions;
  for (i32 axis = 0; axis < 3; ++axis) {
    fields.velocity[axis] = mFlow->mVelocity.GetGrid(axis);
    fields.open[axis] = fractions.HasField(axis, 1) ? fractions.GetRead(axis, 1) : nullptr;
    if (!fields.velocity[axis] || !fields.open[axis]) return false;
  }
  fields.openCell = fractions.HasField(0, 0) ? fractions.GetRead(0, 0) : nullptr;
  fields.source = mFlow->mDivergence.GetGrid(0);
  if (mDensities.Bind(mDensityChannel ? mDensityChannel->GetGrid(0) : nullptr, *mFlow->GetLayout()))
    mFaceDensities.Find(*mDensities.Grid(), *mFlow, fields);
  fields.dt = mTime ? mTime->stepDuration : 0;
  return fields.openCell && fields.dt > 0;
}

void Grid_Incompressibility::GatherSolids(std::vector<MovingBody>& moving,
                                          std::vector<const VolumeBase*>& resting) const {
  for (const VolumeBase* volume : mFlow->mBoundary.mObstacles) {
    if (!volume->Has(FLAG_ENABLED) || !volume->HasGridData()) continue;
    const Mesh* mesh = volume->GetMesh();
    MovingBody body{.volume = volume};
    if (mesh && mesh->IsDeforming()) {
      body.perStep = mesh->GetObstacle().linearTransfer / mFields.dt;
    } else if (mesh && !mesh->IsStatic()) {
      mesh->GetCentre(body.centre);
      mesh->GetVelocities(body.linear, body.angular);
      body.linear = body.linear / mFields.dt;
      body.angular = body.angular / mFields.dt;
    }
    if (mesh && mesh->IsDynamic()) body.state = mesh->GetBody();
    if (!body.state && body.perStep == 0 && body.linear == Vec3d{} && body.angular == Vec3d{})
      resting.push_back(volume);
    else
      moving.push_back(body);
  }
}

bool Grid_Incompressibility::PrepareSystem() {
  mFields = {};
  mMoving.clear();
  mResting.clear();
  mBodies.Clear();
  if (!GatherFields(mFields)) return Deactivate("it has no velocity or no face fractions");
  const GridLayout& layout = mFields.velocity[0]->mLayout;
  mCells = layout.dims;
  mCellSize = layout.cellSize;
  if (mFields.density[0] && mFields.density[0]->Dims() != mCells) mFields.density = {};
  if (mFields.source && mFields.source->Dims() != mCells) mFields.source = nullptr;
  GatherSolids(mMoving, mResting);
  for (MovingBody& body : mMoving)
    if (body.state) body.coupled = mBodies.Add(*body.state);
  mIsBound.assign(mBodies.Count(), false);
  mCoupling.resize(mCells.z);
  for (auto& layer : mCoupling) layer.clear();
  LatticeSolver* used = &Used();
  for (LatticeSolver* solver : LinearSolvers())
    if (solver != used) solver->Release(true);
  used->mDims = mCells;
  used->mThreads = Threads();
  used->mOwner = this;
  used->Prepare();
  if (!used->Has(FLAG_ACTIVE)) return Deactivate(used->mInactiveReason);
  SetFlag(FLAG_ACTIVE, true);
  return true;
}

void Grid_Incompressibility::ForEachLayer(void (Grid_Incompressibility::*work)(const CellBox&)) {
  ForEachBlock(mCells.z, Threads(), [&](i32 z) {
    (this->*work)({{0, 0, z}, {mCells.x, mCells.y, z + 1}});
  });
}

void Grid_Incompressibility::Assemble() {
  for (auto& layer : mCoupling) layer.clear();
  mBodyRows.resize(mBodies.IsEmpty() ? 0 : mCells.z);
  if (!mMoving.empty()) ForEachLayer(&Grid_Incompressibility::AddBodyCoupling);
  ForEachLayer(&Grid_Incompressibility::BuildSystem);
  if (!mBodies.IsEmpty()) CollectBodyRows();
  mFarLayers = {};
  if (mFarField) AddFarField();
  BalanceRegions();
}

void Grid_Incompressibility::CollectBodyRows() {
  for (i32 b = 0; b < mBodies.Count(); ++b) mBodies.Rows(b).clear();
  for (const SolidPush::BodyRows& layer : mBodyRows)
    for (const auto& [body, row] : layer) mBodies.Rows(body).push_back(row);
  LetSeep();
  if (!mFields.density[0]) BindFluid();
  mBodies.Close(Used().GetMatrix().Diagonal(), mCellSize, mFields.dt);
}

void Grid_Incompressibility::LetSeep() {
  const Seepage seepage(mFields, mMoving);
  for (const MovingBody& body : mMoving) {
    if (body.coupled < 0) continue;
    for (const BodyRow& row : seepage.Spread(body, mBodies.Rows(body.coupled))) {
      const double push = row.Of(body.linear, body.angular) / mCellSize;
      Used().GetRhs()[row.cell] += push;
      auto& terms = mCoupling[row.cell / (mCells.x * mCells.y)];
      const auto term = TermOf(row.cell);
      if (term != terms.end() && term->cell == row.cell)
        term->value += push;
      else
        terms.insert(term, {row.cell, push});
    }
  }
}

void Grid_Incompressibility::BindFluid() {
  for (const MovingBody& body : mMoving) {
    if (body.coupled < 0 || !(body.state->Density() > 0)) continue;
    const BodyLedger::Follower* follower = mBodyLedger ? mBodyLedger->Find(body.volume) : nullptr;
    const BoundFluid bound = FindBoundFluid(mFields, mBodies.Rows(body.coupled), body,
                                            body.state->Mass() / body.state->Density());
    mIsBound[body.coupled] = bound.volume != Vec3d{};
    const Vec3d change = mLayers.ForcedChange(body);
    const Vec3d* left = mLayers.Find(body);
    const Vec3d layer = left ? *left + change : bound.velocity;
    // Its weight is that of the body's own shape, what it moves that of the particles.
    Vec3d mass = bound.volume * mDensity, momentum = mass * (follower ? change : layer);
    if (follower) {
      mass = follower->mass;
      momentum += follower->momentum;
    }
    mBodies.Bind(body.coupled, mass, momentum, body.linear);
    BodyCoupling::Skew skew{.guess = body.state->LinearVelocity()};
    skew.before = follower ? change + skew.guess : layer;
    // Round a centre that was told, water may turn it.
    const Mesh* mesh = body.volume->GetMesh();
    const bool isEven = !mesh || !mesh->GetObstacle().centre;
    for (i32 axis = 0; axis < 3; ++axis) {
      skew.push[axis] = bound.push[axis] * mDensity;
      skew.turn[axis] = bound.turn[axis] * (isEven ? mDensity : 0);
    }
    mBodies.Straighten(body.coupled, skew);
  }
}

bool Grid_Incompressibility::Project() {
  mLayers.Begin();
  double weight = 1;
  if (mDuration && mDuration->Has(FLAG_ENABLED) && mTime &&
      !mDuration->Weight(mTime->elapsed, weight))
    return Deactivate(kOverReason);
  const auto begin = std::chrono::steady_clock::now();
  if (!PrepareSystem()) return false;
  Assemble();
  Solve();
  Settle();
  if (!mBodies.IsEmpty()) PressBodies();
  KeepFarField();
  ForEachLayer(&Grid_Incompressibility::SubtractGradient);
  MeasureDivergence();
  mFarLayers = {};
  mFields = {};
  mDensities.Release();
  mFaceDensities.Release();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  if (!mReports.empty()) mReports.back().wallSeconds = taken.count();
  return true;
}

void Grid_Incompressibility::Solve() {
  mReports.emplace_back();
  if (SolverInUse() == 1) return SweepGauss();
  ConjugateGradients& solver = UsedIteration();
  solver.mBodies = mBodies.IsEmpty() ? nullptr : &mBodies;
  solver.mFloor = mRegions.Noise();
  solver.Solve();
  TakeReport(solver);
}

void Grid_Incompressibility::SolveOn() {
  if (SolverInUse() == 1) return SweepGauss();
  ConjugateGradients& solver = UsedIteration();
  solver.mBodies = mBodies.IsEmpty() ? nullptr : &mBodies;
  solver.mFloor = mRegions.Noise();
  solver.Continue();
  TakeReport(solver);
}

void Grid_Incompressibility::SweepGauss() {
  do mGauss.Sweep();
  while (mGauss.WantsSweep());
  mReports.back() = {mGauss.mIterations, mGauss.MeasureResidual()};
  mLargestRhs = 0;  // measured just now
}

void Grid_Incompressibility::TakeReport(const ConjugateGradients& solver) {
  mLargestRhs = solver.mLargest;
  mReports.back() = {solver.mIterations, solver.mResidual};
  CheckSolve(solver.mEnd);
}

void Grid_Incompressibility::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  // Of the last projection, which may lie frames back, and what was told up to it.
  archive(mDivergenceMax, mWarned);
  mWatch.Persist(archive);
  mLayers.Persist(archive);
}

std::span<const double> Grid_Incompressibility::GetPressure() const { return Used().GetResult(); }

std::vector<ProjectionReport> Grid_Incompressibility::TakeReports() {
  return std::exchange(mReports, {});
}

void Grid_Incompressibility::BuildSystem(const CellBox& block) {
  WithDensity(mFields, mDensity, mFields.dt / (mCellSize * mCellSize), [&](const auto& face) {
    ForEachCellLine(mFields, block, [&](const CellLine& line, i32 first, i32 last) {
      BuildLine(line, face, 1.0 / mCellSize, Used().GetMatrix(), Used().GetRhs(), first, last);
    });
  });
}

template <class F>
void Grid_Incompressibility::ForEachFarFace(F&& f) const {
  const i32 offsets[3] = {1, mCells.x, mCells.x * mCells.y};
  for (const SideLayer& layer : mFarLayers) {
    const i32 axis = layer.axis, p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
    const EGrid<float>& open = *mFields.open[axis];
    for (i32 j = 1; j < mCells[q] - 1; ++j)
      for (i32 i = 1; i < mCells[p] - 1; ++i) {
        VecInt3D face;
        face[axis] = layer.high ? mCells[axis] - 1 : 1;
        face[p] = i, face[q] = j;
        const i32 above = (mCells.y * face.z + face.y) * mCells.x + face.x;
        const i32 below = above - offsets[axis];
        f(axis, layer.high ? below : above, layer.high ? above : below,
          layer.pressure[i64{mCells[p]} * j + i], open(face.x, face.y, face.z));
      }
  }
}

void Grid_Incompressibility::AddFarField() {
  mFarLayers = mFarField->FindPressures(mFields, Used().GetRhs());
  const std::span<double> rhs = Used().GetRhs();
  WithDensity(mFields, mDensity, mFields.dt / (mCellSize * mCellSize), [&](const auto& law) {
    ForEachFarFace([&](i32 axis, i32 inner, i32 outer, double pressure, double open) {
      rhs[inner] += open * law.Along(axis)(inner, outer) * pressure;
    });
  });
}

void Grid_Incompressibility::KeepFarField() {
  const std::span<double> p = Used().GetResult();
  ForEachFarFace([&](i32, i32, i32 outer, double pressure, double) { p[outer] = pressure; });
}

void Grid_Incompressibility::SubtractGradient(const CellBox& block) {
  WithDensity(mFields, mDensity, mFields.dt / mCellSize, [&](const auto& face) {
    ForEachFaceLine(mFields, GetPressure().data(), block,
                    [&](const FaceLine& line) { UpdateLine(line, face); });
  });
}

void Grid_Incompressibility::AddBodyCoupling(const CellBox& block) {
  const SolidPush push(mFields, mMoving, mResting);
  const CellBox box = Clip(push.Reach(block), {1, 1, 1}, mCells - VecInt3D{1, 1, 1});
  const std::span<double> rhs = Used().GetRhs();
  const bool isCoupled = !mBodies.IsEmpty();
  SolidPush::BodyRows rows;
  if (isCoupled) mBodyRows[block.min.z].clear();
  for (i32 z = box.min.z; z < box.max.z; ++z) {
    if (IsCancelled()) return;
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const CellLine line(mFields, y, z);
      for (i32 x = box.min.x; x < box.max.x; ++x) {
        const bool hasRow = line.HasRow(x);
        // Where a body's faces are in the air tells how much of it is in the liquid.
        if (line.IsClear(x) || !(hasRow || isCoupled)) continue;
        const double b = push.Balance(x, y, z, isCoupled ? &rows : nullptr);
        if (isCoupled) mBodyRows[z].insert(mBodyRows[z].end(), rows.begin(), rows.end());
        if (!hasRow || (b == 0 && rows.empty())) continue;
        rhs[line.cell + x] += b;
        mCoupling[z].push_back({line.cell + x, b});
      }
    }
  }
}

void Grid_Incompressibility::BalanceRegions() {
  mRegions.Find(mFields, mCells, Threads());
  if (!mBodies.IsEmpty()) OpenCoupledRegions();
  for (i32 b = 0; b < mBodies.Count(); ++b) {
    Vec3d linear, angular;
    mBodies.BoundChange(b, linear, angular);
    if (linear != Vec3d{} || angular != Vec3d{}) AddPush(b, linear, angular, Used().GetRhs());
  }
  mRegions.Balance(mFields, Used().GetRhs(), Threads());
  if (!(mWarned & kSqueezed)) CheckRegions();
}

Grid_Incompressibility::Balance Grid_Incompressibility::MeasureLayer(i32 z) const {
  auto coupling = mCoupling[z].cbegin();
  Balance sums;
  for (const RegionRun& run : mRegions.Runs(z)) {
    const Region& region = mRegions.Of(run);
    const CellLine line(mFields, run.y, z);
    for (i32 x = run.first; x < run.last; ++x) {
      const double source = line.Source(x), shift = ClosedRegions::Shift(region, line.openCell[x]);
      double pushed = 0;
      if (coupling != mCoupling[z].cend() && coupling->cell == line.cell + x)
        pushed = (coupling++)->value;
      const double out = line.Divergence(x, 1.0 / mCellSize);
      const double rest = std::fabs(source + shift + pushed - out);
      sums.largest = std::max(sums.largest, rest);
      sums.made += source;
      sums.solids += pushed;
      sums.squeezed += shift;
      sums.left += out;
      sums.drift += rest;
      sums.volume += line.openCell[x];
    }
  }
  return sums;
}

void Grid_Incompressibility::MeasureDivergence() {
  const Balance all = ReduceBlocks(
      std::max(0, mCells.z - 2), Threads(), Balance{}, [&](i32 z) { return MeasureLayer(z + 1); },
      [](const Balance& a, const Balance& b) {
        return Balance{std::max(a.largest, b.largest),
                       a.made + b.made,
                       a.solids + b.solids,
                       a.squeezed + b.squeezed,
                       a.left + b.left,
                       a.drift + b.drift,
                       a.volume + b.volume};
      });
  mDivergenceMax = all.largest;
  Book(all);
  // Solvers track their residual, which rounding can part from what is there.
  if (!mReports.empty() && mLargestRhs > 0) mReports.back().residual = mDivergenceMax / mLargestRhs;
}

// ---- bodies -----------------------------------------------------------------------------------

void Grid_Incompressibility::OpenCoupledRegions() {
  constexpr double kByRounding =
      1e-2;  // of the areas, what doors open by a hair leave of their sum
  struct Sum {
    Vec3d area{}, moment{};
    double size = 0;
  };
  std::vector<Sum> sums(mRegions.All().size());
  for (i32 b = 0; b < mBodies.Count(); ++b) {
    std::fill(sums.begin(), sums.end(), Sum{});
    std::vector<BodyRow>& rows = mBodies.Rows(b);
    std::vector<i32> region(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
      region[i] = mRegions.RegionAt(rows[i].cell);
      if (region[i] < 0 || !mRegions.All()[region[i]].isClosed) continue;
      Sum& sum = sums[region[i]];
      sum.area += rows[i].area;
      sum.moment += rows[i].moment;
      sum.size += Length(rows[i].area);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (region[i] < 0 || !mRegions.All()[region[i]].isClosed) continue;
      const Sum& sum = sums[region[i]];
      if (Length(sum.area) > kByRounding * sum.size) {
        mRegions.Open(region[i]);  // the body is a piston: what it takes here it gives elsewhere
        continue;
      }
      const double share = Length(rows[i].area) / std::max(sum.size, 1e-300);
      rows[i].area -= sum.area * share;
      rows[i].moment -= sum.moment * share;
    }
  }
}

void Grid_Incompressibility::PressBodies() {
  for (i32 b = 0; b < mBodies.Count(); ++b) {
    Vec3d impulse, turn, linear, angular;
    mBodies.ImpulseOf(b, GetPressure().data(), impulse, turn);
    mBodies.Answer(b, impulse, turn, linear, angular);
    AddPush(b, linear, angular, {});
    mBodies.TakeOwnPart(b, impulse, turn);
    mBodies.Of(b).TakeFluidImpulse(impulse, turn, mFields.dt);
  }
  for (const MovingBody& body : mMoving) {
    if (body.coupled < 0 || !mIsBound[body.coupled]) continue;
    Vec3d linear, angular;
    body.state->GetFlowVelocities(linear, angular);
    mLayers.Keep(body, linear);
  }
}

void Grid_Incompressibility::AddPush(i32 body, const Vec3d& linear, const Vec3d& angular,
                                     std::span<double> rhs) {
  for (const BodyRow& row : mBodies.Rows(body)) {
    const double push = row.Of(linear, angular) / mCellSize;
    if (!rhs.empty()) rhs[row.cell] += push;
    const auto term = TermOf(row.cell);
    if (term != mCoupling[row.cell / (mCells.x * mCells.y)].end() && term->cell == row.cell)
      term->value += push;
  }
}

std::vector<Grid_Incompressibility::CouplingTerm>::iterator Grid_Incompressibility::TermOf(
    i32 cell) {
  auto& terms = mCoupling[cell / (mCells.x * mCells.y)];
  return std::lower_bound(terms.begin(), terms.end(), cell,
                          [](const CouplingTerm& t, i32 c) { return t.cell < c; });
}

// ---- warnings ---------------------------------------------------------------------------------

Vec3d Grid_Incompressibility::PlaceOf(const VecInt3D& cell) const {
  const GridLayout& layout = mFields.velocity[0]->mLayout;
  return (layout.simOrigin + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell) *
         layout.simToWorld;
}

double Grid_Incompressibility::PushedInto(const Region& region) const {
  double pushed = 0;
  for (i32 z = 1; z < mCells.z - 1; ++z) {
    auto term = mCoupling[z].cbegin();
    for (const RegionRun& run : mRegions.Runs(z)) {
      const i32 line = mFields.openCell->Index(0, run.y, z);
      for (; term != mCoupling[z].cend() && term->cell < line + run.last; ++term)
        if (&mRegions.Of(run) == &region) pushed += term->value;
    }
  }
  return pushed;
}

void Grid_Incompressibility::CheckRegions() {
  const Region* worst = nullptr;
  double rate = kSqueezeRate;
  for (const Region& region : mRegions.All()) {
    if (!region.isClosed || region.volume < kSqueezeCells) continue;
    // Of a flow that blows up the balance is what rounding left.
    if (!(std::fabs(region.balance) > kLeftByRounding * region.cells * region.rest)) continue;
    if (!(std::fabs(region.Squeeze()) > rate) || !IsConcern(region)) continue;
    rate = std::fabs(region.Squeeze());
    worst = &region;
  }
  if (!worst) return;
  const bool isPushed =
      std::fabs(PushedInto(*worst)) > 0.5 * std::fabs(worst->balance);  // else by what is made
  const Vec3d at = PlaceOf(worst->first);
  Warn(kSqueezed,
       fmt::format("{} a sealed room of {} cells, one of them at [{:.4g}, {:.4g}, {:.4g}], by "
                   "{:.3g} % a second at {:.3g} s; the {} there can't keep its volume{}",
                   isPushed             ? std::string("a moving obstacle squeezes or stretches")
                   : worst->balance > 0 ? mMatter + " that expands squeezes what is in"
                                        : mMatter + " that shrinks stretches what is in",
                   CellsOf(*worst), at.x, at.y, at.z, 100 * rate, SecondsSoFar(), mMatter,
                   isPushed ? "" : "; an open side of the box would let it"));
}

void Grid_Incompressibility::CheckSolve(SolveEnd end) {
  if (end == SolveEnd::Grew || end == SolveEnd::Stalled)
    Warn(kUnsolved, fmt::format("the pressure solve {} at {:.3g} s and was stopped at its best, a "
                                "residual of {:.2g}",
                                end == SolveEnd::Grew ? "went astray" : "came no further",
                                SecondsSoFar(), mReports.back().residual));
  if (const ProjectionReport& report = mReports.back();
      end == SolveEnd::OutOfIterations && report.residual > kMuchLeft)
    Warn(kUnsolved, fmt::format("the pressure solve ended after {} iterations at {:.3g} s with a "
                                "residual of {:.2g}; 'multigrid' as 'linear_solver' or more "
                                "'max_iterations' bring it down",
                                report.iterations, SecondsSoFar(), report.residual));
}

void Grid_Incompressibility::Book(const Balance& balance) {
  const double cell = mCellSize * mCellSize * mCellSize, volume = cell * mFields.dt;
  mLedger.made += balance.made * volume;
  mLedger.solids += balance.solids * volume;
  mLedger.squeezed += balance.squeezed * volume;
  mLedger.left += balance.left * volume;
  mLedger.drift += balance.drift * volume;
  const auto share = mWatch.Add({.seconds = mFields.dt,
                                 .drift = balance.drift * volume,
                                 .given = std::fabs(balance.made) * volume,
                                 .there = balance.volume * cell});
  if (share)
    Warn(kDrifts, fmt::format("the pressure solve leaves {:.2g} % of the {} squeezed or stretched "
                              "a second at {:.3g} s; 'multigrid' as 'linear_solver', a higher "
                              "'accuracy' or more 'max_iterations' keep it",
                              100 * *share, mMatter, SecondsSoFar()));
}

void Grid_Incompressibility::Warn(WarningKind kind, std::string text) {
  if (mWarned & kind) return;
  mWarned |= kind;
  mWarnings.push_back(std::move(text));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
