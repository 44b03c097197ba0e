// Particles of stores as tables of other tools' files, and back.
#pragma once
#include <functional>
#include <optional>

#include "cache/particle_cache_file.h"
#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// All rows of some stores, one after the other, in simulation units: position, velocity and a
/// running number, and a column for each property that is selected and that any of them has. A
/// particle without it gets a value that changes nothing, such as mass 1. Reals have 32 bits.
exchange::ParticleTable TableOf(std::span<const ParticleSource> sources,
                                const PropertySelection& selection);

/// The property that a column of a name and so many numbers means, beside those that are built in.
using FindProperty =
    std::function<std::optional<PropertyKey>(std::string_view name, int components)>;

/// Makes the particles of a store those of a table; new ones have `flags`. Whole numbers are left
/// out. Answers the names of other columns that mean nothing here. Throws host::FileError, with a
/// clause, for positions that aren't there or aren't finite.
std::vector<std::string> TakeTable(const exchange::ParticleTable& table, u16 flags,
                                   const FindProperty& find, ParticleStore& store);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
