#include "fluids/pressure/projection_kernels.h"

#include <algorithm>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kChunk = 64;

/// The bands of a system from one cell on.
struct SystemLine {
  double *diagonal, *upper[3];
};

/// Open cells of a line get a 1, others a 0.
SULVA_WIDE_KERNEL void FindOpen(const CellLine& line, i32 first, i32 n, double* __restrict open) {
  const float *x = line.ox + first, *y0 = line.oy0 + first, *y1 = line.oy1 + first,
              *z0 = line.oz0 + first, *z1 = line.oz1 + first;
  for (i32 i = 0; i < n; ++i) {
    const bool any =
        (x[i] > 0) | (x[i + 1] > 0) | (y0[i] > 0) | (y1[i] > 0) | (z0[i] > 0) | (z1[i] > 0);
    open[i] = any ? 1.0 : 0.0;
  }
}

/// b = source - div(open u) at open cells, 0 at others.
SULVA_WIDE_KERNEL void FindRhs(const CellLine& line, i32 first, i32 n, double inverseCell,
                               const double* __restrict open, double* __restrict b) {
  const CellLine l = line.From(first);
  if (l.source) {
    for (i32 i = 0; i < n; ++i) {
      const double v = l.openCell[i] * l.source[i] - l.Divergence(i, inverseCell);
      b[i] = open[i] != 0 ? v : 0.0;
    }
  } else {
    for (i32 i = 0; i < n; ++i) {
      const double v = 0.0 - l.Divergence(i, inverseCell);
      b[i] = open[i] != 0 ? v : 0.0;
    }
  }
}

/// Weights of the six faces of cells: low and high along x, y and z.
struct FaceWeights {
  double face[6][kChunk];
};

/// out = open / density, times the scale of `density`, for the faces between cells and those
/// `offset` from them. Closed cells have closed faces, and add nothing.
SULVA_WIDE_KERNEL void WeighAlike(const float* open, ConstantDensity density, i32 /*cell*/,
                                  i32 /*offset*/, double* __restrict out, i32 n) {
  for (i32 i = 0; i < n; ++i) out[i] = open[i] * density.value;
}
SULVA_WIDE_KERNEL void WeighByDensity(const float* open, AxisDensity density, i32 cell, i32 offset,
                                      double* __restrict out, i32 n) {
  for (i32 i = 0; i < n; ++i) out[i] = open[i] * density(cell + i, cell + i + offset);
}

/// Adds the rows of the matrix: the weights' sum on the diagonal, minus a weight beside it.
SULVA_WIDE_KERNEL void AddRows(const FaceWeights& weights, const SystemLine& system, i32 n) {
  double *__restrict diagonal = system.diagonal, *__restrict ux = system.upper[0],
         *__restrict uy = system.upper[1], *__restrict uz = system.upper[2];
  const auto& w = weights.face;
  for (i32 i = 0; i < n; ++i) {
    diagonal[i] += w[1][i] + w[0][i] + w[3][i] + w[2][i] + w[5][i] + w[4][i];
    ux[i] -= w[1][i];
    uy[i] -= w[3][i];
    uz[i] -= w[5][i];
  }
}

template <class Weigh>
void Build(const CellLine& line, double inverseCell, LatticeMatrix& matrix, std::span<double> rhs,
           i32 first, i32 last, Weigh&& weigh) {
  double open[kChunk], b[kChunk];
  FaceWeights weights;
  const i32 ny = matrix.Offset(1), nz = matrix.Offset(2);
  for (i32 x = first; x < last; x += kChunk) {
    const i32 n = std::min(kChunk, last - x), c = line.cell + x;
    FindOpen(line, x, n, open);
    FindRhs(line, x, n, inverseCell, open, b);
    const float* faces[] = {line.ox, line.ox + 1, line.oy0, line.oy1, line.oz0, line.oz1};
    const i32 offsets[] = {-1, 1, -ny, ny, -nz, nz};
    for (i32 f = 0; f < 6; ++f) weigh(faces[f] + x, f / 2, c, offsets[f], weights.face[f], n);
    AddRows(
        weights,
        {matrix.Diagonal() + c, {matrix.Upper(0) + c, matrix.Upper(1) + c, matrix.Upper(2) + c}},
        n);
    for (i32 i = 0; i < n; ++i)
      if (open[i] != 0) rhs[c + i] += b[i];
  }
}

/// Cells of a line of a liquid that have a row get a 1, others a 0.
void MaskAir(const double* phi, i32 n, double* __restrict open) {
  for (i32 i = 0; i < n; ++i) open[i] = phi[i] < 0 ? open[i] : 0.0;
}

/// Weights of the faces between cells and those whose level set is `beside`: over the share of the
/// way to the surface towards air, 0 at cells without rows.
void WeighSurface(const double* open, const double* phi, const double* beside,
                  double* __restrict weight, i32 n) {
  for (i32 i = 0; i < n; ++i) {
    if (open[i] == 0)
      weight[i] = 0;
    else if (!(beside[i] < 0))
      weight[i] /= SurfaceShare::Of(phi[i], beside[i]);
  }
}

