#include "fluids/rendering/render_grid_preprocessor.h"

#include <algorithm>

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
        if (mFilters) Filter({cells, static_cast<std::size_t>(count)}, data.index);
      }
  }
}

void RenderGridPreprocessor::AskFilters(std::span<const CellRecord> cells, double* values,
                                        i32 worker) const {
  Vec3d positions[kRun];
  for (std::size_t i = 0; i < cells.size(); ++i) positions[i] = cells[i].position;
  mFilters->TestRow({{positions, cells.size()}, {values, cells.size()}}, mOwner,
                    static_cast<u32>(worker));
}

void RenderGridPreprocessor::Filter(std::span<const CellRecord> cells, i32 worker) {
  double values[kRun];
  EGrid<double>& grid = *mTarget->mGrid;
  for (std::size_t i = 0; i < cells.size(); ++i) values[i] = grid[cells[i].cellIndex];
  AskFilters(cells, values, worker);
  for (std::size_t i = 0; i < cells.size(); ++i) grid[cells[i].cellIndex] = values[i];
}

void ColorRenderGridPreprocessor::Filter(std::span<const CellRecord> cells, i32 worker) {
  double factors[kRun];
  std::fill_n(factors, cells.size(), 1.0);
  AskFilters(cells, factors, worker);
  for (std::size_t i = 0; i < cells.size(); ++i)
    for (i32 a = 0; a < 3; ++a) (*mColourTarget->mGrids[a])[cells[i].cellIndex] *= factors[i];
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
