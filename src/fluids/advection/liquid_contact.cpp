#include "fluids/advection/liquid_contact.h"

#include <algorithm>

#include "fluids/advection/flow_solid.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// The least distance at the nodes of a cell.
double LeastDistance(const EGrid<double>& level, const VecInt3D& cell) {
  const double* n = level.mData + level.Index(cell.x, cell.y, cell.z);
  const i32 ny = level.mNx, nz = level.mSlice;
  return std::min({n[0], n[1], n[ny], n[ny + 1], n[nz], n[nz + 1], n[nz + ny], n[nz + ny + 1]});
}

/// What of a velocity beside a solid doesn't lead into it, nor into another one a bit farther on,
/// as at the bottom of a groove: no more than the way between both, or nothing.
Vec3d FreePart(const FlowSolid& solid, const Vec3d& p, SolidDistance at, Vec3d v) {
  constexpr i32 kSurfaces = 3;
  const double ahead = LiquidContact::kAhead * solid.CellSize();
  Vec3d place = p;
  for (i32 i = 0; i < kSurfaces; ++i) {
    const Vec3d n = solid.NormalAt(place, at);
    v -= n * std::min(Dot(n, v), 0.0);
    const double speed = Length(v);
    if (!(speed > 0)) return {};
    place = p + v * (ahead / speed);
    at = solid.At(place);
    if (at.distance >= 0) return v;
  }
  return {};
}

}  // namespace

void LiquidContact::Apply(const ParticleSort& sort, const Flow& flow, BodyLedger& ledger) {
  const FlowSolid solid(flow.mBoundary);
  const VecInt3D cells = sort.Layout().dims;
  if (solid.IsEmpty() || flow.mBoundary.GetLevelSet()->Dims() != cells + VecInt3D{1, 1, 1}) return;
  const EGrid<double>& level = *flow.mBoundary.GetLevelSet();
  const double h = level.mLayout.cellSize, dt = flow.StepDuration();
  const bool moves = dt > 0 && flow.mBoundary.DrivesFlow();
  std::vector<ParticleStore*> stores;
  std::vector<std::array<Vec3d*, 3>> slopes;
  for (ParticleGroup* group : sort.Groups()) {
    ParticleStore& store = *stores.emplace_back(&group->Store(sort.Kind()));
    for (i32 axis = 0; auto& slope : slopes.emplace_back()) {
      auto* column = store.Find<Vec3d>(property_id::kSlopeU + axis++);
      slope = column ? column->Values() : nullptr;
    }
  }
  std::vector<std::vector<BodyLedger::Touch>> touches(ledger.IsEmpty() ? 0 : cells.z);
  const auto meet = [&](const ParticleSort::Entry& entry, i32 layer) {
    const SolidDistance at = solid.At(entry.position);
    if (at.distance > kTouch * h) return;
    ParticleStore& store = *stores[entry.group];
    if (at.distance < -kBuried * h) {
      store.Flags()[entry.row] &= static_cast<u16>(~PF_ALIVE);
      return;
    }
    const Vec3d surface = moves ? flow.mBoundary.GetFlowVelocity(entry.position) / dt : Vec3d{};
    Vec3d& v = store.Velocities()[entry.row];
    const Vec3d left = FreePart(solid, entry.position, at, v - surface);
    if (left == v - surface) return;
    if (!touches.empty()) touches[layer].push_back({entry.position, surface + left - v});
    v = surface + left;
    for (Vec3d* slope : slopes[entry.group])
      if (slope) slope[entry.row] = {};
  };
  ForEachBlock(cells.z, flow.Threads(), [&](i32 z) {
    for (i32 y = 0; y < cells.y; ++y)
      for (i32 x = 0; x < cells.x; ++x)
        // Nodes tell too much by up to a cell where a solid is thin.
        if (const auto own = sort.Cell({x, y, z});
            !own.empty() && LeastDistance(level, {x, y, z}) <= h)
          for (const ParticleSort::Entry& entry : own) meet(entry, z);
  });
  for (const auto& layer : touches) ledger.BookTouches(layer, flow);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
