// Loops over rows of faces of a viscous level.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A row of a level, from one index on: its coefficients, and the distances of neighbours.
struct ViscousRow {
  const float* cell[3];
  const float* edge[3];
  const float* mass[3];
  const float* inverse[3];
  i32 ny, nz;
};

/// product = A s of a row of faces of all three axes; returns s . A s of the row.
double MultiplyRow(const ViscousRow& m, const double* const (&s)[3], double* const (&product)[3],
                   i32 n);
/// left = share (b - A x) of a row.
void LeaveRow(const ViscousRow& m, const float* const (&b)[3], const float* const (&x)[3],
              const float* const (&share)[3], float* const (&left)[3], i32 n);
/// A round of smoothing of a row: change = momentum change + step D^-1 (b - A x), y = x + change.
void SmoothRow(const ViscousRow& m, const float* const (&b)[3], const float* const (&x)[3],
               float momentum, float step, float* const (&change)[3], float* const (&y)[3], i32 n);
/// The first round from x = 0: y = change = step D^-1 b.
void StartRow(const float* inverse, const float* b, float step, float* change, float* y, i32 n);
/// The step of conjugate gradients: x += alpha s, left -= alpha product, which rhs gets in single
/// precision; where `inverse` is 0 nothing is left. Returns the largest |left|.
double AdvanceRow(double alpha, const double* s, const double* product, const float* inverse,
                  double* x, double* left, float* rhs, i32 n);
/// s = found + beta s.
void TurnRow(const float* found, double beta, double* s, i32 n);
/// The sum of left[i] found[i].
double DotRow(const double* left, const float* found, i32 n);
/// inverse = 1 over the diagonal of the rows of an axis, 0 where that is 0.
void InvertRow(const ViscousRow& m, i32 axis, float* inverse, i32 n);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
