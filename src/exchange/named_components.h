// Vectors in files whose columns are single numbers.
#pragma once
#include <string>
#include <vector>

#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::exchange {

/// Where a single number of a file belongs.
struct ComponentPlace {
  std::size_t column;
  int component;
};

/// A column of numbers in a file.
struct FlatColumn {
  std::string name;
  ValueType type;
};

/// Adds to an empty table the columns that a file's columns of numbers mean: x y z is the position,
/// vx vy vz the velocity, red green blue the colour, nx ny nz the normal, in capitals too, and
/// three names in a row that end in _x, _y and _z one vector. Tells for each where it goes. Of a
/// name that is there twice the second one gets a number, with a warning.
std::vector<ComponentPlace> JoinComponents(ParticleTable& table,
                                           const std::vector<FlatColumn>& flat);
/// The names that the components of each column have in such files, all different.
std::vector<std::vector<std::string>> ComponentNames(const ParticleTable& table);

}  // namespace MELDO_GLOBAL::exchange
