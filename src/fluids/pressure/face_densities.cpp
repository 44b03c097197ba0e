#include "fluids/pressure/face_densities.h"

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void FaceDensities::Find(const EGrid<double>& mixture, const Flow& flow, ProjectionFields& fields) {
  fields.density.fill(&mixture);
  if (!flow.mWallCells.IsBuilt() || !flow.mWallCells.Fits(mixture)) return;
  mCut.Find(flow, fields.open);
  if (mCut.IsEmpty() && mCut.Shut().empty()) return;
  for (auto& along : mAlong) along = std::make_unique<EGrid<double>>(mixture);
  const double mean = MeanOf(mixture, flow);
  ForEachBlock(3, flow.Threads(), [&](i32 axis) {
    // Where nothing is open nothing has a weight.
    for (const i32 cell : mCut.Shut()) (*mAlong[axis])[cell] = 0;
    mCut.Continue(axis, mean, *mAlong[axis]);
  });
  fields.density = {mAlong[0].get(), mAlong[1].get(), mAlong[2].get()};
}

double FaceDensities::MeanOf(const EGrid<double>& mixture, const Flow& flow) const {
  struct Sum {
    double value = 0, count = 0;
  };
  const VecInt3D n = mixture.Dims();
  const Sum all = ReduceBlocks(
      n.z - 2, flow.Threads(), Sum{},
      [&](i32 layer) {
        Sum sum;
        ForEachCell({{1, 1, layer + 1}, {n.x - 1, n.y - 1, layer + 2}}, [&](i32 x, i32 y, i32 z) {
          const double known = mixture(x, y, z);
          if (known > 0 && !flow.mWallCells.IsClosed({x, y, z})) sum.value += known, ++sum.count;
        });
        return sum;
      },
      [](const Sum& a, const Sum& b) {
        return Sum{a.value + b.value, a.count + b.count};
      });
  return all.count > 0 ? all.value / all.count : 0.0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
