#include "io/point_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <map>

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

/// A name that every reader takes: letters, digits and underscores.
std::string PlainName(const std::string& name) {
  std::string plain = name.empty() ? "property" : name;
  for (char& c : plain)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return plain;
}

}  // namespace

PointTable::PointTable(const ParticleSet& particles, u32 kinds) : mParticles(particles) {
  for (i32 kind = 0; kind < kParticleKinds; ++kind)
    if (kinds == 0 || (kinds >> kind & 1)) mKinds.push_back(kind);
  for (const i32 kind : mKinds) {
    Gather<double>(kind, 1);
    Gather<Vec3d>(kind, 3);
    Gather<bool>(kind, 0);
  }
  std::stable_sort(mProperties.begin(), mProperties.end(),
                   [](const auto& a, const auto& b) { return a.key.id < b.key.id; });
  std::map<std::string, int> uses;
  for (PointProperty& property : mProperties)
    if (const int use = ++uses[property.name]; use > 1) property.name += fmt::format("_{}", use);
}

i64 PointTable::Count() const {
  i64 count = 0;
  for (const i32 kind : mKinds) count += mParticles.Count(kind);
  return count;
}

template <class T>
void PointTable::Gather(i32 kind, int components) {
  for (const auto& column : mParticles.Store(kind).List<T>()) {
    const PropertyKey& key = column->Key();
    const bool isKnown =
        std::any_of(mProperties.begin(), mProperties.end(), [&](const PointProperty& property) {
          return property.key == key && property.components == components;
        });
    if (!isKnown && IsDeclaredProperty(key.id))
      mProperties.push_back({key, components, PlainName(column->Name())});
  }
}

}  // namespace MELDO_GLOBAL::app
