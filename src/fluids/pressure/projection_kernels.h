// The projection's formulas on a line of cells along x.
#pragma once
#include <array>
#include <span>

#include "fluids/pressure/lattice_matrix.h"
#include "fluids/pressure/projection_fields.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// `scale` over the density of a face, the same everywhere.
struct ConstantDensity {
  double value;
  double operator()(i32 /*cell*/, i32 /*neighbour*/) const { return value; }
  ConstantDensity Along(i32 /*axis*/) const { return *this; }
};
/// `scale` over the density of a face, the mean of its two cells. A cell without density, such as
/// one of the outermost layer that nothing fills, takes that of its neighbour.
struct AxisDensity {
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
/// The same by axis: cells that solids cut may count otherwise for the faces of another axis.
struct VariableDensity {
  double scale;
  std::array<const double*, 3> density;
  AxisDensity Along(i32 axis) const { return {scale, density[axis]}; }
};

/// The fields along the cells (x, y, z) of a line, by x.
struct CellLine {
  i32 cell;  ///< index of the line's first cell
  const double *u, *v0, *v1, *w0, *w1;
  const float *ox, *oy0, *oy1, *oz0, *oz1, *openCell;
  const double* source;
  const double* phi;  ///< of a liquid's surface; null for a gas

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
        source(f.source ? Row(f.source, y, z) : nullptr),
        phi(f.surface ? Row(f.surface, y, z) : nullptr) {}

  /// The line from one of its cells on.
  CellLine From(i32 x) const {
    CellLine rest = *this;
    rest.cell += x;
    for (const double** row : {&rest.u, &rest.v0, &rest.v1, &rest.w0, &rest.w1}) *row += x;
    for (const float** row : {&rest.ox, &rest.oy0, &rest.oy1, &rest.oz0, &rest.oz1, &rest.openCell})
      *row += x;
    if (source) rest.source += x;
    if (phi) rest.phi += x;
    return rest;
  }

  bool IsOpen(i32 x) const {
    return ox[x] > 0 || ox[x + 1] > 0 || oy0[x] > 0 || oy1[x] > 0 || oz0[x] > 0 || oz1[x] > 0;
  }
  /// The cell's pressure is an unknown: it is open, and of a liquid, inside.
  bool HasRow(i32 x) const { return IsOpen(x) && (!phi || phi[x] < 0); }
  /// What flows out through the open parts of the faces, by volume, 1/s.
  double Divergence(i32 x, double inverseCell) const {
    return ((oy1[x] * v1[x] - oy0[x] * v0[x]) + (ox[x + 1] * u[x + 1] - ox[x] * u[x]) +
            (oz1[x] * w1[x] - oz0[x] * w0[x])) *
           inverseCell;
  }
  double Source(i32 x) const { return source ? openCell[x] * source[x] : 0.0; }
  /// No part of the cell's faces is solid.
  bool IsClear(i32 x) const {
    return ox[x] >= 1 && ox[x + 1] >= 1 && oy0[x] >= 1 && oy1[x] >= 1 && oz0[x] >= 1 && oz1[x] >= 1;
  }

 private:
  template <class T>
  static T* Row(const EGrid<T>* grid, i32 y, i32 z) {
    return grid->mData + grid->Index(0, y, z);
  }
};

/// Adds the rows of the cells [first, last) of a line to a system. With the open share a of each
/// face and its density rho, the row of cell c is
///   sum over faces of a dt / (rho h^2) (p_c - p_neighbour) = source - div(a u);
/// `face` gives dt / (rho h^2).
void BuildLine(const CellLine& line, const ConstantDensity& face, double inverseCell,
               LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last);
void BuildLine(const CellLine& line, const VariableDensity& face, double inverseCell,
               LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last);

/// How far a surface lies from a cell inside of a liquid on the way to a neighbour in the air, as a
/// share of that way; not below `kLeastShare`, or the pressures of cells that the surface all but
/// touches would rule the solve (Gibou, Fedkiw, Cheng and Kang 2002).
struct SurfaceShare {
  static constexpr double kLeastShare = 1e-6;
  static double Of(double inside, double outside) {
    const double share = inside / (inside - outside);
    return share > kLeastShare ? share : kLeastShare;
  }
};

/// As `BuildLine` for a liquid: cells of air have no rows, and a face towards one adds
/// a dt / (rho h^2) / share to the diagonal, for a pressure of 0 at the surface. The entry beside
/// the diagonal of a cell above whose high face air is has that too, though no row answers it: it
/// tells where the surface is.
void BuildSurfaceLine(const CellLine& line, const ConstantDensity& face, double inverseCell,
                      LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last);
void BuildSurfaceLine(const CellLine& line, const VariableDensity& face, double inverseCell,
                      LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last);

/// Faces on a line and the pressures of the cells above and below them.
struct FaceLine {
  i32 axis;
  double* velocity;
  const float* open;
  const double* pressure;  ///< of the whole grid
  i32 cell;                ///< index of the cell above the first face
  i32 offset;              ///< from the cell below a face to the one above
  i32 count;
};

/// Takes the pressure gradient off faces, u -= dt / rho grad p; closed ones become 0. `face` gives
/// dt / (rho h).
void UpdateLine(const FaceLine& line, const ConstantDensity& face);
void UpdateLine(const FaceLine& line, const VariableDensity& face);
/// The same for a liquid whose level set is `phi`, of the whole grid: u -= dt / rho grad p / share
/// at the surface; faces between cells of air stay as they are.
void UpdateSurfaceLine(const FaceLine& line, const double* phi, const ConstantDensity& face);
void UpdateSurfaceLine(const FaceLine& line, const double* phi, const VariableDensity& face);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
