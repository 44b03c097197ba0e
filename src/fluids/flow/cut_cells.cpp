#include "fluids/flow/cut_cells.h"

#include <cmath>
#include <limits>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

}  // namespace

void CutCells::Find(const Flow& flow, const OpenFaces& open) {
  mOpen = open;
  mCells.clear();
  mShut.clear();
  if (!flow.mWallCells.IsBuilt() || !open[0] || !open[1] || !open[2]) return;
  const VecInt3D n = flow.GetLayout()->dims;
  ForEachCell({{1, 1, 1}, n - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
    if (!flow.mWallCells.IsClosed({x, y, z})) return;
    bool isCut = false;
    for (i32 axis = 0; axis < 3; ++axis) {
      const VecInt3D above = VecInt3D{x, y, z} + ExtraOf(axis);
      isCut |= (*open[axis])(x, y, z) > 0 || (*open[axis])(above.x, above.y, above.z) > 0;
    }
    if (isCut)
      mCells.push_back({x, y, z});
    else
      mShut.push_back((z * n.y + y) * n.x + x);
  });
}

/// Of the known ones that open faces of some axes lead to.
double CutCells::MeanBeside(const EGrid<double>& field, const VecInt3D& cell,
                            const std::array<bool, 3>& axes) const {
  double sum = 0;
  i32 count = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    if (!axes[axis]) continue;
    for (const i32 side : {0, 1}) {
      const VecInt3D face = cell + ExtraOf(axis) * side;
      const VecInt3D next = cell + ExtraOf(axis) * (2 * side - 1);
      if (next[axis] < 1 || next[axis] > field.Dims()[axis] - 2) continue;
      if (!((*mOpen[axis])(face.x, face.y, face.z) > 0)) continue;
      const double known = field(next.x, next.y, next.z);
      if (!std::isnan(known)) sum += known, ++count;
    }
  }
  return count > 0 ? sum / count : kUnknown;
}

void CutCells::Continue(i32 axis, double otherwise, EGrid<double>& field) const {
  for (const VecInt3D& c : mCells) field(c.x, c.y, c.z) = kUnknown;
  std::vector<VecInt3D> unknown = mCells, rest;
  std::vector<double> found;
  const auto fill = [&](const std::array<bool, 3>& axes) {
    rest.clear();
    found.clear();
    for (const VecInt3D& c : unknown) found.push_back(MeanBeside(field, c, axes));
    for (std::size_t i = 0; i < unknown.size(); ++i) {
      const VecInt3D& c = unknown[i];
      if (std::isnan(found[i]))
        rest.push_back(c);
      else
        field(c.x, c.y, c.z) = found[i];
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
  for (const VecInt3D& c : unknown) field(c.x, c.y, c.z) = otherwise;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
