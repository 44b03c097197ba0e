// The projection's formulas on a line of cells along x.
#pragma once
#include <algorithm>
#include <span>

#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/pressure/lattice_matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// `scale` over the density of a face, the same everywhere.
struct ConstantDensity {
  double value;
  double operator()(i32 /*cell*/, i32 /*neighbour*/) const { return value; }
};
/// `scale` over the density of a face, the mean of its two cells. A cell without density, such as
/// one of the outermost layer that nothing fills, takes that of its neighbour.
struct VariableDensity {
  static constexpr double kLeast = 1e-6;
  double scale;
  const double* density;
  double operator()(i32 cell, i32 neighbour) const {
    const double a = density[cell], b = density[neighbour];
    const double one = a > b ? a : b;
    const double face = (a > 0) & (b > 0) ? 0.5 * (a + b) : one;
    return scale / (face > kLeast ? face : kLeast);
  }
};

/// The fields along the cells (x, y, z) of a line, by x.
struct CellLine {
  i32 cell;  ///< index of the line's first cell
  const double *u, *v0, *v1, *w0, *w1;
  const float *ox, *oy0, *oy1, *oz0, *oz1, *openCell;
  const double* source;

  CellLine(const ProjectionFields& f, i32 y, i32 z)
      : cell(f.openCell->Index(0, y, z)),
        u(Row(f.velocity[0], y, z)),
        v0(Row(f.velocity[1], y, z)),
        v1(Row(f.velocity[1], y + 1, z)),
        w0(Row(f.velocity[2], y, z)),
        w1(Row(f.velocity[2], y, z + 1)),
        ox(Row(f.open[0], y, z)),
        oy0(Row(f.open[1], y, z)),
        oy1(Row(f.open[1], y + 1, z)),
        oz0(Row(f.open[2], y, z)),
        oz1(Row(f.open[2], y, z + 1)),
        openCell(Row(f.openCell, y, z)),
        source(f.source ? Row(f.source, y, z) : nullptr) {}

  bool IsOpen(i32 x) const {
    return ox[x] > 0 || ox[x + 1] > 0 || oy0[x] > 0 || oy1[x] > 0 || oz0[x] > 0 || oz1[x] > 0;
  }
  /// What flows out through the open parts of the faces, by volume, 1/s.
  double Divergence(i32 x, double inverseCell) const {
    return ((oy1[x] * v1[x] - oy0[x] * v0[x]) + (ox[x + 1] * u[x + 1] - ox[x] * u[x]) +
            (oz1[x] * w1[x] - oz0[x] * w0[x])) *
           inverseCell;
  }
  double Source(i32 x) const { return source ? openCell[x] * source[x] : 0.0; }
  /// Differences of the solid fractions of opposite faces over the cell size.
  Vec3d SolidGradient(i32 x, double h) const {
    const auto difference = [h](float low, float high) { return ((1.0 - high) - (1.0 - low)) / h; };
    return {difference(ox[x], ox[x + 1]), difference(oy0[x], oy1[x]), difference(oz0[x], oz1[x])};
  }

 private:
  template <class T>
  static T* Row(const EGrid<T>* grid, i32 y, i32 z) {
    return grid->mData + grid->Index(0, y, z);
  }
};

/// Adds the rows of the cells [first, last) of a line to a system, and their right-hand sides to
/// `sum`. `face` gives dt / h^2 over the density of a face.
template <class Face>
void BuildLine(const CellLine& line, const Face& face, double inverseCell, LatticeMatrix& matrix,
               std::span<double> rhs, i32 first, i32 last, double& sum, u32& count) {
  const i32 ny = matrix.Offset(1), nz = matrix.Offset(2);
  double *diagonal = matrix.Diagonal(), *ux = matrix.Upper(0), *uy = matrix.Upper(1),
         *uz = matrix.Upper(2);
  for (i32 x = first; x < last; ++x) {
    if (!line.IsOpen(x)) continue;
    const i32 c = line.cell + x;
    const double b = line.Source(x) - line.Divergence(x, inverseCell);
    sum += b;
    ++count;
    rhs[c] += b;
    const double xHigh = line.ox[x + 1] * face(c, c + 1), xLow = line.ox[x] * face(c, c - 1);
    const double yHigh = line.oy1[x] * face(c, c + ny), yLow = line.oy0[x] * face(c, c - ny);
    const double zHigh = line.oz1[x] * face(c, c + nz), zLow = line.oz0[x] * face(c, c - nz);
    diagonal[c] += xHigh + xLow + yHigh + yLow + zHigh + zLow;
    ux[c] -= xHigh;
    uy[c] -= yHigh;
    uz[c] -= zHigh;
  }
}

/// Takes the pressure gradient off the faces [first, last) of `axis` on a line; closed faces become
/// 0. `face` gives dt / h over the density of a face.
template <class Face>
void UpdateLine(EGrid<double>& velocity, const EGrid<float>& open, const double* p,
                const VecInt3D& cells, i32 axis, const Face& face, i32 first, i32 last, i32 y,
                i32 z) {
  const i32 offset = axis == 0 ? 1 : axis == 1 ? cells.x : cells.x * cells.y;
  const i32 base = (cells.y * z + y) * cells.x;
  double* v = velocity.mData + velocity.Index(0, y, z);
  const float* f = open.mData + open.Index(0, y, z);
  for (i32 x = first; x < last; ++x) {
    const i32 c = base + x;
    const double g = face(c, c - offset);
    v[x] = f[x] > 0 ? (v[x] + p[c - offset] * g) - p[c] * g : 0.0;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
