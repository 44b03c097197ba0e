// Tests of the flags of many cells at once.
#pragma once
#include "fluids/advection/row_sampling.h"
#include "fluids/flow/solid_cells.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What all of `n` flags have in common.
u8 CommonBits(const u8* flags, i32 n);
/// What any of them has.
u8 UnitedBits(const u8* flags, i32 n);

/// Whether the cells of all of `n` points, given in cells, and those up to `beyond` cells off have
/// all of the flags `wanted`. A no tells nothing where points lie far apart; points outside of the
/// grid make it one.
bool AreClear(const Grid<u8>& flags, const RowVectors& points, i32 n, u8 wanted, i32 beyond);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
