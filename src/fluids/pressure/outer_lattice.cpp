#include "fluids/pressure/outer_lattice.h"

#include <algorithm>
#include <cmath>

#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kNearGrowth = 1.6;  // of a cell to the next one outwards
constexpr double kFarGrowth = 4;     // where nothing happens any more
constexpr double kNear = 2;          // widths of the container to there
constexpr double kMost = 1000;       // to the end of the lattice
constexpr double kLeastAcross = 9;   // cells across a container of some size
constexpr i64 kFineCells = 16;       // at least so many fine cells to a cell of the lattice

/// Sizes of cells that grow from about `first` on and fill `length`, faster beyond `near`.
std::vector<double> GrowingSizes(double first, double near, double length) {
  std::vector<double> sizes;
  double sum = 0;
  for (double size = first; sum < length * (1 - 1e-9);
       size *= sum < near ? kNearGrowth : kFarGrowth) {
    sizes.push_back(size);
    sum += size;
  }
  for (double& size : sizes) size *= length / sum;
  return sizes;
}

/// Cuts an axis whose container has the inner cells [begin, end), of a user's box from `low` to
/// `high`.
OuterAxis CutAxis(i32 begin, i32 end, i32 low, i32 high, i32 step, double width) {
  const i32 inner = end - begin;
  // Cut alike from both ends, so that what is symmetric in the container stays so: an odd number of
  // cells has a part in the middle.
  i32 parts = std::max(1, (inner + step / 2) / step);
  if (inner % 2 == 1 && parts % 2 == 0) --parts;
  const double first = static_cast<double>(inner) / parts;
  OuterAxis axis;
  std::vector<double>& lines = axis.lines;
  const double below = std::clamp(double(begin) - low, 0.0, kMost * width);
  const double above = std::clamp(double(high) - end, 0.0, kMost * width);
  const std::vector<double> down = GrowingSizes(first, kNear * width, below);
  const std::vector<double> up = GrowingSizes(first, kNear * width, above);
  lines.push_back(begin - below - 1);
  lines.push_back(begin - below);
  for (std::size_t i = down.size(); i > 1; --i) lines.push_back(lines.back() + down[i - 1]);
  axis.first = static_cast<i32>(down.size()) + 1;
  if (!down.empty()) lines.push_back(begin);
  const auto cut = [&](i32 part) { return static_cast<i32>(i64{inner} * part / parts); };
  for (i32 part = 1; part <= parts; ++part)
    lines.push_back(2 * part <= parts ? begin + cut(part) : end - cut(parts - part));
  axis.last = axis.first + parts;
  for (std::size_t i = 0; i < up.size(); ++i)
    lines.push_back(i + 1 < up.size() ? lines.back() + up[i] : end + above);
  lines.push_back(end + above + 1);
  return axis;
}

}  // namespace

void OuterAxis::Persist(StateArchive& archive) { archive(lines, first, last); }

void OuterLattice::Persist(StateArchive& archive) { archive(mAxes[0], mAxes[1], mAxes[2]); }

OuterLattice::OuterLattice(const GridLayout& layout, const VecInt3D& low, const VecInt3D& high) {
  const VecInt3D inner = layout.dims - VecInt3D{2, 2, 2};
  if (inner.x < 1 || inner.y < 1 || inner.z < 1) return;
  const double fine = static_cast<double>(inner.x) * inner.y * inner.z;
  const double width = std::max({inner.x, inner.y, inner.z});
  for (i32 step = 2;; ++step) {
    double cells = 1;
    for (i32 a = 0; a < 3; ++a) {
      const i32 begin = layout.originCell[a] + 1;
      mAxes[a] = CutAxis(begin, begin + inner[a], low[a], high[a], step, width);
      cells *= mAxes[a].Cells();
    }
    if (cells * kFineCells <= fine || std::cbrt(fine) < kLeastAcross * (step + 1)) return;
  }
}

VecInt3D OuterLattice::InnerDims() const {
  return {mAxes[0].last - mAxes[0].first, mAxes[1].last - mAxes[1].first,
          mAxes[2].last - mAxes[2].first};
}

bool OuterLattice::IsInnerCell(i32 x, i32 y, i32 z) const {
  return x >= mAxes[0].first && x < mAxes[0].last && y >= mAxes[1].first && y < mAxes[1].last &&
         z >= mAxes[2].first && z < mAxes[2].last;
}

bool OuterLattice::IsInnerFace(i32 axis, const VecInt3D& face) const {
  for (i32 a = 0; a < 3; ++a) {
    const i32 extra = a == axis ? 1 : 0;
    if (face[a] < mAxes[a].first || face[a] >= mAxes[a].last + extra) return false;
  }
  return true;
}

double OuterLattice::AreaOf(i32 axis, const VecInt3D& face) const {
  const i32 p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
  return mAxes[p].SizeOf(face[p]) * mAxes[q].SizeOf(face[q]);
}

double OuterLattice::VolumeOf(const VecInt3D& cell) const {
  return mAxes[0].SizeOf(cell.x) * mAxes[1].SizeOf(cell.y) * mAxes[2].SizeOf(cell.z);
}

AxisTaps CubicTaps(const std::vector<double>& nodes, double place) {
  const i32 n = static_cast<i32>(nodes.size());
  const double x = std::clamp(place, nodes.front(), nodes.back());
  const i32 above =
      static_cast<i32>(std::upper_bound(nodes.begin(), nodes.end(), x) - nodes.begin());
  const i32 i = std::clamp(above - 1, 0, n - 2);
  const double h = nodes[i + 1] - nodes[i], t = (x - nodes[i]) / h;
  const double t2 = t * t, t3 = t2 * t;
  AxisTaps taps;
  for (i32 tap = 0; tap < 4; ++tap) taps.node[tap] = std::clamp(i + tap - 1, 0, n - 1);
  auto& w = taps.weight;
  w[1] = 2 * t3 - 3 * t2 + 1;
  w[2] = 3 * t2 - 2 * t3;
  // Adds `share` times the slope at node i + `side`, tap 1 + side.
  const auto addSlope = [&](i32 side, double share) {
    const i32 node = i + side, tap = 1 + side;
    if (node == 0 || node == n - 1) {
      w[1] -= share / h;
      w[2] += share / h;
      return;
    }
    const double a = nodes[node] - nodes[node - 1], b = nodes[node + 1] - nodes[node];
    const double below = b / (a * (a + b)), upper = a / (b * (a + b));
    w[tap - 1] -= share * below;
    w[tap] += share * (below - upper);
    w[tap + 1] += share * upper;
  };
  addSlope(0, h * (t3 - 2 * t2 + t));
  addSlope(1, h * (t3 - t2));
  return taps;
}

std::vector<double> OuterLattice::NodesOf(i32 axis, i32 kind) const {
  const OuterAxis& cut = mAxes[axis];
  std::vector<double> nodes = cut.lines;
  if (kind == axis) return nodes;
  nodes.pop_back();
  for (i32 i = 0; i < cut.Cells(); ++i) nodes[i] = cut.CentreOf(i);
  return nodes;
}

std::vector<AxisTaps> OuterLattice::TapsOf(i32 axis, i32 kind, double origin,
                                           IndexRange range) const {
  const std::vector<double> nodes = NodesOf(axis, kind);
  const double offset = OffsetOf(kind)[axis];
  std::vector<AxisTaps> taps;
  for (i32 i = range.first; i < range.last; ++i)
    taps.push_back(CubicTaps(nodes, origin + i + offset));
  return taps;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
