// Exchange between neighbouring rows that evens out their densities.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One line of cells: densities before and after, what the cells hold, and which can hold anything.
struct EvenRow {
  const double* in;
  double* out;
  double* content;
  const u8* holds;
};

/// Evens the cells of `a` with those beside them in `b`: half the difference of their densities
/// passes over, with the content that goes with it. `out` of `a` holds a density already, that of
/// `b` is set. Pairs with a cell that can't hold anything, and those without density, stay.
void EvenRows(const EvenRow& a, const EvenRow& b, i32 n);

/// The same for the pairs (0, 1) to (n - 1, n) of one line, in that order; sets all n + 1
/// densities.
void EvenAlong(const EvenRow& row, i32 n);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
