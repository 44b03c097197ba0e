// Solids in a box of cells, as the grids of a flow see them.
#pragma once
#include <memory>
#include <utility>
#include <vector>

#include "fluids/flow/narrow_gaps.h"
#include "fluids/flow/thin_faces.h"
#include "fluids/pressure/projection_box.h"
#include "fluids/volume/mesh_solid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

inline constexpr i32 kGapCells = 16;
inline constexpr f32 kGapCell = 0.25f;
inline const Vec3d kGapMiddle{8, 8, 8};

/// GapSolids in a box of cells with all that a flow finds of them.
struct GapSolids {
  GridBoundary boundary;
  std::vector<std::unique_ptr<MeshSolid>> solids;
  Grid_VolumeFractions fractions;
  SolidCells cells;
  NarrowGaps gaps;
  ThinFaces thin;

  explicit GapSolids(std::vector<TriMeshSTL> meshes, u8 walls = 0, i32 threads = 1,
                     const VecInt3D& dims = {kGapCells, kGapCells, kGapCells}) {
    for (TriMeshSTL& mesh : meshes) {
      solids.push_back(std::make_unique<MeshSolid>(std::move(mesh), kGapCell));
      boundary.mObstacles.push_back(solids.back().get());
    }
    const GridLayout layout = projection::MakeLayout(dims, kGapCell, {});
    boundary.mWalls = walls;
    boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
    boundary.Build(threads);
    fractions.mMethod = FractionMethod::Analytic;
    fractions.mInvert = true;
    fractions.mKinds = kFractionCell | kFractionFaces;
    fractions.mLeast = kLeastOpening;
    fractions.mSource = {boundary.GetLevelSet(), nullptr};
    fractions.Measure(threads);
    cells.Build(*boundary.GetLevelSet(), threads);
    gaps.Build(boundary, threads);
    gaps.Open(fractions);
    gaps.Mark(cells);
  }
  void CloseThinWalls(i32 threads = 1) {
    thin.Build(boundary, threads);
    if (thin.HasAny()) thin.Close(fractions);
  }
  float Open(i32 axis, i32 x, i32 y, i32 z) const { return (*fractions.GetRead(axis, 1))(x, y, z); }
  bool HoldsSmoke(i32 x, i32 y, i32 z) const {
    return (*cells.Get())(x, y, z) & SolidCells::kOpenCentre;
  }
};

inline TriMeshSTL GapBlock(const Vec3d& centre, const Vec3d& size, double aboutZ = 0) {
  return TurnedBox(centre, size, aboutZ, 0, kGapCell).mesh;
}

inline TriMeshSTL GapBall(const Vec3d& centre, double radius, i32 segments = 96) {
  return MeshOf(host::MakeSphere({.radius = radius, .segments = segments}), kGapCell,
                centre * double(kGapCell));
}

inline TriMeshSTL Joined(TriMeshSTL one, const TriMeshSTL& other) {
  Append(one, other);
  return one;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
