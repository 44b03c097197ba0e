// Moves grids along paths.
#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "fluids/advection/correction_room.h"
#include "fluids/advection/grid_advection.h"
#include "fluids/advection/side_air.h"
#include "fluids/advection/spline_coefficients.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

const Grid<double>* GridAdvection::FindThinning(const Velocity& velocity) {
  if (!mScalarTarget || !mSolver->GetFlow().mExpands) return nullptr;
  const VecInt3D cells = velocity[0]->mLayout.dims;
  if (!mOutflow || mOutflow->Dims() != cells) {
    mOutflow = std::make_unique<Grid<double>>(cells, kCentre);
    mThinning = std::make_unique<Grid<double>>(cells, kCentre);
  }
  if (!mOutflow->mData || !mThinning->mData) return nullptr;
  std::array<const EGrid<float>*, 3> open;
  for (i32 axis = 0; axis < 3; ++axis) open[axis] = mSolver->GetFlow().GetOpenFaces(axis);
  FindOutflow({*velocity[0], *velocity[1], *velocity[2]}, open, mScene->mThreadCount, *mOutflow);
  return mOutflow.get();
}

void GridAdvection::WatchCorrections(std::vector<AdvectedField>& fields, const AdvectionData& data,
                                     const VecInt3D* reach) {
  const Flow& flow = mSolver->GetFlow();
  PieceBounds bounds;
  bounds.walls = &flow.mWallCells;
  bounds.thin = data.thin;
  bounds.openSides = static_cast<u8>(kWallsAll & ~flow.mBoundary.mWalls);
  if (reach) bounds.reach = *reach;
  // What a solid covers or leaves is given to cells beside it.
  constexpr i32 kBeside = 2;
  for (const GridBoundary::Mover& mover : flow.mBoundary.Movers())
    bounds.stirred.push_back({mover.reach.min - VecInt3D{kBeside, kBeside, kBeside},
                              mover.reach.max + VecInt3D{kBeside, kBeside, kBeside}});
  for (std::size_t i = 0; i < fields.size(); ++i) {
    AdvectedField& field = fields[i];
    if (!field.isAmount) continue;
    const double nothing = field.walls.nothing;
    if (reach)
      mPieces[i].Find(*field.source, *field.predicted, nothing > -kUnbounded ? nothing : 0.0,
                      data.starts->mData, bounds, mScene->mThreadCount);
    field.balance = &mBalances[i];
    field.balance->Begin(data.Shape().mNz, reach ? &mPieces[i] : nullptr);
  }
}

bool GridAdvection::FindSplines(std::vector<AdvectedField>& fields, bool predicted) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const Grid<double>* sampled = fields[i].source;
    if (predicted) sampled = fields[i].predicted;
    auto& spline = mSplines[i];
    if (!spline || spline->Dims() != sampled->Dims())
      spline = std::make_unique<Grid<double>>(sampled->Dims(), sampled->mKind);
    if (!spline->mData) return false;
    FindSplineCoefficients(*sampled, mScene->mThreadCount, *spline);
    fields[i].spline = spline.get();
  }
  return true;
}

/// Whether the kernels can move the fields, which work in cells of one layout; the corrected scheme
/// gets grids for what it predicts.
bool GridAdvection::FitFields(std::vector<AdvectedField>& fields, const Velocity& velocity) {
  const EGrid<double>* shape = fields.front().source;
  i32 slot = 0;
  for (AdvectedField& field : fields) {
    if (!field.source || !field.destination || !field.source->mData || !field.destination->mData)
      return false;
    const VecInt3D cells = field.source->mLayout.dims;
    if (field.source->Dims() != shape->Dims() || field.destination->Dims() != shape->Dims() ||
        velocity[0]->mLayout.dims != cells)
      return false;
    if (!IsCorrected()) continue;
    field.predicted = mSolver->GetFlow().mScratch.Get(slot++, cells, field.source->mKind);
    ScratchGrids& scratch = mSolver->GetFlow().mScratch;
    if (!field.predicted || !scratch.GetNumbers(cells) || !scratch.GetMarks(cells)) return false;
  }
  return shape->Dims().z > 2;
}

