#include "fluids/pressure/face_densities.h"

#include "fluids/pressure/projection_kernels.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// The mean of the known densities that open faces of some axes lead to from an inner cell; 0 of
/// none.
double MeanBeside(const ProjectionFields& fields, const EGrid<double>& density,
                  const VecInt3D& cell, const std::array<bool, 3>& axes) {
  double sum = 0;
  i32 count = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    if (!axes[axis]) continue;
    for (const i32 side : {0, 1}) {
      const VecInt3D face = cell + ExtraOf(axis) * side;
      const VecInt3D next = cell + ExtraOf(axis) * (2 * side - 1);
      if (next[axis] < 1 || next[axis] > density.Dims()[axis] - 2) continue;
      if (!((*fields.open[axis])(face.x, face.y, face.z) > 0)) continue;
      const double known = density(next.x, next.y, next.z);
      if (known > 0) sum += known, ++count;
    }
  }
  return count > 0 ? sum / count : 0.0;
}

}  // namespace

void FaceDensities::Find(const EGrid<double>& mixture, const Flow& flow, ProjectionFields& fields) {
  fields.density.fill(&mixture);
  if (!flow.mWallCells.IsBuilt() || !flow.mWallCells.Fits(mixture)) return;
  ListClosed(flow, fields);
  if (mCut.empty() && mShut.empty()) return;
  for (auto& along : mAlong) along = std::make_unique<EGrid<double>>(mixture);
  const double mean = MeanOf(mixture, flow);
  ForEachBlock(3, flow.Threads(), [&](i32 axis) { Continue(axis, mean, fields, *mAlong[axis]); });
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

void FaceDensities::ListClosed(const Flow& flow, const ProjectionFields& fields) {
  mCut.clear();
  mShut.clear();
  const VecInt3D n = fields.openCell->Dims();
  for (i32 z = 1; z < n.z - 1; ++z)
    for (i32 y = 1; y < n.y - 1; ++y) {
      const CellLine line(fields, y, z);
      for (i32 x = 1; x < n.x - 1; ++x) {
        if (!flow.mWallCells.IsClosed({x, y, z})) continue;
        if (line.IsOpen(x))
          mCut.push_back({x, y, z});
        else
          mShut.push_back(line.cell + x);
      }
    }
}

void FaceDensities::Continue(i32 axis, double mean, const ProjectionFields& fields,
                             EGrid<double>& density) const {
  for (const i32 cell : mShut) density[cell] = 0;
  for (const VecInt3D& c : mCut) density(c.x, c.y, c.z) = 0;
  std::vector<VecInt3D> unknown = mCut, rest;
  std::vector<double> found;
  const auto fill = [&](const std::array<bool, 3>& axes) {
    rest.clear();
    found.clear();
    for (const VecInt3D& c : unknown) found.push_back(MeanBeside(fields, density, c, axes));
    for (std::size_t i = 0; i < unknown.size(); ++i) {
      const VecInt3D& c = unknown[i];
      if (found[i] > 0)
        density(c.x, c.y, c.z) = found[i];
      else
        rest.push_back(c);
    }
    unknown.swap(rest);
    return unknown.size() < rest.size();
  };
  std::array<bool, 3> across{true, true, true};
  across[axis] = false;
  do
    while (fill(across)) {
    }
  while (fill({true, true, true}));
  for (const VecInt3D& c : unknown) density(c.x, c.y, c.z) = mean;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
