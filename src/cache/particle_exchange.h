// Particles of stores as tables of other tools' files, and back.
#pragma once
#include <functional>
#include <optional>

#include "cache/particle_cache_file.h"
#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// All rows of some stores, one after the other, in simulation units: position, velocity, id, with
/// several stores which of them, by `names`, in the column `group`, and a column for each property
/// that is selected and that any particle has. One without it gets a value that changes nothing,
/// such as mass 1. Reals have 32 bits, switches are bytes.
exchange::ParticleTable TableOf(std::span<const ParticleSource> sources,
                                std::span<const std::string> names,
                                const PropertySelection& selection);

/// For each particle of a table its row in another one, which `id` and, where there is one, `group`
/// tell; -1 for those that aren't there. Empty where they don't tell all particles apart.
std::vector<i64> RowsOfSame(const exchange::ParticleTable& now,
                            const exchange::ParticleTable& other);

enum class PropertyType { Scalar, Vector, Switch };
/// The property of a type that a column of a name means, beside those that are built in.
using FindProperty =
    std::function<std::optional<PropertyKey>(std::string_view name, PropertyType type)>;

/// Makes the particles of a store those of a table, with its ids where these tell them apart, else
/// with running numbers; new ones have `flags`. Whole numbers become switches of their name or are
/// left out; starts of the frame stand in for old positions. Answers the names of real columns that
/// mean nothing here. Throws host::FileError, with a clause, for positions
/// that aren't there or aren't finite.
std::vector<std::string> TakeTable(const exchange::ParticleTable& table, u16 flags,
                                   const FindProperty& find, ParticleStore& store);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
