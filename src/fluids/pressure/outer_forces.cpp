// What forces do to the gas outside of a container.
#include "fluids/pressure/outer_level.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What isn't alike along the sides has its cause inside.
Vec3d OuterLevel::PushAlongSides(const std::array<Grid<double>*, 3>& change,
                                 const EGrid<float>& cells, const ChangeAt& anywhere) const {
  const GridLayout& layout = *mFlow->GetLayout();
  const VecInt3D n = layout.dims;
  Vec3d least, most, push;
  bool any = false;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      if (!IsFree(axis, high)) continue;
      CellBox box{{1, 1, 1}, n - VecInt3D{1, 1, 1}};
      (high ? box.min : box.max)[axis] = high ? n[axis] - 2 : 2;
      ForEachCell(box, [&](i32 x, i32 y, i32 z) {
        const i32 cell = change[0]->Index(x, y, z);
        if (!(cells[cell] > 0)) return;
        Vec3d here{(*change[0])[cell], (*change[1])[cell], (*change[2])[cell]};
        if (anywhere)
          here -= anywhere(layout.simOrigin + Vec3d{x + 0.5, y + 0.5, z + 0.5} * layout.simCell, 0);
        least = any ? Min(least, here) : here;
        most = any ? Max(most, here) : here;
        any = true;
      });
    }
  for (i32 axis = 0; axis < 3; ++axis)
    push[axis] = least[axis] > 0 ? least[axis] : most[axis] < 0 ? most[axis] : 0;
  return push;
}

void OuterLevel::AddForce(const std::array<Grid<double>*, 3>& change, const ChangeAt& anywhere) {
  for (auto& push : mPush) push.clear();
  if (!IsCut()) return;
  const EGrid<float>* cells =
      mFlow->mFractions.HasField(0, 0) ? mFlow->mFractions.GetRead(0, 0) : nullptr;
  if (!cells || !change[2]) return;
  const Vec3d alike = PushAlongSides(change, *cells, anywhere);
  if (!anywhere && alike == Vec3d{}) return;
  mHasWind = true;
  const double h = mFlow->GetLayout()->cellSize;
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& velocity = *mVelocity[axis];
    const VecInt3D n = velocity.Dims();
    mPush[axis].assign(velocity.mCount, 0.0);
    std::array<std::vector<double>, 3> nodes;
    for (i32 a = 0; a < 3; ++a) nodes[a] = mLattice.NodesOf(a, a == axis ? axis : kCentre);
    ForEachShare(Threads(), nullptr, [&](const EvaluationThreadData& share) {
      const IndexRange own = share.ItemsOf(0, n.z);
      ForEachCell({{0, 0, own.first}, {n.x, n.y, own.last}}, [&](i32 x, i32 y, i32 z) {
        const i32 index = velocity.Index(x, y, z);
        if (!((*mOutside[axis])[index] > 0)) return;
        const Vec3d place = Vec3d{nodes[0][x], nodes[1][y], nodes[2][z]} * h;
        mPush[axis][index] =
            alike[axis] + (anywhere ? anywhere(place, static_cast<u32>(share.index))[axis] : 0.0);
      });
    });
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
