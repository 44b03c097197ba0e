// Cells that grow with the distance from a container.
#pragma once
#include <array>
#include <cmath>
#include <vector>

#include "fluids/volume/wall_bits.h"
#include "grids/fixed_blocks.h"
#include "grids/grid.h"
#include "grids/grid_layout.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// The cells of one axis. Places are in cells of the domain, those inside of the container whole
/// ones.
struct OuterAxis {
  std::vector<double> lines;  ///< rising; cell i lies between lines i and i + 1
  i32 first = 0, last = 0;    ///< the cells [first, last) cover the container without its outermost
                              ///< layers

  i32 Cells() const { return static_cast<i32>(lines.size()) - 1; }
  double SizeOf(i32 cell) const { return lines[cell + 1] - lines[cell]; }
  double CentreOf(i32 cell) const { return 0.5 * (lines[cell] + lines[cell + 1]); }
  /// From the centre below a line that isn't the first or the last to the centre above it.
  double DistanceAt(i32 line) const { return 0.5 * (lines[line + 1] - lines[line - 1]); }
  bool operator==(const OuterAxis&) const = default;
  void Persist(StateArchive& archive);
};

/// What a sample between four nodes of an axis takes of each.
struct AxisTaps {
  std::array<i32, 4> node{};
  std::array<double, 4> weight{};
};
using LatticeTaps = std::array<std::vector<AxisTaps>, 3>;

/// Cubic Hermite between rising nodes, with the slope at a node that of the parabola through it and
/// its neighbours; at the ends that of the line. Places beyond the ends count as these.
AxisTaps CubicTaps(const std::vector<double>& nodes, double place);

/// A lattice over a container and what surrounds it: cells of a few fine cells inside, which tile
/// the container, and outside of it others that grow with the distance. It ends at the user's
/// box, or at last a thousand widths of the container away. The outermost layer of cells
/// lies beyond the end, as in every grid that a projection works on.
class OuterLattice {
 public:
  OuterLattice() = default;
  /// For a container of the place `layout` in a user's box from `low` to `high`, in cells of the
  /// domain. Empty when the container has no inner cells.
  OuterLattice(const GridLayout& layout, const VecInt3D& low, const VecInt3D& high);

  bool IsEmpty() const { return mAxes[0].lines.empty(); }
  const OuterAxis& operator[](i32 axis) const { return mAxes[axis]; }
  VecInt3D Dims() const { return {mAxes[0].Cells(), mAxes[1].Cells(), mAxes[2].Cells()}; }
  /// Cells inside of the container.
  VecInt3D InnerDims() const;
  /// The face, or cell, of the lattice that is one of the inner ones.
  VecInt3D InnerFace(const VecInt3D& inner) const {
    return inner + VecInt3D{mAxes[0].first, mAxes[1].first, mAxes[2].first};
  }
  bool IsInnerCell(i32 x, i32 y, i32 z) const;
  /// A face of `axis` that lies in the container or bounds it.
  bool IsInnerFace(i32 axis, const VecInt3D& face) const;
  /// Area of a face of `axis` and volume of a cell, in fine ones.
  double AreaOf(i32 axis, const VecInt3D& face) const;
  double VolumeOf(const VecInt3D& cell) const;
  /// The cell of the domain that holds a place of an axis, the lower one of a place between two.
  static i32 CellHolding(double place) { return static_cast<i32>(std::ceil(place)) - 1; }

  /// Places of the samples of `kind` along an axis.
  std::vector<double> NodesOf(i32 axis, i32 kind) const;
  /// Taps on the samples of `kind` for the places `origin + i + offset`, first <= i < last, of an
  /// axis: a cubic with continuous slopes, which no line of the lattice shows in.
  std::vector<AxisTaps> TapsOf(i32 axis, i32 kind, double origin, IndexRange range) const;

  bool operator==(const OuterLattice&) const = default;
  void Persist(StateArchive& archive);

 private:
  std::array<OuterAxis, 3> mAxes;
};

/// Calls f(x, y, z, value) for all crossings of the taps' places on the axes, counted from 0.
/// `values` are the samples of a lattice, `dims` their number. Runs on up to `threads` workers,
/// each with rows of its own. The axis with the fewest places comes first: of a side that is one
/// place, and what is left are samples in a plane.
template <class F>
void Resample(const double* values, const VecInt3D& dims, const LatticeTaps& taps, i32 threads,
              F&& f) {
  if (taps[0].empty() || taps[1].empty() || taps[2].empty()) return;
  const auto reach = [](const std::vector<AxisTaps>& axis) {
    IndexRange range{axis.front().node[0], axis.front().node[3] + 1};
    for (const AxisTaps& t : axis)
      range = {std::min(range.first, t.node[0]), std::max(range.last, t.node[3] + 1)};
    return range;
  };
  i32 first = 2;
  for (const i32 a : {1, 0})
    if (taps[a].size() < taps[first].size()) first = a;
  const i32 fast = first == 0 ? 1 : 0, slow = first == 2 ? 1 : 2;
  const IndexRange columns = reach(taps[fast]), rows = reach(taps[slow]);
  const i32 n = columns.last - columns.first;
  const i64 steps[3] = {1, dims.x, i64{dims.x} * dims.y};
  const auto places = static_cast<i32>(taps[slow].size());
  std::vector<double> plane(static_cast<std::size_t>(n) * (rows.last - rows.first));
  std::vector<double> lines(static_cast<std::size_t>(n) * places);
  for (i32 p = 0; p < static_cast<i32>(taps[first].size()); ++p) {
    const AxisTaps& through = taps[first][p];
    for (i32 row = rows.first; row < rows.last; ++row)
      for (i32 i = 0; i < n; ++i) {
        const double* from = values + steps[slow] * row + steps[fast] * (columns.first + i);
        double sum = 0;
        for (i32 tap = 0; tap < 4; ++tap)
          sum += through.weight[tap] * from[steps[first] * through.node[tap]];
        plane[i64{n} * (row - rows.first) + i] = sum;
      }
    ForEachBlock(places, threads, [&](i32 place) {
      VecInt3D at;
      at[first] = p;
      at[slow] = place;
      double* line = lines.data() + i64{n} * place;
      std::fill_n(line, n, 0.0);
      for (i32 tap = 0; tap < 4; ++tap) {
        const AxisTaps& t = taps[slow][place];
        const double* row = plane.data() + i64{n} * (t.node[tap] - rows.first);
        for (i32 i = 0; i < n; ++i) line[i] += t.weight[tap] * row[i];
      }
      for (at[fast] = 0; at[fast] < static_cast<i32>(taps[fast].size()); ++at[fast]) {
        const AxisTaps& t = taps[fast][at[fast]];
        double sum = 0;
        for (i32 tap = 0; tap < 4; ++tap) sum += t.weight[tap] * line[t.node[tap] - columns.first];
        f(at.x, at.y, at.z, sum);
      }
    });
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
