// Loops over lines of cells along x of a level of the multigrid cycle.
#pragma once
#include <array>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A line of a level's cells, from its first cell off the outermost layer on. `weight` holds the
/// positive couplings to the next cell on each axis, `inverse` the inverse diagonal, 0 in rows
/// without entries, whose `value` is always 0.
struct LevelLine {
  float* value;
  const float* rhs;
  const float* inverse;
  const float* weight[3];
  i32 ny, nz;  ///< distance of neighbours along y and z
};

/// out = the inverse of a scaled diagonal, 0 where it isn't positive.
void InvertLine(const double* diagonal, double scale, float* __restrict out, i32 n);
/// out = from, scaled, in single precision.
void ScaleLine(const double* from, double scale, float* __restrict out, i32 n);
/// Copies, and tells whether that changed anything.
bool ReplaceLine(const float* from, float* __restrict to, i32 n);

/// What a line of coarse cells takes from the four lines of fine cells that it holds.
struct CoarseLine {
  /// By coarse cell: more than 0 where all its fine cells and their neighbours have rows and none
  /// strays.
  std::vector<float> least;

  /// Sums weights over the four lines, `n` fine cells long, whose first cells `inverse`, `mark`
  /// (not 0: a stray) and `weight` point to, and finds `least`; `ny` and `nz` lead to the next
  /// lines.
  void Sum(const float* inverse, const float* mark, std::array<const float*, 3> weight, i32 ny,
           i32 nz, i32 n);
  /// Writes diagonal and couplings of the first `n` coarse cells where `least` is more than 0.
  /// `ratio` are those of the fine faces, along x from the one above the first fine cell on, and
  /// below and above the line.
  void Form(const float* ratioX, const float* ratioY, const float* ratioZ, i32 n, float* diagonal,
            std::array<float*, 3> weight) const;

 private:
  /// Along fine cells, one before the first and one beyond the last included in `faces`: weights of
  /// the faces across x, and below and above the lines.
  std::vector<float> faces, belowY, aboveY, belowZ, aboveZ, own, beside;
};

/// value = rhs over the diagonal in the cells i with (i + phase) even; the first half sweep of a
/// cycle, whose values start at 0.
void StartLine(const LevelLine& line, i32 phase, i32 n);
/// A half sweep of Gauss-Seidel: the cells i with (i + phase) even.
void RelaxLine(const LevelLine& line, i32 phase, i32 n);
/// As `RelaxLine`; returns the sum of value[i] b[i] over all cells.
double RelaxDotLine(const LevelLine& line, i32 phase, const double* b, i32 n);
/// What is left in the cells i with (i + phase) even after a first half sweep there and a second in
/// the other cells, where nothing is left: the couplings times the neighbours' values.
void LeftOverLine(const LevelLine& line, i32 phase, float* __restrict left, i32 n);

/// In the next functions a coarse cell's `share` times a face's weight is the share that the
/// neighbour beyond the face has in the correction of the fine cells next to it: a quarter through
/// a face that is as open as the cell's best.

/// What a line of coarse cells, n long, takes from fine lines on both sides of one of its faces
/// along y or z: `own` and `other` are the left-over of the nearest line on this side and beyond,
/// `step` leads to the coarse cell beyond. With `pairs` two fine cells lie in a coarse one along x.
void RestrictAcross(const float* own, const float* other, const float* weight, const float* share,
                    i32 step, bool pairs, float* __restrict rhs, i32 n);
/// What a line of coarse cells takes from a fine line inside it, and along x from its neighbours.
void RestrictAlong(const float* left, const float* weight, const float* share, bool pairs,
                   float* __restrict rhs, i32 n);

/// base = value + the shares of the neighbours at `stepY` and `stepZ` (0: none) through their
/// faces.
void CorrectionLine(const float* value, const float* share, i32 stepY, const float* weightY,
                    i32 stepZ, const float* weightZ, float* __restrict base, i32 n);
/// Adds the correction to the cells i with (i + phase) even of a fine line of m cells; `value`,
/// `share` and `weight` are those of the coarse line along x.
void ProlongLine(const float* base, const float* value, const float* share, const float* weight,
                 bool pairs, const float* inverse, i32 phase, float* __restrict fine, i32 m);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
