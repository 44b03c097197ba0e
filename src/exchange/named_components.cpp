#include "exchange/named_components.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>

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

std::vector<std::string> ComponentNames(const ParticleColumn& column) {
  const std::string plain = PlainName(column.name);
  if (column.components == 1) return {plain};
  std::vector<std::string> names;
  const bool isVector = column.components == 3;
  for (int c = 0; c < column.components; ++c)
    names.push_back(plain + (isVector ? std::string(kAxes[c]) : fmt::format("_{}", c)));
  if (isVector && (column.name == "position" || column.name == "velocity")) {
    const KnownVector& known = kKnownVectors[column.name == "velocity"];
    names.assign(known.parts.begin(), known.parts.end());
  }
  return names;
}

}  // namespace MELDO_GLOBAL::exchange