bool GridAdvection::FindBusy(const AdvectionData& data, VecInt3D reach) {
  const bool isLinear = data.sampling == static_cast<i32>(AdvectionSampling::Linear);
  if (!isLinear || data.thin || !data.solidCells || data.solidCells->Dims() != data.Shape().Dims())
    return false;
  std::vector<SparseField> fields;
  for (const AdvectedField& field : data.fields) {
    if (data.outflow && field.walls.nothing != 0) return false;
    fields.push_back({field.source, field.walls.nothing});
  }
  // A correction reads what is predicted there, and that the field from there on.
  for (i32 axis = 0; axis < 3; ++axis) reach[axis] *= 2;
  mBusy.Find(fields, *data.solidCells, reach, mScene->mThreadCount);
  return true;
}

bool GridAdvection::AdvectGrids(std::vector<AdvectedField> fields, const Velocity& velocity) {
  if (!FitFields(fields, velocity)) return false;
  const EGrid<double>& shape = *fields.front().source;
  const Flow& flow = mSolver->GetFlow();
  const bool isClosed = mScalarTarget && flow.mWallCells.Fits(shape);
  AdvectionData data{.velocity = {*velocity[0], *velocity[1], *velocity[2]},
                     .fields = fields,
                     .boundary = &flow.mBoundary,
                     .solidCells = flow.mSolidCells.Get(),
                     .thin = flow.mThinFaces.HasAny() ? &flow.mThinFaces : nullptr,
                     .open = shape.mKind <= kFaceZ ? flow.GetOpenFaces(shape.mKind) : nullptr,
                     .step = static_cast<f32>(mTime->stepDuration),
                     .order = PathOrder(),
                     .sampling = mSampling,
                     .sides = isClosed ? flow.mBoundary.mWalls : u8{kWallsAll},
                     .outflow = FindThinning(velocity),
                     .thinning = mThinning.get()};
  if (IsCorrected()) {
    ScratchGrids& scratch = mSolver->GetFlow().mScratch;
    data.starts = scratch.GetNumbers(shape.mLayout.dims);
    data.marks = scratch.GetMarks(shape.mLayout.dims);
  }
  VecInt3D reach;
  const bool isNear = isClosed && FindReach(data.velocity, data.step / shape.mLayout.cellSize,
                                            mScene->mThreadCount, reach);
  if (isNear && FindBusy(data, reach)) data.busy = &mBusy;
  if (IsSpline() && !FindSplines(fields, false)) return false;
  if (!IsCorrected())
    RunPass(data, &AdvectBackward);
  else if (!PredictAndCorrect(fields, data, isClosed, isNear ? &reach : nullptr))
    return false;
  for (const AdvectedField& field : fields)
    if (isClosed) flow.mWallCells.Clear(field.walls, *field.destination);
  return true;
}

void GridAdvection::RunPass(const AdvectionData& data,
                            void (*pass)(const AdvectionData&, const CellBox&)) {
  const VecInt3D n = data.Shape().Dims();
  // Layers take unlike times, by what is busy in them: who is free takes the next one.
  std::atomic<i32> next{1};
  ForEachBlock(mScene->mThreadCount, mScene->mThreadCount, [&](i32) {
    for (i32 z = next++; z < n.z - 1 && !IsCancelled(); z = next++)
      pass(data, {{1, 1, z}, {n.x - 1, n.y - 1, z + 1}});
  });
}

bool GridAdvection::PredictAndCorrect(std::vector<AdvectedField>& fields, const AdvectionData& data,
                                      bool isClosed, const VecInt3D* reach) {
  const i32 layers = data.Shape().mNz, threads = mScene->mThreadCount;
  RunPass(data, &Predict);
  if (isClosed) {
    for (const AdvectedField& field : fields)
      mSolver->GetFlow().mWallCells.Fill(field.walls, true, *field.predicted);
    ForEachBlock(layers, threads, [&](i32 z) { PredictOutside(data, z); });
  }
  if (IsSpline() && !FindSplines(fields, true)) return false;
  WatchCorrections(fields, data, reach);
  RunPass(data, &Correct);
  if (isClosed) ForEachBlock(layers, threads, [&](i32 z) { AddInflowCorrections(data, z); });
  bool hasExcess = false;
  for (const AdvectedField& field : fields) {
    if (!field.balance) continue;
    field.balance->Find(field.isTotalKnown, field.gain);
    hasExcess |= field.balance->HasExcess();
    field.balance->BeginRoom();
  }
  RunPass(data, &Balance);
  if (!hasExcess) return true;
  RunPass(data, &SumRoom);
  for (const AdvectedField& field : fields)
    if (field.balance) field.balance->FindShares();
  RunPass(data, &LevelRoom);
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
