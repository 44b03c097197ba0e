// Private copies of grids, and grids of another size over the same place.
#pragma once
#include <memory>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Reads `to` from `from` at the places of its cells, on the workers, with a `SampleMode`.
bool Resample(const EGrid<double>& from, EGrid<double>& to, i32 mode);

/// A zeroed grid over the place of `like` with `factor` times its cells per axis, cut to whole ones
/// and at least two. Both units keep their ratio; cells need not stay cubes. Null without memory.
std::unique_ptr<EGrid<double>> EmptyScaled(const EGrid<double>& like, double factor);

/// A copy of `grid` with `factor` times its cells per axis. Null without memory.
std::unique_ptr<EGrid<double>> CopiedGrid(const EGrid<double>& grid, double factor, i32 mode);

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
