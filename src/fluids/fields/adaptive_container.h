// The container of a channel's grid: it follows the box of the content and keeps the data in place.
#pragma once
#include <memory>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The place that a box asks for.
struct ContainerShape {
  VecInt3D cells{};
  Vec3d worldSize{};
  Vec3d worldOrigin{};
  f32 cellSize = 0;

  /// The shape of the box from `min` to `max` (simulation units, a whole number of cells apart) in
  /// a scene whose scale is `domain`.
  ContainerShape(const GridLayout& domain, const Vec3d& min, const Vec3d& max);
  bool Fits(const GridLayout& layout) const {
    return layout.dims == cells && layout.worldSize == worldSize && layout.cellSize == cellSize &&
           layout.worldOrigin == worldOrigin;
  }
};

/// What a container needs to know of the channel that owns it.
struct ContainerContent {
  i32 kind = kCentre;
  double min = 0;  ///< value range
  double max = 1;
  double initial = 0;  ///< value of cells without data
  bool clear = false;  ///< back to the initial value at every fit
};

/// Makes `grid`, or moves it, to `shape`: data stays where it is in the world, clamped to the value
/// range, and samples outside the old grid hold the initial value. Rebuilds the active box. False,
/// with `grid` as it was, when there is no memory or the shape has no cells.
template <class G>
bool FitContainer(std::unique_ptr<G>& grid, const GridLayout& domain, const ContainerShape& shape,
                  const ContainerContent& content);

/// What trimming has emptied in the outermost layer takes the initial value again, where `shape` is
/// another place than that of `grid`: that layer may lie further inside from then on.
template <class G>
void RefillTrimmed(const ContainerShape& shape, const ContainerContent& content, G* grid);

/// Makes or moves the second buffer of a channel to the layout of `grid`, with its range.
template <class G>
bool FitPrevious(std::unique_ptr<G>& previous, const G& grid, double initial);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