template <class Weigh>
void BuildSurface(const CellLine& line, double inverseCell, LatticeMatrix& matrix,
                  std::span<double> rhs, i32 first, i32 last, Weigh&& weigh) {
  double open[kChunk], b[kChunk];
  FaceWeights weights;
  const i32 ny = matrix.Offset(1), nz = matrix.Offset(2);
  for (i32 x = first; x < last; x += kChunk) {
    const i32 n = std::min(kChunk, last - x), c = line.cell + x;
    const double* phi = line.phi + x;
    if (std::none_of(phi, phi + n, [](double d) { return d < 0; })) continue;
    FindOpen(line, x, n, open);
    MaskAir(phi, n, open);
    FindRhs(line, x, n, inverseCell, open, b);
    const float* faces[] = {line.ox, line.ox + 1, line.oy0, line.oy1, line.oz0, line.oz1};
    const i32 offsets[] = {-1, 1, -ny, ny, -nz, nz};
    for (i32 f = 0; f < 6; ++f) {
      weigh(faces[f] + x, f / 2, c, offsets[f], weights.face[f], n);
      WeighSurface(open, phi, phi + offsets[f], weights.face[f], n);
    }
    AddRows(
        weights,
        {matrix.Diagonal() + c, {matrix.Upper(0) + c, matrix.Upper(1) + c, matrix.Upper(2) + c}},
        n);
    for (i32 i = 0; i < n; ++i)
      if (open[i] != 0) rhs[c + i] += b[i];
  }
}

/// v -= (p_above - p_below) g / share at the faces of a liquid, whose surface has a pressure of 0.
template <class Face>
void TakeSurfaceGradient(const FaceLine& line, const double* phi, const Face& face) {
  const double *above = line.pressure + line.cell, *below = above - line.offset;
  const double *phiAbove = phi + line.cell, *phiBelow = phiAbove - line.offset;
  for (i32 i = 0; i < line.count; ++i) {
    double& v = line.velocity[i];
    if (!(line.open[i] > 0)) {
      v = 0;
      continue;
    }
    const bool isAbove = phiAbove[i] < 0, isBelow = phiBelow[i] < 0;
    if (!isAbove && !isBelow) continue;
    double g = face(line.cell + i, line.cell + i - line.offset);
    if (!isBelow) g /= SurfaceShare::Of(phiAbove[i], phiBelow[i]);
    if (!isAbove) g /= SurfaceShare::Of(phiBelow[i], phiAbove[i]);
    v -= (above[i] - below[i]) * g;
  }
}

/// v = (v + p_below g) - p_above g, g = dt / (rho h).
template <class Face>
[[gnu::always_inline]] inline void TakeGradient(const FaceLine& line, const Face face) {
  double* __restrict v = line.velocity;
  const float* open = line.open;
  const double *above = line.pressure + line.cell, *below = above - line.offset;
  const i32 cell = line.cell, offset = line.offset, n = line.count;
  for (i32 i = 0; i < n; ++i) {
    const double g = face(cell + i, cell + i - offset);
    const double moved = (v[i] + below[i] * g) - above[i] * g;
    v[i] = open[i] > 0 ? moved : 0.0;
  }
}

SULVA_WIDE_KERNEL void TakeGradientAlike(const FaceLine& line, const ConstantDensity& face) {
  TakeGradient(line, face);
}
SULVA_WIDE_KERNEL void TakeGradientByDensity(const FaceLine& line, const AxisDensity& face) {
  TakeGradient(line, face);
}

}  // namespace

void BuildLine(const CellLine& line, const ConstantDensity& face, double inverseCell,
               LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last) {
  Build(line, inverseCell, matrix, rhs, first, last,
        [&](const float* open, i32 axis, i32 cell, i32 offset, double* out, i32 n) {
          WeighAlike(open, face.Along(axis), cell, offset, out, n);
        });
}
void BuildLine(const CellLine& line, const VariableDensity& face, double inverseCell,
               LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last) {
  Build(line, inverseCell, matrix, rhs, first, last,
        [&](const float* open, i32 axis, i32 cell, i32 offset, double* out, i32 n) {
          WeighByDensity(open, face.Along(axis), cell, offset, out, n);
        });
}

void BuildSurfaceLine(const CellLine& line, const ConstantDensity& face, double inverseCell,
                      LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last) {
  BuildSurface(line, inverseCell, matrix, rhs, first, last,
               [&](const float* open, i32 axis, i32 cell, i32 offset, double* out, i32 n) {
                 WeighAlike(open, face.Along(axis), cell, offset, out, n);
               });
}
void BuildSurfaceLine(const CellLine& line, const VariableDensity& face, double inverseCell,
                      LatticeMatrix& matrix, std::span<double> rhs, i32 first, i32 last) {
  BuildSurface(line, inverseCell, matrix, rhs, first, last,
               [&](const float* open, i32 axis, i32 cell, i32 offset, double* out, i32 n) {
                 WeighByDensity(open, face.Along(axis), cell, offset, out, n);
               });
}

void UpdateLine(const FaceLine& line, const ConstantDensity& face) {
  TakeGradientAlike(line, face);
}
void UpdateLine(const FaceLine& line, const VariableDensity& face) {
  TakeGradientByDensity(line, face.Along(line.axis));
}

void UpdateSurfaceLine(const FaceLine& line, const double* phi, const ConstantDensity& face) {
  TakeSurfaceGradient(line, phi, face.Along(line.axis));
}
void UpdateSurfaceLine(const FaceLine& line, const double* phi, const VariableDensity& face) {
  TakeSurfaceGradient(line, phi, face.Along(line.axis));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
