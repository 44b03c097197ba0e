// How the gas outside of a container carries its own velocity along.
#include <algorithm>
#include <cmath>

#include "fluids/pressure/outer_level.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Cells of the lattice in a step up to which a parabola through the next samples does.
constexpr double kShortWay = 0.3;

/// The velocity on a lattice, at any place in cells of the domain.
class LatticeFlow {
 public:
  LatticeFlow(const OuterLattice& lattice, const std::array<const EGrid<double>*, 3>& velocity)
      : mVelocity(velocity) {
    for (i32 axis = 0; axis < 3; ++axis) {
      mLines[axis] = lattice.NodesOf(axis, axis);
      mCentres[axis] = lattice.NodesOf(axis, kCentre);
      mAtLines[axis] = Parabolas(mLines[axis]);
      mAtCentres[axis] = Parabolas(mCentres[axis]);
    }
  }
  Vec3d PlaceOf(i32 axis, const VecInt3D& face) const {
    Vec3d place;
    for (i32 a = 0; a < 3; ++a) place[a] = NodesOf(axis, a)[face[a]];
    return place;
  }
  /// The velocity at a face of `axis` that has cells on both sides.
  Vec3d AtFace(i32 axis, const VecInt3D& face) const {
    Vec3d velocity;
    const VecInt3D below = face - ExtraOf(axis);
    for (i32 a = 0; a < 3; ++a) {
      const EGrid<double>& v = *mVelocity[a];
      const VecInt3D up = ExtraOf(a);
      const i32 ahead = v.Index(up.x, up.y, up.z) - v.Index(0, 0, 0);
      const i32 here = v.Index(face.x, face.y, face.z), low = v.Index(below.x, below.y, below.z);
      velocity[a] =
          a == axis ? v[here] : 0.25 * (v[here] + v[here + ahead] + v[low] + v[low + ahead]);
    }
    return velocity;
  }
  /// The least cells of the lattice, in sum over the axes, that lie along a way from a face.
  double CellsAlong(i32 axis, const VecInt3D& face, const Vec3d& way) const {
    double cells = 0;
    for (i32 a = 0; a < 3; ++a) cells += std::fabs(way[a]) * ParabolasOf(axis, a)[face[a]].perCell;
    return cells;
  }
  /// A component a short way before its face.
  double ParabolaAt(i32 axis, const VecInt3D& face, const Vec3d& way) const {
    const EGrid<double>& v = *mVelocity[axis];
    const i32 here = v.Index(face.x, face.y, face.z), ahead[3] = {1, v.mNx, v.mSlice};
    double value = v[here];
    for (i32 a = 0; a < 3; ++a) {
      const Parabola& p = ParabolasOf(axis, a)[face[a]];
      const double up = v[here + ahead[a]] - v[here], down = v[here - ahead[a]] - v[here];
      value -= way[a] *
               (p.slope[0] * down + p.slope[1] * up - way[a] * (p.bend[0] * down + p.bend[1] * up));
    }
    return value;
  }
  Vec3d LinearAt(const Vec3d& place) const {
    Vec3d velocity;
    for (i32 axis = 0; axis < 3; ++axis) velocity[axis] = Linear(axis, place);
    return velocity;
  }
  /// A component by cubics that stay between the nearest samples.
  double CubicAt(i32 axis, const Vec3d& place) const {
    const EGrid<double>& v = *mVelocity[axis];
    std::array<AxisTaps, 3> taps;
    for (i32 a = 0; a < 3; ++a) taps[a] = CubicTaps(NodesOf(axis, a), place[a]);
    double sum = 0, least = kHuge, most = -kHuge;
    for (i32 k = 0; k < 4; ++k)
      for (i32 j = 0; j < 4; ++j) {
        const i32 row = v.Index(0, taps[1].node[j], taps[2].node[k]);
        double line = 0;
        for (i32 i = 0; i < 4; ++i) line += taps[0].weight[i] * v[row + taps[0].node[i]];
        sum += taps[1].weight[j] * taps[2].weight[k] * line;
        if (j != 1 && j != 2) continue;
        if (k != 1 && k != 2) continue;
        for (const i32 i : {1, 2}) {
          least = std::min(least, v[row + taps[0].node[i]]);
          most = std::max(most, v[row + taps[0].node[i]]);
        }
      }
    return std::clamp(sum, least, most);
  }

