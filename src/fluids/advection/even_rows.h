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

/// The potentials at the first cell of a line and of the four lines beside it.
struct PotentialRows {
  const Potential *own, *beside[4];
};

/// One step of Richardson's iteration towards the potential whose differences are the flows that
/// bring each volume to one: to = from + weight (excess + the sum over the neighbours of their
/// potential less the cell's own).
void RelaxPotential(const EvenLine& line, const Potential* excess, const Potential* from,
                    Potential weight, Potential* to);
/// The same where every cell of the line takes part and has six neighbours; those that don't count
/// stand as copies of the cell itself.
void RelaxFreePotential(const PotentialRows& from, const Potential* excess, i32 cells,
                        Potential weight, Potential* to);

/// What each cell gives: the share of its flows that its volume covers, and that times what a unit
/// of its volume holds.
void LimitFlows(const EvenLine& line, const Potential* potential, const double* volume,
                const double* content, double* share, double* strength);
/// Lets the flows pass from volume to volume, and content with them.
void PassFlows(const EvenLine& line, const Potential* potential, const double* share,
               const double* strength, const double* volume, const double* content,
               double* volumeOut, double* contentOut);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
