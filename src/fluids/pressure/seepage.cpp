#include "fluids/pressure/seepage.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Of a cell, from a body's surface to the centre of a cell that it shares with another solid.
constexpr double kShared = 0.75;
/// Of a cell: the depth of liquid in a gap, of which its particles tell nothing.
constexpr double kGapDepth = 0.5;

VecInt3D Beside(VecInt3D cell, i32 axis, i32 side) {
  cell[axis] += side;
  return cell;
}

/// How far open the face of a cell is on its low (-1) or high (1) side of an axis.
float OpenAt(const ProjectionFields& fields, const VecInt3D& cell, i32 axis, i32 side) {
  const VecInt3D face = Beside(cell, axis, side > 0);
  return (*fields.open[axis])(face.x, face.y, face.z);
}

bool IsClosed(const ProjectionFields& fields, const VecInt3D& cell) {
  for (i32 axis = 0; axis < 3; ++axis)
    if (OpenAt(fields, cell, axis, -1) > 0 || OpenAt(fields, cell, axis, 1) > 0) return false;
  return true;
}

bool IsInner(const VecInt3D& cell, const VecInt3D& cells) {
  for (i32 a = 0; a < 3; ++a)
    if (cell[a] < 1 || cell[a] > cells[a] - 2) return false;
  return true;
}

/// From the centre of a cell to the surface of a volume, in cells.
double DistanceTo(const VolumeBase& volume, const GridLayout& layout, const VecInt3D& cell) {
  const GridLayout& own = volume.GetGrid()->mLayout;
  const Vec3d p = layout.simOrigin + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell;
  for (i32 a = 0; a < 3; ++a)
    if (p[a] < own.simOrigin[a] || p[a] >= own.simMax[a]) return HUGE_VAL;
  return volume.DistanceAtWorld(p) / layout.cellSize;
}

}  // namespace

Seepage::Seepage(const ProjectionFields& fields, std::span<const MovingBody> bodies)
    : mFields(fields), mLayout(fields.velocity[0]->mLayout) {
  for (const MovingBody& body : bodies)
    if (body.coupled >= 0) mCovers.push_back({body.volume, CellsInReach(mLayout, *body.volume)});
}

bool Seepage::IsCovered(const VecInt3D& cell) const {
  const auto covers = [&](const Cover& cover) {
    const CellBox own = Clip({cell, cell + VecInt3D{1, 1, 1}}, cover.reach.min, cover.reach.max);
    return !own.IsEmpty() && DistanceTo(*cover.volume, mLayout, cell) < kShared;
  };
  return std::any_of(mCovers.begin(), mCovers.end(), covers);
}

std::optional<Seepage::Rim> Seepage::FindRim(VecInt3D at, i32 axis, i32 side) const {
  for (double away = 1;; ++away) {
    at[axis] += side;
    if (!IsInner(at, mLayout.dims)) return {};
    if (!IsClosed(mFields, at)) return RimAt(at, away);
    if (!IsCovered(at)) return {};
  }
}

Seepage::Rim Seepage::RimAt(const VecInt3D& cell, double away) const {
  const bool isWet = !mFields.surface || (*mFields.surface)(cell.x, cell.y, cell.z) < 0;
  return {mFields.openCell->Index(cell.x, cell.y, cell.z), away, isWet};
}

std::vector<Seepage::Share> Seepage::SharesInCorner(const VecInt3D& at,
                                                    const VecInt3D& ways) const {
  if (!IsInner(at + ways, mLayout.dims) || IsClosed(mFields, at + ways)) return {};
  std::vector<Share> shares;
  const Rim beyond = RimAt(at + ways, 0);
  for (i32 along = 0; along < 3; ++along) {
    if (ways[along] == 0) continue;
    const Rim rim = RimAt(Beside(at, along, ways[along]), 0);
    shares.push_back({rim.cell, 1, rim.isWet});
  }
  shares.push_back({beyond.cell, -1, beyond.isWet});
  return shares;
}

std::vector<Seepage::Share> Seepage::SharesOf(const VecInt3D& at, i32 axis) const {
  std::vector<Share> shares;
  double all = 0;
  bool isBetween = false;
  VecInt3D ways{};
  i32 ends = 0;
  for (i32 along = 0; along < 3; ++along) {
    if (along == axis) continue;
    const std::optional<Rim> low = FindRim(at, along, -1), high = FindRim(at, along, 1);
    // One side alone tells nothing of a slope of the pressure.
    const bool isPair = low && high;
    if (low || high) ++ends, ways[along] = static_cast<i32>(high ? high->away : -low->away);
    if (isBetween && !isPair) continue;
    if (isPair && !isBetween) {
      shares.clear();
      all = 0;
    }
    isBetween = isPair;
    double toLow = 1;
    if (low || high) toLow = low ? low->away : high->away;
    const double toHigh = high ? high->away : toLow;
    // As a film of this width alone would let through: 1 over both ways.
    const double weight = 1 / (toLow * toHigh);
    if (low)
      shares.push_back({low->cell, weight * (high ? toHigh / (toLow + toHigh) : 1), low->isWet});
    if (high)
      shares.push_back({high->cell, weight * (low ? toLow / (toLow + toHigh) : 1), high->isWet});
    if (low || high) all += weight;
  }
  if (!isBetween && ends == 2)
    if (auto corner = SharesInCorner(at, ways); !corner.empty()) return corner;
  for (Share& share : shares) share.part /= all;
  return shares;
}