 private:
  /// What the slope and half of the second derivative at a node take of the differences to the
  /// next nodes below and above.
  struct Parabola {
    double slope[2] = {}, bend[2] = {}, perCell = 0;
  };

  static std::vector<Parabola> Parabolas(const std::vector<double>& nodes) {
    std::vector<Parabola> found(nodes.size());
    for (std::size_t i = 1; i + 1 < nodes.size(); ++i) {
      const double a = nodes[i] - nodes[i - 1], b = nodes[i + 1] - nodes[i];
      found[i] = {{-b / (a * (a + b)), a / (b * (a + b))},
                  {1 / (a * (a + b)), 1 / (b * (a + b))},
                  1 / std::min(a, b)};
    }
    return found;
  }
  const std::vector<Parabola>& ParabolasOf(i32 axis, i32 along) const {
    return (along == axis ? mAtLines : mAtCentres)[along];
  }
  static constexpr double kHuge = 1e300;

  const std::vector<double>& NodesOf(i32 axis, i32 along) const {
    return (along == axis ? mLines : mCentres)[along];
  }
  double Linear(i32 axis, const Vec3d& place) const {
    const EGrid<double>& v = *mVelocity[axis];
    VecInt3D node;
    Vec3d share;
    for (i32 a = 0; a < 3; ++a) {
      const std::vector<double>& nodes = NodesOf(axis, a);
      const auto above = std::upper_bound(nodes.begin(), nodes.end(), place[a]);
      node[a] = std::clamp(static_cast<i32>(above - nodes.begin()) - 1, 0,
                           static_cast<i32>(nodes.size()) - 2);
      const double low = nodes[node[a]], size = nodes[node[a] + 1] - low;
      share[a] = std::clamp((place[a] - low) / size, 0.0, 1.0);
    }
    const auto along = [&](i32 j, i32 k) {
      const i32 i = v.Index(node.x, node.y + j, node.z + k);
      return (1 - share.x) * v[i] + share.x * v[i + 1];
    };
    return (1 - share.z) * ((1 - share.y) * along(0, 0) + share.y * along(1, 0)) +
           share.z * ((1 - share.y) * along(0, 1) + share.y * along(1, 1));
  }

  std::array<const EGrid<double>*, 3> mVelocity;
  std::array<std::vector<double>, 3> mLines, mCentres;
  std::array<std::vector<Parabola>, 3> mAtLines, mAtCentres;
};

}  // namespace

void OuterLevel::Advect(double dt) {
  const LatticeFlow flow(mLattice, {mVelocity[0].get(), mVelocity[1].get(), mVelocity[2].get()});
  const double perCell = dt / mFlow->GetLayout()->cellSize;
  std::array<std::vector<double>, 3> moved;
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& velocity = *mVelocity[axis];
    const VecInt3D n = velocity.Dims();
    moved[axis].assign(velocity.mData, velocity.mData + velocity.mCount);
    ForEachBlock(n.z, Threads(), [&](i32 z) {
      ForEachCell({{0, 0, z}, {n.x, n.y, z + 1}}, [&](i32 x, i32 y, i32) {
        const VecInt3D face{x, y, z};
        const i32 index = velocity.Index(x, y, z);
        if (mLattice.IsInnerFace(axis, face) || !((*mOutside[axis])[index] > 0)) return;
        const Vec3d way = flow.AtFace(axis, face) * perCell;
        if (flow.CellsAlong(axis, face, way) < kShortWay) {
          moved[axis][index] = flow.ParabolaAt(axis, face, way);
          return;
        }
        const Vec3d place = flow.PlaceOf(axis, face);
        const Vec3d middle = flow.LinearAt(place - 0.5 * way);
        moved[axis][index] = flow.CubicAt(axis, place - middle * perCell);
      });
    });
  }
  for (i32 axis = 0; axis < 3; ++axis)
    std::copy(moved[axis].begin(), moved[axis].end(), mVelocity[axis]->mData);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
