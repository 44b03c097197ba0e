// What a cache of grids takes from an object and gives back to it.
#pragma once
#include <array>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The grids of an object that a cache may keep: a solver's velocity, a field, the distances of a
/// volume.
class CachedGrids {
 public:
  virtual ~CachedGrids() = default;
  /// Its grids, by component; those that it hasn't are null.
  virtual std::array<EGrid<double>*, 3> GetCachedGrids() = 0;
  /// How the samples of the first one lie, also while there is none.
  virtual i32 CachedKind() const = 0;
  /// Takes the place of a stored grid, whose first component has samples of `kind`, for as long as
  /// the cache feeds it; false for one that doesn't fit.
  virtual bool TakeCachedPlace(const GridLayout& layout, i32 kind) = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
