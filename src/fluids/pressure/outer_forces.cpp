// What forces do to the gas outside of a container.
#include <algorithm>

#include "fluids/pressure/outer_level.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// The least and the largest of some changes of velocity, by component.
struct Span {
  Vec3d least, most;
  bool any = false;

  void Add(const Vec3d& change) {
    least = any ? Min(least, change) : change;
    most = any ? Max(most, change) : change;
    any = true;
  }
  void Add(const Span& other) {
    if (!other.any) return;
    Add(other.least);
    Add(other.most);
  }
};

}  // namespace

/// What isn't alike along the sides has its cause inside.
Vec3d OuterLevel::PushAlongSides(const VelocityGridEmitter& forces,
                                 const EGrid<float>& cells) const {
  const std::array<Grid<double>*, 3>& change = forces.CellChanges();
  const bool anywhere = forces.ActsAnywhere();
  const GridLayout& layout = *mFlow->GetLayout();
  const VecInt3D n = layout.dims;
  std::vector<Span> spans(kShares);
  const auto addRow = [&](const CellBox& row, i32 worker, Span& span, std::vector<Vec3d>& places,
                          std::vector<Vec3d>& given) {
    if (anywhere) {
      places.clear();
      ForEachCell(row, [&](i32 x, i32 y, i32 z) {
        places.push_back(layout.simOrigin + Vec3d{x + 0.5, y + 0.5, z + 0.5} * layout.simCell);
      });
      given.assign(places.size(), {});
      forces.FindChanges(places, layout.simToWorld, static_cast<u32>(worker), given);
    }
    std::size_t i = 0;
    ForEachCell(row, [&](i32 x, i32 y, i32 z) {
      const Vec3d known = anywhere ? given[i++] : Vec3d{};
      const i32 cell = change[0]->Index(x, y, z);
      if (!(cells[cell] > 0)) return;
      span.Add(Vec3d{(*change[0])[cell], (*change[1])[cell], (*change[2])[cell]} - known);
    });
  };
  ForEachShare(Threads(), nullptr, [&](const EvaluationThreadData& share) {
    std::vector<Vec3d> places, given;
    for (i32 axis = 0; axis < 3; ++axis)
      for (const bool high : {false, true}) {
        if (!IsFree(axis, high)) continue;
        CellBox box{{1, 1, 1}, n - VecInt3D{1, 1, 1}};
        (high ? box.min : box.max)[axis] = high ? n[axis] - 2 : 2;
        // The layers of the z sides are but one.
        const i32 along = axis == 2 ? 1 : 2;
        const IndexRange own = share.ItemsOf(box.min[along], box.max[along]);
        for (i32 i = own.first; i < own.last; ++i) {
          CellBox row = box;
          row.min[along] = i, row.max[along] = i + 1;
          addRow(row, share.index, spans[share.index], places, given);
        }
      }
  });
  Span all;
  for (const Span& span : spans) all.Add(span);
  Vec3d push;
  for (i32 axis = 0; axis < 3; ++axis)
    push[axis] = all.least[axis] > 0 ? all.least[axis] : all.most[axis] < 0 ? all.most[axis] : 0;
  return push;
}

void OuterLevel::AddForce(const VelocityGridEmitter& forces) {
  for (auto& push : mPush) push.clear();
  mUniform = {};
  if (!IsCut()) return;
  const EGrid<float>* cells =
      mFlow->mFractions.HasField(0, 0) ? mFlow->mFractions.GetRead(0, 0) : nullptr;
  if (!cells || !forces.CellChanges()[2]) return;
  const bool anywhere = forces.ActsAnywhere();
  const Vec3d alike = PushAlongSides(forces, *cells);
  if (!anywhere && alike == Vec3d{}) return;
  mHasWind = true;
  const GridLayout& layout = *mFlow->GetLayout();
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& velocity = *mVelocity[axis];
    const VecInt3D n = velocity.Dims();
    mPush[axis].assign(velocity.mCount, 0.0);
    std::array<std::vector<double>, 3> nodes;
    for (i32 a = 0; a < 3; ++a) nodes[a] = mLattice.NodesOf(a, a == axis ? axis : kCentre);
    ForEachShare(Threads(), nullptr, [&](const EvaluationThreadData& share) {
      const IndexRange own = share.ItemsOf(0, n.z);
      std::vector<Vec3d> places(n.x), given(n.x);
      for (i32 z = own.first; z < own.last; ++z)
        for (i32 y = 0; y < n.y; ++y) {
          for (i32 x = 0; x < n.x; ++x)
            places[x] = Vec3d{nodes[0][x], nodes[1][y], nodes[2][z]} * double{layout.cellSize};
          if (anywhere)
            forces.FindChanges(places, layout.simToWorld, static_cast<u32>(share.index), given);
          const i32 row = velocity.Index(0, y, z);
          for (i32 x = 0; x < n.x; ++x)
            if ((*mOutside[axis])[row + x] > 0) mPush[axis][row + x] = alike[axis] + given[x][axis];
        }
    });
    mUniform[axis] = MeanPush(axis);
  }
}

/// Exact where it is the same everywhere.
double OuterLevel::MeanPush(i32 axis) const {
  double least = 0, most = 0, sum = 0;
  i64 count = 0;
  for (std::size_t i = 0; i < mPush[axis].size(); ++i) {
    if (!((*mOutside[axis])[static_cast<i32>(i)] > 0)) continue;
    const double push = mPush[axis][i];
    least = count > 0 ? std::min(least, push) : push;
    most = count > 0 ? std::max(most, push) : push;
    sum += push;
    ++count;
  }
  return least == most ? least : sum / static_cast<double>(count);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
