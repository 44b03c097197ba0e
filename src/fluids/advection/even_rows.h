// Kernels over lines of cells for what neighbouring cells exchange.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using Potential = double;

/// A line of cells along x, whose six neighbours lie 1, `ny` and `nz` cells off; only pairs of
/// cells that both take part exchange anything. Of `moves` bit 0 tells that a cell does, bit 1 + a
/// that its low face along axis a is closed.
struct EvenLine {
  const u8* moves;
  i32 ny, nz;
  i32 cells;
  i32 Step(i32 axis) const { return axis == 0 ? 1 : axis == 1 ? ny : nz; }
};

/// How far off the cells of the four lines beside one lie: below and above in y, then in z. Lines
/// in which no cell takes part count as the line itself, which exchanges nothing with itself.
struct LinesBeside {
  i32 off[4];
};

/// The step from a potential of nothing.
void StartRow(const double* volume, const u8* moves, Potential weight, i32 n, Potential* to);
/// One step of Richardson's iteration towards the potential whose differences are the flows that
/// bring each volume to one: to = from + weight (volume - 1 + the sum over the neighbours of their
/// potential less the cell's own).
void RelaxPotential(const EvenLine& line, const double* volume, const Potential* from,
                    Potential weight, Potential* to);
/// The same where every cell of the line takes part, no face of it is closed, and the potentials
/// before and behind the line are those of its ends.
void RelaxFreePotential(const LinesBeside& lines, const double* volume, const Potential* from,
                        i32 cells, Potential weight, Potential* to);

/// What each cell gives: the share of its flows that its volume covers, and that times what a unit
/// of its volume holds.
void LimitFlows(const EvenLine& line, const Potential* potential, const double* volume,
                const double* content, double* share, double* strength);
void LimitFreeFlows(const LinesBeside& lines, const Potential* potential, const double* volume,
                    const double* content, i32 cells, double* share, double* strength);

/// What the cells of a line give, and what they have before and afterwards.
struct PassedLine {
  const Potential* potential;
  const double *share, *strength;
  const double *volume, *content;
  double *volumeOut, *contentOut;
};
/// Lets the flows pass from volume to volume, and content with them. All shares of the line and of
/// those beside it are one where they are `areWhole`.
void PassFlows(const EvenLine& line, const PassedLine& at);
void PassFreeFlows(const LinesBeside& lines, const PassedLine& at, i32 cells, bool areWhole);

/// The range of `n` values, one or more.
struct ValueRange {
  double least, most;
};
ValueRange RangeOf(const double* values, i32 n);
ValueRange RangeOfPotential(const Potential* values, i32 n);
/// How far the volumes of the cells of a line that take part are from one, at most.
double MostExcess(const EvenLine& line, const double* volume);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
