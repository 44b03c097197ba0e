#include "exchange/named_components.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

#include "exchange/attribute_names.h"

namespace MELDO_GLOBAL::exchange {

namespace {

struct KnownVector {
  std::string_view own;
  std::array<std::string_view, 3> parts;
};

/// The first of a name is written.
constexpr KnownVector kKnownVectors[] = {{"position", {"x", "y", "z"}},
                                         {"velocity", {"vx", "vy", "vz"}},
                                         {"normal", {"nx", "ny", "nz"}},
                                         {"color", {"red", "green", "blue"}}};
constexpr std::string_view kAxes[] = {"_x", "_y", "_z"};

/// Whether names are the same but for capitals.
bool IsSameWord(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

/// The vector that begins with a column; empty where none does.
std::string VectorAt(const std::vector<FlatColumn>& flat, std::size_t at) {
  if (at + 3 > flat.size()) return {};
  for (const KnownVector& known : kKnownVectors)
    if (IsSameWord(flat[at].name, known.parts[0]) &&
        IsSameWord(flat[at + 1].name, known.parts[1]) &&
        IsSameWord(flat[at + 2].name, known.parts[2]))
      return std::string(known.own);
  const std::string& first = flat[at].name;
  if (first.size() < 3 || !first.ends_with(kAxes[0])) return {};
  const std::string stem = first.substr(0, first.size() - 2);
  for (int c = 1; c < 3; ++c)
    if (flat[at + c].name != stem + std::string(kAxes[c])) return {};
  return NameFromFile(stem, 3);
}

/// A type that holds the values of all three.
ValueType Widest(const std::vector<FlatColumn>& flat, std::size_t at) {
  const ValueType type = flat[at].type;
  const bool isSame = flat[at + 1].type == type && flat[at + 2].type == type;
  return isSame ? type : ValueType::F64;
}

/// The names of the components of a column that isn't known.
std::vector<std::string> PartsOf(const std::string& plain, int components) {
  if (components == 1) return {plain};
  std::vector<std::string> names;
  for (int c = 0; c < components; ++c)
    names.push_back(plain + (components == 3 ? std::string(kAxes[c]) : fmt::format("_{}", c)));
  return names;
}

}  // namespace

std::vector<ComponentPlace> JoinComponents(ParticleTable& table,
                                           const std::vector<FlatColumn>& flat) {
  std::vector<ComponentPlace> places;
  for (std::size_t at = 0; at < flat.size();) {
    const std::string vector = VectorAt(flat, at);
    const int components = vector.empty() ? 1 : 3;
    const std::string& told = flat[at].name;
    const ParticleColumn& column = vector.empty() ? AddFromFile(table, told, flat[at].type, 1)
                                                  : table.Add(vector, Widest(flat, at), 3);
    const std::string wanted = vector.empty() ? NameFromFile(told, 1) : vector;
    if (column.name != wanted && column.name != told)
      table.warnings.push_back(
          fmt::format("there is a second '{}', which becomes '{}'", told, column.name));
    for (int c = 0; c < components; ++c) places.push_back({table.Columns().size() - 1, c});
    at += static_cast<std::size_t>(components);
  }
  return places;
}

std::vector<std::vector<std::string>> ComponentNames(const ParticleTable& table) {
  const std::vector<ParticleColumn>& columns = table.Columns();
  std::vector<std::vector<std::string>> names(columns.size());
  std::set<std::string> taken;
  const auto isKnown = [](const ParticleColumn& column) {
    return column.components == 3 && (column.name == "position" || column.name == "velocity");
  };
  // What all readers look for keeps its names.
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!isKnown(columns[i])) continue;
    const KnownVector& known = kKnownVectors[columns[i].name == "velocity"];
    names[i].assign(known.parts.begin(), known.parts.end());
    taken.insert(names[i].begin(), names[i].end());
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (isKnown(columns[i])) continue;
    const std::string plain = PlainName(columns[i].name);
    const auto isTaken = [&](const std::string& name) { return taken.contains(name); };
    for (int use = 1; names[i].empty(); ++use) {
      names[i] =
          PartsOf(use == 1 ? plain : fmt::format("{}_{}", plain, use), columns[i].components);
      if (std::any_of(names[i].begin(), names[i].end(), isTaken)) names[i].clear();
    }
    taken.insert(names[i].begin(), names[i].end());
  }
  return names;
}

}  // namespace MELDO_GLOBAL::exchange
