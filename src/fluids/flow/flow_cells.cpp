#include "fluids/flow/flow_cells.h"

#include <cmath>

#include "grids/grid_resampler.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool AreOnOneLattice(const GridLayout& a, const GridLayout& b) {
  if (a.cellSize != b.cellSize) return false;
  for (int i = 0; i < 3; ++i) {
    const double cells = (a.simOrigin[i] - b.simOrigin[i]) / a.cellSize;
    if (!(std::abs(cells - std::round(cells)) < 1e-3)) return false;
  }
  return true;
}

std::unique_ptr<EGrid<double>> PartOver(const EGrid<double>& field, const GridLayout& layout) {
  if (!AreOnOneLattice(field.mLayout, layout)) return nullptr;
  auto part = Resized(&field, layout, field.mKind, field.mRangeMin);
  return part->mData ? std::move(part) : nullptr;
}

void PutBack(const EGrid<double>& part, EGrid<double>& field) {
  GridOverlap overlap = OverlapOf(part, field);
  // The samples of `part` from 1 to n - 2, as indices of the field.
  overlap.box = Clip(overlap.box, VecInt3D{1, 1, 1} - overlap.offset,
                     part.Dims() - VecInt3D{1, 1, 1} - overlap.offset);
  if (overlap.box.IsEmpty()) return;
  EGridResampler copier;
  if (copier.Init(&part, &field, true, SAMPLE_LINEAR, kWriteValue, overlap.offset, true))
    copier.Copy(overlap.box.min, overlap.box.max, nullptr);
}

bool CellSamples::Bind(const EGrid<double>* field, const GridLayout& layout) {
  mGrid = nullptr;
  if (!field || !field->mData || field->Dims() != field->mLayout.dims) return false;
  if (field->Dims() == layout.dims && field->mLayout.originCell == layout.originCell) {
    mCopy.reset();
    mGrid = field;
    return true;
  }
  mCopy = PartOver(*field, layout);
  mGrid = mCopy.get();
  return mGrid != nullptr;
}

EGrid<double>* CellSamples::Own() {
  if (!mGrid || mCopy) return mCopy.get();
  mCopy = std::make_unique<EGrid<double>>(*mGrid);
  if (!mCopy->mData) return nullptr;
  mGrid = mCopy.get();
  return mCopy.get();
}

void CellSamples::Release() {
  mGrid = nullptr;
  mCopy.reset();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
