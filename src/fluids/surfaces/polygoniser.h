// Surfaces of level sets.
#pragma once
#include "fluids/surfaces/surface_slab.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Turns the surface of a level set, negative inside, into triangles whose points are shared.
///
/// The outermost cells of the grid are left out: a surface that reaches them stays open there.
/// Slabs of cells are cut apart from each other, by any workers; their number doesn't depend on
/// workers, and neither does the result.
class Polygoniser {
 public:
  /// `kCubes` makes the fewest triangles; the tetrahedra of `kLatticeTetrahedra` are nearly alike
  /// in all directions, and those of `kCellTetrahedra` between the two.
  enum Method : i32 { kCubes = 0, kCellTetrahedra = 1, kLatticeTetrahedra = 2 };

  struct Settings {
    i32 method = kCubes;
    i32 sampleMode = SAMPLE_LINEAR;  ///< of lattice tetrahedra
    double level = 0;                ///< simulation units
    double resolution = 1;           ///< cells for one of the grid, along an axis
    bool isWhole = false;            ///< there is a surface where the field jumps, too
  };

  /// The grid stays as it is until `Join` is done.
  Polygoniser(const EGrid<double>& grid, const Settings& settings);

  i32 SlabCount() const { return static_cast<i32>(mSlabs.size()); }
  /// Cuts one slab. Any worker.
  void Polygonise(i32 slab);
  /// Puts the slabs together: what their neighbours have too is shared.
  void Join(i32 threads);
  /// The sums of points and triangles; whether there are any.
  bool CountResult(i32& points, i32& triangles) const;
  /// Gives each point the direction in which the level set grows; none where it is level.
  void ComputeNormals(i32 threads);

  const SurfaceMesh& Result() const { return mResult; }
  SurfaceMesh TakeResult() { return std::move(mResult); }

 private:
  Settings mSettings;
  SurfaceLattice mLattice;
  std::vector<SurfaceSlab> mSlabs;
  SurfaceMesh mResult;
};

/// The whole surface on `threads` threads.
SurfaceMesh PolygoniseGrid(const EGrid<double>& grid, const Polygoniser::Settings& settings,
                           i32 threads, bool withNormals);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