std::vector<BodyRow> Seepage::Spread(const MovingBody& body, std::vector<BodyRow>& rows) const {
  std::map<i32, BodyRow> gained;
  const VecInt3D& n = mLayout.dims;
  for (BodyRow& row : rows) {
    const VecInt3D cell{row.cell % n.x, row.cell / n.x % n.y, row.cell / (n.x * n.y)};
    if (!IsClosed(mFields, cell)) continue;
    const Vec3d arm =
        mLayout.simOrigin + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * mLayout.simCell - body.centre;
    for (i32 axis = 0; axis < 3; ++axis) {
      if (row.area[axis] == 0) continue;
      const std::vector<Share> shares = SharesOf(cell, axis);
      if (shares.empty()) continue;
      Vec3d area{};
      area[axis] = row.area[axis];
      const Vec3d moment = Cross(arm, area);
      row.area -= area;
      row.moment -= moment;
      // Air presses with nothing.
      for (const Share& share : shares) {
        if (!share.isWet) continue;
        BodyRow& rim = gained[share.cell];
        rim.cell = share.cell;
        rim.area += area * share.part;
        rim.moment += moment * share.part;
      }
    }
  }
  std::erase_if(rows, [](const BodyRow& row) { return row.area == Vec3d{}; });
  std::vector<BodyRow> given;
  for (const auto& [cell, row] : gained) {
    given.push_back(row);
    const auto at = std::lower_bound(rows.begin(), rows.end(), cell,
                                     [](const BodyRow& r, i32 c) { return r.cell < c; });
    if (at == rows.end() || at->cell != cell) {
      rows.insert(at, row);
    } else {
      at->area += row.area;
      at->moment += row.moment;
    }
  }
  return given;
}

void FilledGaps::Fill(const ProjectionFields& fields, std::span<const MovingBody> bodies,
                      EGrid<double>& surface) {
  const GridLayout& layout = fields.velocity[0]->mLayout;
  const VecInt3D& n = layout.dims;
  const auto indexOf = [&](const VecInt3D& c) { return surface.Index(c.x, c.y, c.z); };
  const auto isGap = [&](const VecInt3D& c) {
    if (surface[indexOf(c)] < 0) return false;
    bool isThin = false, isOpen = false;
    for (i32 axis = 0; axis < 3; ++axis) {
      const float low = OpenAt(fields, c, axis, -1), high = OpenAt(fields, c, axis, 1);
      isThin |= low == 0 && high == 0;
      isOpen |= low > 0 || high > 0;
    }
    return isThin && isOpen;
  };
  std::map<i32, VecInt3D> gaps;
  for (const MovingBody& body : bodies) {
    if (body.coupled < 0) continue;
    const CellBox reach = CellsInReach(layout, *body.volume);
    ForEachCell(Clip(reach, {1, 1, 1}, n - VecInt3D{1, 1, 1}), [&](i32 x, i32 y, i32 z) {
      const VecInt3D cell{x, y, z};
      if (isGap(cell) && DistanceTo(*body.volume, layout, cell) < 1) gaps[indexOf(cell)] = cell;
    });
  }
  // Liquid comes in through open faces, from gap to gap.
  std::vector<VecInt3D> reached;
  const auto take = [&](std::map<i32, VecInt3D>::iterator gap) {
    mCells.push_back({gap->first, surface[gap->first]});
    reached.push_back(gap->second);
    surface[gap->first] = -kGapDepth * layout.cellSize;
    return gaps.erase(gap);
  };
  const auto isBesideLiquid = [&](const VecInt3D& cell) {
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 side : {-1, 1})
        if (OpenAt(fields, cell, axis, side) > 0 && surface[indexOf(Beside(cell, axis, side))] < 0)
          return true;
    return false;
  };
  std::vector<i32> first;
  for (const auto& [index, cell] : gaps)
    if (isBesideLiquid(cell)) first.push_back(index);
  for (const i32 index : first) take(gaps.find(index));
  while (!reached.empty()) {
    const VecInt3D cell = reached.back();
    reached.pop_back();
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 side : {-1, 1}) {
        if (!(OpenAt(fields, cell, axis, side) > 0)) continue;
        const auto next = gaps.find(indexOf(Beside(cell, axis, side)));
        if (next != gaps.end()) take(next);
      }
  }
}

void FilledGaps::Empty(EGrid<double>* surface) {
  if (surface)
    for (const Cell& cell : mCells) (*surface)[cell.index] = cell.phi;
  mCells.clear();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
