#include "fluids/fields/channel.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/fields/field_rows.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

template <class T, class G>
ParameterTable Channel_Dynamic<T, G>::Rows() {
  return {
      BoolRow(field_row::kClearEachStep, "clear_each_step", false,
              "forgets what it held before each step, so that only what this step adds is seen")
          .To(&Channel_Dynamic::mClearEachFrame),
      BoolRow(field_row::kKeepPrevious, "keep_previous", true,
              "keeps a second copy of the values before a change, which moving sharp detail needs")
          .To(&Channel_Dynamic::mKeepPrevious),
      BoolRow(1021, "affects_bounds", true,
              "the box of the simulation grows round this data; off: what drifts out of it is lost")
          .To(&Channel_Dynamic::mWidensBounds),
      LongRow(1000, "display_mode", 0, "", "whether a viewport draws slices or a cloud").Kept(),
      BoolRow(1008, "display", false, "shows the data in a viewport").Kept(),
      LongRow(1012, "display_axis", 0, "", "which way a viewport's slices face").Kept(),
      RealRow(1013, "display_position", 0.5, "none",
              "how far through the box a viewport's slice lies, 0..1")
          .Kept(),
      RealRow(1014, "display_minimum", 0.01, "field", "a viewport leaves out anything below this")
          .Kept(),
      RealRow(1015, "display_maximum", 1.0, "field",
              "a viewport draws this and more at full strength")
          .Kept(),
      VectorRow(1016, "display_color", {1, 1, 0}, "none", "tint of what a viewport draws").Kept(),
      BoolRow(1017, "display_shading", true, "gives a viewport's cloud light and dark sides")
          .Kept(),
      LongRow(1018, "display_component", 0, "", "which part of a vector a viewport draws").Kept(),
      RealRow(1019, "display_opacity", 1.0, "none", "how solid a viewport's cloud looks").Kept(),
      RealRow(1020, "display_threshold", 0.03, "field",
              "thinner than this isn't drawn in a viewport")
          .Kept(),
      LongRow(1022, "display_quality", 1, "", "finer slices in a viewport, for slower drawing")
          .Kept(),
      LongRow(1023, "display_resolution", 2, "",
              "coarser texture in a viewport, for quicker drawing")
          .Kept(),
  };
}

template <class T, class G>
bool Channel_Dynamic<T, G>::ReadParameters() {
  this->mPriority = 0;
  if (!iChannel<T>::ReadParameters()) return false;
  this->SetFlag(FLAG_AFFECTS_BOUNDS, mWidensBounds);
  return true;
}

template <class T, class G>
bool Channel_Dynamic<T, G>::ContainsPoint(const Vec3d& p, bool withMargin) const {
  const G* grid = GetGrid(0);
  return grid && grid->mLayout.Contains(p, withMargin);
}

template <class T, class G>
bool Channel_Dynamic<T, G>::ContainsCell(const Vec3d& p, bool excludeBorder) const {
  VecInt3D cell;
  const G* grid = GetGrid(0);
  return grid && grid->mLayout.CellOf(p, excludeBorder, cell);
}

namespace {

/// Widens a box by samples of a grid, upper corner exclusive. The cells of the data whole, or a
/// scene that mirrors itself would grow to one side first. A sample on a face or a node has its
/// cells' border there.
template <class G>
void WidenBySamples(const G& grid, const CellBox& samples, Vec3d& min, Vec3d& max) {
  if (samples.IsEmpty()) return;
  const GridLayout& layout = grid.mLayout;
  const VecInt3D past = samples.max - ExtraOf(grid.mKind);
  min = Min(min, layout.simOrigin + ToReal(samples.min) * layout.simCell);
  max = Max(max, layout.simOrigin + ToReal(Min(past, layout.dims)) * layout.simCell);
}

/// The samples of a grid in a box (simulation units), and those of cells that it cuts.
template <class G>
CellBox SamplesIn(const G& grid, const Vec3d& low, const Vec3d& high) {
  const Vec3d from = grid.mLayout.ToCells(low), to = grid.mLayout.ToCells(high);
  CellBox box;
  for (int a = 0; a < 3; ++a) {
    const double most = grid.Dims()[a];
    box.min[a] = static_cast<i32>(std::clamp(std::floor(from[a]), 0.0, most));
    box.max[a] = static_cast<i32>(std::clamp(std::ceil(to[a]) + ExtraOf(grid.mKind)[a], 0.0, most));
  }
  return box;
}

}  // namespace

template <class T, class G>
void Channel_Dynamic<T, G>::ExpandBounds(Vec3d& min, Vec3d& max) {
  constexpr double huge = std::numeric_limits<double>::max();
  ExpandBoundsWithin({-huge, -huge, -huge}, {huge, huge, huge}, min, max);
}

template <class T, class G>
void Channel_Dynamic<T, G>::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                               Vec3d& max) {
  if (Vec3d from, to; GetCachedBox(from, to)) {
    if (!BoxesMeet(from, to, low, high)) return;
    min = Min(min, from);
    max = Max(max, to);
    return;
  }
  for (i32 i = 0; i < 3; ++i) {
    const G* grid = GetGrid(i);
    if (!grid || grid->IsActiveEmpty()) continue;
    const CellBox active{grid->mActiveMin, grid->mActiveMax + VecInt3D{1, 1, 1}};
    const CellBox part = Clip(SamplesIn(*grid, low, high), active.min, active.max);
    const bool isWhole = part.min == active.min && part.max == active.max;
    WidenBySamples(*grid, isWhole ? active : grid->FindData(part), min, max);
  }
}

template <class T, class G>
std::array<EGrid<double>*, 3> Channel_Dynamic<T, G>::GetCachedGrids() {
  if constexpr (std::is_same_v<G, EGrid<double>>) {
    return {GetGrid(0), GetGrid(1), GetGrid(2)};
  } else {
    return {};
  }
}

template <class T, class G>
bool Channel_Dynamic<T, G>::TakeCachedPlace(const GridLayout& layout, i32) {
  mCachedLayout = layout;
  return mHasCachedLayout = true;
}

template <class T, class G>
bool Channel_Dynamic<T, G>::GetCachedBox(Vec3d& min, Vec3d& max) const {
  if (!this->Has(FLAG_CACHED) || !mHasCachedLayout) return false;
  mCachedLayout.GetCellBox(this->GetDomain().cellSize, min, max);
  return true;
}

template class Channel_Dynamic<double, EGrid<double>>;
template class Channel_Dynamic<float, EGrid<float>>;
template class Channel_Dynamic<Vec3d, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
