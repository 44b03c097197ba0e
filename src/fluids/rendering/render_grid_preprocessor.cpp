#include "fluids/rendering/render_grid_preprocessor.h"

#include "fluids/operators/channel_operator_remap.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

bool RenderGridPreprocessor::Bind(const iBase* owner, ScalarField* target,
                                  VectorField* colourTarget, const ConstraintList* filters) {
  mOwner = owner;
  mTarget = target;
  mColourTarget = colourTarget;
  mFilters = filters && !filters->IsEmpty() ? filters : nullptr;
  return target || colourTarget;
}

void RenderGridPreprocessor::AddRemap(const host::SplineData& curve) {
  auto remap = std::make_unique<ChannelOperator_Remap>();
  remap->SetCurve(curve);
  AddOperator(std::move(remap));
}

const EGrid<double>* RenderGridPreprocessor::Shape() const {
  const EGrid<double>* grid = mTarget ? mTarget->GetGrid(0) : nullptr;
  return grid && grid->mData ? grid : nullptr;
}

const EGrid<double>* ColorRenderGridPreprocessor::Shape() const {
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>* grid = mColourTarget ? mColourTarget->GetGrid(a) : nullptr;
    if (!grid || !grid->mData) return nullptr;
  }
  return mColourTarget->GetGrid(0);
}

void RenderGridPreprocessor::Prepare() {
  if (!Shape()) return SetFlag(FLAG_ACTIVE, false);
  for (const auto& op : mOperators) {
    if (!op->Has(FLAG_ENABLED)) continue;
    op->Attach(Target());
    op->Prepare();
  }
  SetFlag(FLAG_ACTIVE, !mOperators.empty() || mFilters);
}

void RenderGridPreprocessor::Begin() {
  if (!Has(FLAG_ACTIVE)) return;
  for (const auto& op : mOperators)
    if (op->Has(FLAG_ENABLED)) op->Begin();
}

void RenderGridPreprocessor::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  constexpr i32 kRun = 64;
  const EGrid<double>& shape = *Shape();
  CellRecord cells[kRun];
  for (i32 z = data.index; z < shape.mNz; z += data.count) {
    if (data.TestBreak()) return;
    for (i32 y = 0; y < shape.mNy; ++y)
      for (i32 first = 0; first < shape.mNx; first += kRun) {
        const i32 count = std::min(kRun, shape.mNx - first);
        for (i32 i = 0; i < count; ++i) {
          CellRecord& cell = cells[i];
          cell.position = shape.PositionOf(first + i, y, z);
          cell.worldPosition = cell.position * shape.mLayout.simToWorld;
          cell.cellIndex = shape.Index(first + i, y, z);
          cell.cellIndices = {cell.cellIndex, cell.cellIndex, cell.cellIndex};
        }
        for (const auto& op : mOperators)
          if (op->Has(FLAG_ENABLED)) op->EvaluateCells(cells, count, data);
        for (i32 i = 0; mFilters && i < count; ++i) Filter(cells[i], data.index);
      }
  }
}

double RenderGridPreprocessor::Filtered(double value, const Vec3d& position, i32 worker) const {
  mFilters->Test(position, value, mOwner, worker);
  return value;
}

void RenderGridPreprocessor::Filter(const CellRecord& cell, i32 worker) {
  double& value = (*mTarget->mGrid)[cell.cellIndex];
  if (value != 0) value = Filtered(value, cell.position, worker);
}

void ColorRenderGridPreprocessor::Filter(const CellRecord& cell, i32 worker) {
  const double factor = Filtered(1, cell.position, worker);
  for (i32 a = 0; a < 3; ++a) (*mColourTarget->mGrids[a])[cell.cellIndex] *= factor;
}

void RenderGridPreprocessor::Finish() {
  SetFlag(FLAG_ACTIVE, false);
  for (const auto& op : mOperators)
    if (op->Has(FLAG_ENABLED)) op->Finish();
  mOperators.clear();
  mTarget = nullptr;
  mColourTarget = nullptr;
  mFilters = nullptr;
}

void RenderGridPreprocessor::Run(host::HostThread* thread) {
  Prepare();
  Begin();
  if (Has(FLAG_ACTIVE)) {
    ForEachShare(host::ThreadCount(), thread,
                 [&](const EvaluationThreadData& share) { Evaluate(share); });
  }
  Finish();
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
