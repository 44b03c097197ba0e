// What attributes are called in the simulation and in files.
#pragma once
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::exchange {

/// The name of an attribute in tables and in files of one format.
struct NamePair {
  std::string_view own, inFile;
};

/// The readable name of an attribute that files call `inFile`, after the format's own list, then
/// after the names that are common among tools; another one stays as it is. A name that means a
/// vector, or a number, means nothing for other counts of `components`.
std::string NameFromFile(std::string_view inFile, int components,
                         std::span<const NamePair> format = {});
/// What files call an attribute, after the format's own list, then as is common.
std::string NameInFile(std::string_view own, std::span<const NamePair> format = {});

/// A name, or if it is taken the same with a number behind it, of at most so many letters; takes
/// it.
std::string FreeName(std::set<std::string>& taken, const std::string& name,
                     std::size_t longest = 256);

/// Letters, digits and underscores, not a digit first; at most so many.
std::string PlainName(std::string_view name, std::size_t longest = 256);

/// Adds a column for an attribute of a file, under its readable name where that is free, else under
/// the one that it has.
ParticleColumn& AddFromFile(ParticleTable& table, std::string_view inFile, ValueType type,
                            int components, std::span<const NamePair> format = {});

/// The names in a file of all columns of a table, each different from the others.
std::vector<std::string> NamesInFile(const ParticleTable& table,
                                     std::span<const NamePair> format = {},
                                     std::size_t longest = 256);

}  // namespace MELDO_GLOBAL::exchange
