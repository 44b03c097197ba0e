#include "fluids/fields/adaptive_container.h"

#include <limits>

#include "grids/grid_resampler.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

ContainerShape::ContainerShape(const GridLayout& domain, const Vec3d& min, const Vec3d& max)
    : cellSize(domain.cellSize) {
  const double h = cellSize;
  const Vec3d extent = (max - min) / h;
  for (int a = 0; a < 3; ++a)
    if (!(extent[a] >= 2 - 1e-6 && extent[a] < 1e9)) return;  // samples need two cells
  cells = TruncateNudged(extent);
  worldSize = ToReal(cells) * domain.worldCell;
  worldOrigin = domain.worldCell * min / h;
}

template <class G>
bool FitContainer(std::unique_ptr<G>& grid, const GridLayout& domain, const ContainerShape& shape,
                  const ContainerContent& content) {
  if (!grid) {
    GridLayout single;
    single.Set({1, 1, 1}, domain.worldCell, domain.cellSize, {});
    auto made = std::make_unique<G>(single, content.kind);
    if (!made->mData) return false;
    made->Fill(content.initial);
    grid = std::move(made);
  }
  grid->mRangeMin = content.min;
  grid->mRangeMax = content.max;
  if (shape.Fits(grid->mLayout)) {
    if (content.clear) {
      grid->ResetActive();
      grid->Fill(content.initial);
    } else {
      grid->UpdateActive(content.min, content.max, false);
    }
    return true;
  }
  // What lies outside the new container is lost, what lies inside is cleaned there: one pass.
  GridLayout layout;
  layout.Set(shape.cells, shape.worldSize, shape.cellSize, shape.worldOrigin);
  auto resized = Resized(grid.get(), layout, content.kind, content.initial);
  if (!resized->mData) return false;
  grid = std::move(resized);
  if (content.clear) grid->Fill(content.initial);
  grid->UpdateActive(content.min, content.max, false);
  return true;
}

template <class G>
void RefillTrimmed(const ContainerShape& shape, const ContainerContent& content, G* grid) {
  constexpr double huge = std::numeric_limits<double>::max();
  const bool isTrimmed = content.min > -huge || content.max < huge;
  if (!grid || !grid->mData || content.kind <= kFaceZ || !isTrimmed ||
      !(content.initial > content.min) || shape.Fits(grid->mLayout))
    return;
  const VecInt3D n = grid->Dims();
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      CellBox side{{0, 0, 0}, n};
      (high ? side.min : side.max)[axis] = high ? n[axis] - 1 : 1;
      ForEachCell(side, [&](i32 x, i32 y, i32 z) {
        if ((*grid)(x, y, z) == content.min) (*grid)(x, y, z) = content.initial;
      });
    }
}

template <class G>
bool FitPrevious(std::unique_ptr<G>& previous, const G& grid, double initial) {
  if (!previous || !previous->mLayout.Equals(grid.mLayout)) {
    auto resized = Resized(previous.get(), grid.mLayout, grid.mKind, initial);
    if (!resized->mData) return false;
    previous = std::move(resized);
  }
  previous->mRangeMin = grid.mRangeMin;
  previous->mRangeMax = grid.mRangeMax;
  return true;
}

template bool FitContainer(std::unique_ptr<EGrid<double>>&, const GridLayout&,
                           const ContainerShape&, const ContainerContent&);
template bool FitContainer(std::unique_ptr<EGrid<float>>&, const GridLayout&, const ContainerShape&,
                           const ContainerContent&);
template void RefillTrimmed(const ContainerShape&, const ContainerContent&, EGrid<double>*);
template void RefillTrimmed(const ContainerShape&, const ContainerContent&, EGrid<float>*);
template bool FitPrevious(std::unique_ptr<EGrid<double>>&, const EGrid<double>&, double);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
