#include "exchange/attribute_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>

namespace MELDO_GLOBAL::exchange {

namespace {

struct CommonName {
  std::string_view own;
  int components;
  std::vector<std::string_view> inFiles;  ///< the first one is written
};

const std::vector<CommonName>& CommonNames() {
  static const std::vector<CommonName> names = {
      {"position", 3, {"position", "Position", "P", "PointPosition"}},
      {"velocity", 3, {"velocity", "Velocity", "v", "PointVelocity"}},
      {"id", 1, {"id", "ID", "Id", "particleId"}},
      {"radius", 1, {"radius", "radiusPP", "pscale", "Size", "Radius"}},
      {"life_span", 1, {"birth", "life_span"}},
      {"age", 1, {"age", "Age"}},
      {"density", 1, {"density", "Density"}},
      {"viscosity", 1, {"viscosity", "Viscosity"}},
      {"temperature", 1, {"temp", "temperature", "Temperature"}},
      {"fuel", 1, {"fuel"}},
      {"mass", 1, {"mass", "Mass"}},
      {"anisotropy", 1, {"anisotropy"}},
      {"curvature", 1, {"curvature"}},
      {"color", 3, {"color", "Color", "Cd", "pointColor", "rgbPP"}},
      {"normal", 3, {"N", "normal", "Normal"}},
      {"old_position", 3, {"oldposition", "old_position"}},
      {"vorticity", 3, {"vorticity", "Vorticity"}},
      {"frame_start", 3, {"oldpositionframe", "frame_start"}},
      {"uv", 3, {"uv", "TextureCoord"}},
  };
  return names;
}

bool MeansAs(std::string_view own, int components) {
  const auto& names = CommonNames();
  const auto found =
      std::find_if(names.begin(), names.end(), [&](const auto& n) { return n.own == own; });
  return found == names.end() || found->components == components;
}

}  // namespace

std::string NameFromFile(std::string_view inFile, int components,
                         std::span<const NamePair> format) {
  for (const NamePair& pair : format)
    if (pair.inFile == inFile && MeansAs(pair.own, components)) return std::string(pair.own);
  for (const CommonName& name : CommonNames())
    if (name.components == components &&
        std::find(name.inFiles.begin(), name.inFiles.end(), inFile) != name.inFiles.end())
      return std::string(name.own);
  return std::string(inFile);
}

std::string NameInFile(std::string_view own, std::span<const NamePair> format) {
  for (const NamePair& pair : format)
    if (pair.own == own) return std::string(pair.inFile);
  for (const CommonName& name : CommonNames())
    if (name.own == own) return std::string(name.inFiles.front());
  return std::string(own);
}

std::string PlainName(std::string_view name, std::size_t longest) {
  std::string plain(name.substr(0, longest));
  for (char& c : plain)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  if (plain.empty()) return "attribute";
  if (std::isdigit(static_cast<unsigned char>(plain.front()))) plain.front() = '_';
  return plain;
}

std::string FreeName(std::set<std::string>& taken, const std::string& name, std::size_t longest) {
  std::string free = name;
  for (int use = 2; !taken.insert(free).second; ++use) {
    const std::string number = fmt::format("_{}", use);
    free = name.substr(0, longest - number.size()) + number;
  }
  return free;
}

ParticleColumn& AddFromFile(ParticleTable& table, std::string_view inFile, ValueType type,
                            int components, std::span<const NamePair> format) {
  std::string name = NameFromFile(inFile, components, format);
  if (table.Find(name)) name = std::string(inFile);
  return table.Add(std::move(name), type, components);
}

std::vector<std::string> NamesInFile(const ParticleTable& table, std::span<const NamePair> format,
                                     std::size_t longest) {
  std::vector<std::string> names;
  std::set<std::string> taken;
  for (const ParticleColumn& column : table.Columns())
    names.push_back(FreeName(taken, PlainName(NameInFile(column.name, format), longest), longest));
  return names;
}

}  // namespace MELDO_GLOBAL::exchange
