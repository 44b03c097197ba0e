// Smoke in a flow that a test sets.
#pragma once
#include <algorithm>
#include <numbers>
#include <numeric>
#include <vector>

#include "fluids/advection/grid_advection.h"
#include "fluids/gas_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

inline constexpr i32 kConservative = 2, kConservativeMacCormack = 3;

/// A channel that a scheme moves in a flow that the test sets.
struct ConservativeRig : GasRig {
  ConservativeRig(const VecInt3D& cells, double cellSize, i32 scheme, i32 threads = 1)
      : GasRig(cells, cellSize, threads) {
    host::BaseNode& channel = Add("channel_scalar", "smoke");
    smoke = Object<ScalarField>(channel);
    node = &Add("grid_advection", "move");
    node->Set(1000, LinkTo(channel));
    node->Set(1005, LinkTo(*gasNode));
    node->Set(1002, scheme);
    move = Object<GridAdvection>(*node);
  }
  /// A solid beside the walls, by its distance; the one before is gone.
  template <class F>
  void Solid(F&& distance) {
    EGrid<double>& phi = *gas->mFlow.mBoundary.GetLevelSet();
    if (walls.empty()) {
      walls.assign(phi.mData, phi.mData + phi.mCount);
      gas->mFlow.mWallCells.Release();  // the first solid stood there from the start
    }
    ForEachCell({{0, 0, 0}, phi.Dims()}, [&](i32 x, i32 y, i32 z) {
      phi(x, y, z) = std::min(walls[phi.Index(x, y, z)], distance(phi.PositionOf(x, y, z)));
    });
    gas->mFlow.mSolidCells.Build(phi, 1);
    gas->mFlow.mWallCells.Build(gas->mFlow.mBoundary, gas->mFlow.mSolidCells.Get(), ThinFaces(), 1);
  }
  void Ball(const Vec3d& centre, double radius) {
    Solid([&](const Vec3d& p) { return Length(p - centre) - radius; });
  }
  bool IsOpen(i32 x, i32 y, i32 z) const {
    return !gas->mFlow.mBoundary.IsSolid({x + 0.5, y + 0.5, z + 0.5}, *smoke->mGrid, false);
  }
  /// Smoke in a ball, nothing in cells that lie in solids.
  void Puff(const Vec3d& centre, double radius) {
    const EGrid<double>& g = *smoke->mGrid;
    Fill(*smoke->mGrid, [&](const Vec3d& p) {
      const bool solid = gas->mFlow.mBoundary.IsSolid(g.mLayout.ToCells(p), g, false);
      return !solid && Length(p - centre) < radius ? 0.7 : 0.0;
    });
  }
  void Move(i32 steps) {
    for (i32 i = 0; i < steps; ++i) {
      SetUp();
      RunOperators();
    }
  }
  double Total() const {
    return std::accumulate(smoke->mGrid->mData, smoke->mGrid->mData + smoke->mGrid->mCount, 0.0);
  }
  FieldLedger TakeLedger() { return smoke->mAccount.Take(); }
  ScalarField* smoke = nullptr;
  host::BaseNode* node = nullptr;
  GridAdvection* move = nullptr;
  std::vector<double> walls;
};

/// Free of divergence, across no side of a box of `size`.
inline Vec3d Stir(const Vec3d& p, double size) {
  const double k = std::numbers::pi / size;
  return {std::sin(k * p.x) * (std::cos(k * p.y) - std::cos(k * p.z)),
          std::sin(k * p.y) * (std::cos(k * p.z) - std::cos(k * p.x)),
          std::sin(k * p.z) * (std::cos(k * p.x) - std::cos(k * p.y))};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
