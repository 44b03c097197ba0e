// What the cells of a row ask of others, and get, many at a time.
#pragma once
#include "fluids/advection/contribution.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The corners of the blocks whose lowest cell is each of `n` cells that can't take part: bit k
/// for corner k. `takesPart` has bit 0 for a cell; rows are `row` cells long, layers `slice`.
void FindClosedCorners(const u8* takesPart, i32 row, i32 slice, i32 n, u8* closed);

/// Widens the range [low, high] to hold `n` numbers.
void WidenRange(const i32* numbers, i32 n, i32& low, i32& high);

/// Adds the weights of `n` blocks, those of cells side by side, to what is asked of each cell.
void AskRow(const BlockColumns& blocks, i32 n, const CornerOffsets& corners, double* asked);

/// What `n` cells give for each share of theirs that is asked for: of `content` above `nothing`,
/// and of `volume`.
void FindGiven(const double* content, const double* volume, const double* asked, double nothing,
               i32 n, double* contentOut, double* volumeOut);
/// What `n` blocks hold of two fields, by their weights.
void GatherRow(const BlockColumns& blocks, i32 n, const CornerOffsets& corners,
               const double* content, const double* volume, double* contentOut, double* volumeOut);

/// What a unit of the volume of `n` cells holds, of `content` above `nothing`.
void FindStrength(const double* content, const double* volume, double nothing, i32 n,
                  double* strength);
/// The extremes of a field over the cells that `n` blocks ask; of the cells themselves, which begin
/// at `first`, too where these can't ask all eight.
void FindExtremes(const BlockColumns& blocks, i32 first, i32 n, const CornerOffsets& corners,
                  const double* field, double* least, double* most);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
