#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

template <class T, class G>
ParameterTable Channel_Dynamic<T, G>::Rows() {
  return {
      BoolRow(1001, "clear_each_step", false,
              "forgets what it held before each step, so that only what this step adds is seen")
          .To(&Channel_Dynamic::mClearEachFrame),
      BoolRow(1002, "keep_previous", true,
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

template <class T, class G>
void Channel_Dynamic<T, G>::WidenByGrid(const G* grid, Vec3d& min, Vec3d& max) const {
  if (!grid || grid->IsActiveEmpty()) return;
  const GridLayout& layout = grid->mLayout;
  // The cells of the data whole, or a scene that mirrors itself would grow to one side first. A
  // sample on a face or a node has its cells' border there.
  const VecInt3D past = grid->mActiveMax + VecInt3D{1, 1, 1} - ExtraOf(grid->mKind);
  min = Min(min, layout.simOrigin + ToReal(grid->mActiveMin) * layout.simCell);
  max = Max(max, layout.simOrigin + ToReal(Min(past, layout.dims)) * layout.simCell);
}

template <class T, class G>
bool Channel_Dynamic<T, G>::WidenByCache(Vec3d& min, Vec3d& max) const {
  if (!this->Has(FLAG_CACHED) || !mHasCachedLayout) return false;
  Vec3d low, high;
  mCachedLayout.GetCellBox(this->GetDomain().cellSize, low, high);
  min = Min(min, low);
  max = Max(max, high);
  return true;
}

template class Channel_Dynamic<double, EGrid<double>>;
template class Channel_Dynamic<float, EGrid<float>>;
template class Channel_Dynamic<Vec3d, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
