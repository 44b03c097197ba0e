#include "fluids/surfaces/polygoniser.h"

#include <algorithm>
#include <cmath>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Layers of cells: thinner slabs read more layers twice.
constexpr i32 kSlab = 8;

/// For each point of a slab its index in the whole, -1 for those that the next slab has too.
using Places = std::vector<i32>;

/// Calls f(own, other) for the points that a slab has from the next one.
template <class F>
void ForEachShared(const SurfaceSlab::Seam& upper, const SurfaceSlab::Seam& lower, F&& f) {
  auto other = lower.begin();
  for (const auto& [edge, point] : upper) {
    while (other != lower.end() && other->first < edge) ++other;
    if (other != lower.end() && other->first == edge) f(point, other->second);
  }
}

}  // namespace

i32 NodesOn(i32 samples, double resolution) {
  constexpr double kNoise = 1e-9;
  return samples < 4 ? 0 : static_cast<i32>(std::floor((samples - 3) * resolution + kNoise)) + 1;
}

Polygoniser::Polygoniser(const EGrid<double>& grid, const Settings& settings)
    : mSettings(settings) {
  const bool isPlain = settings.method != kLatticeTetrahedra;
  mLattice = {
      .grid = &grid,
      .level = settings.level,
      .resolution = settings.resolution,
      .sampleMode = isPlain ? i32{SAMPLE_LINEAR} : settings.sampleMode,
      .nodes = {NodesOn(grid.mNx, settings.resolution), NodesOn(grid.mNy, settings.resolution),
                NodesOn(grid.mNz, settings.resolution)},
      .isWhole = settings.isWhole};
  if (std::min({mLattice.nodes.x, mLattice.nodes.y, mLattice.nodes.z}) < 2) return;
  const i32 layers = mLattice.nodes.z - 1;
  mSlabs.resize((layers + kSlab - 1) / kSlab);
  for (i32 i = 0; i < SlabCount(); ++i) {
    mSlabs[i].firstLayer = i * kSlab;
    mSlabs[i].lastLayer = std::min(layers, (i + 1) * kSlab);
  }
}

void Polygoniser::Polygonise(i32 slab) {
  if (mSettings.method == kCubes)
    CutCubes(mLattice, mSlabs[slab]);
  else
    CutTetrahedra(mLattice, mSettings.method, mSlabs[slab]);
}

void Polygoniser::Join(i32 threads) {
  std::vector<Places> places(mSlabs.size());
  i32 points = 0, triangles = 0;
  std::vector<i32> firstPoint, firstTriangle;
  for (std::size_t s = 0; s < mSlabs.size(); ++s) {
    places[s].assign(mSlabs[s].mesh.points.size(), 0);
    if (s + 1 < mSlabs.size())
      ForEachShared(mSlabs[s].upper, mSlabs[s + 1].lower,
                    [&](i32 own, i32) { places[s][own] = -1; });
    firstPoint.push_back(points);
    for (i32& place : places[s])
      if (place == 0) place = points++;
    firstTriangle.push_back(triangles);
    triangles += static_cast<i32>(mSlabs[s].mesh.triangles.size());
  }
  // Last slab first, should a point be handed on through several.
  for (std::size_t s = mSlabs.size(); s-- > 1;)
    ForEachShared(mSlabs[s - 1].upper, mSlabs[s].lower,
                  [&](i32 own, i32 other) { places[s - 1][own] = places[s][other]; });
  mResult.points.resize(points);
  mResult.triangles.resize(triangles);
  mResult.normals.clear();
  ForEachBlock(SlabCount(), threads, [&](i32 s) {
    SurfaceMesh& mesh = mSlabs[s].mesh;
    const i32 end = s + 1 < SlabCount() ? firstPoint[s + 1] : points;
    for (std::size_t i = 0; i < mesh.points.size(); ++i)
      if (places[s][i] < end) mResult.points[places[s][i]] = mesh.points[i];
    for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
      const VecInt3D& t = mesh.triangles[i];
      mResult.triangles[firstTriangle[s] + i] = {places[s][t.x], places[s][t.y], places[s][t.z]};
    }
    mesh = {};
  });
}

bool Polygoniser::CountResult(i32& points, i32& triangles) const {
  points = static_cast<i32>(mResult.points.size());
  triangles = static_cast<i32>(mResult.triangles.size());
  return points > 0 && triangles > 0;
}

void Polygoniser::ComputeNormals(i32 threads) {
  constexpr i32 kRun = 4096;
  const EGrid<double>& grid = *mLattice.grid;
  const i32 count = static_cast<i32>(mResult.points.size());
  mResult.normals.assign(count, {});
  ForEachBlock((count + kRun - 1) / kRun, threads, [&](i32 block) {
    for (i32 i = block * kRun; i < std::min(count, (block + 1) * kRun); ++i) {
      const Vec3d g =
          SampleGradient(grid, grid.ToSamples(mResult.points[i]), grid.mLayout.cellSize);
      const double length = Length(g);
      if (length > 0 && std::isfinite(length)) mResult.normals[i] = g / length;
    }
  });
}

SurfaceMesh PolygoniseGrid(const EGrid<double>& grid, const Polygoniser::Settings& settings,
                           i32 threads, bool withNormals) {
  Polygoniser polygoniser(grid, settings);
  ForEachBlock(polygoniser.SlabCount(), threads, [&](i32 slab) { polygoniser.Polygonise(slab); });
  polygoniser.Join(threads);
  if (withNormals) polygoniser.ComputeNormals(threads);
  return polygoniser.TakeResult();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
