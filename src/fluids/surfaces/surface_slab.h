// A part of a surface that one worker makes.
#pragma once
#include <cmath>
#include <limits>
#include <span>
#include <utility>

#include "fluids/surfaces/surface_mesh.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How a level set is cut up. Nodes of the lattice lie `1 / resolution` cells of the grid apart,
/// the first one a cell off the grid's first sample.
struct SurfaceLattice {
  const EGrid<double>* grid;
  double level;       ///< of the surface, simulation units
  double resolution;  ///< nodes for a cell of the grid, along an axis
  i32 sampleMode;     ///< between samples of the grid
  VecInt3D nodes;     ///< some on each axis; no cells without two
  bool isWhole;       ///< all samples were computed, and what jumps is the field's own

  /// Twice what a distance changes over the diagonal of a cell.
  double TwoDiagonals() const { return 2 * 1.7320508 * grid->mLayout.cellSize / resolution; }
  /// What a field may change over the diagonal of a cell. Where it changes more there is no
  /// surface, but a jump, as at the rim of what was computed.
  double GreatestChange() const {
    return isWhole ? std::numeric_limits<double>::infinity() : TwoDiagonals();
  }

  /// A value less the level, by a hundred thousandth of a cell off 0: points on edges that meet in
  /// a node stay apart, and no triangle is without area.
  double Relative(double value) const {
    const double least = 1e-5 * grid->mLayout.cellSize / resolution, v = value - level;
    return std::abs(v) < least ? least : v;
  }
  /// The sample coordinates of a place in steps of nodes.
  Vec3d ToSamples(const Vec3d& node) const { return node / resolution + Vec3d{1, 1, 1}; }
  /// A place in steps of nodes, simulation units.
  Vec3d PositionOf(const Vec3d& node) const {
    return grid->mLayout.simOrigin +
           (ToSamples(node) + OffsetOf(grid->mKind)) * grid->mLayout.simCell;
  }
  /// The value at a place in steps of nodes.
  double ValueAt(const Vec3d& node) const {
    const double shift = sampleMode == SAMPLE_BSPLINE ? 0.5 : 0.0;
    return Relative(Sample(*grid, ToSamples(node) + Vec3d{shift, shift, shift}, sampleMode));
  }
  /// Whether the surface may come through a box of places in steps of nodes, by the samples that
  /// tell of them.
  bool MayCross(const Vec3d& low, const Vec3d& high) const;
  /// The nodes of a layer, x fastest.
  void ReadLayer(i32 layer, std::vector<double>& values) const;
};

/// How many nodes of a lattice fit between the second sample of an axis and the last but one.
i32 NodesOn(i32 samples, double resolution);

/// The part of a surface in some layers of cells. Points on edges that the next slab sees as well
/// stand in both, in one order: (id of the edge, point), ascending.
struct SurfaceSlab {
  using Seam = std::vector<std::pair<std::pair<u64, u64>, i32>>;

  i32 firstLayer = 0, lastLayer = 0;
  SurfaceMesh mesh;
  Seam lower, upper;
};

/// Marching cubes.
void CutCubes(const SurfaceLattice& lattice, SurfaceSlab& slab);
/// Five tetrahedra for each cell, mirrored from cell to cell (1), or 46 on a lattice of quarter
/// cells (2), which are nearly alike in all directions.
void CutTetrahedra(const SurfaceLattice& lattice, i32 method, SurfaceSlab& slab);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
