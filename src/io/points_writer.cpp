#include "io/points_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <iterator>
#include <map>

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

static_assert(std::endian::native == std::endian::little, "files are written as numbers stand");

/// A property of some of the kinds, and its name in the file.
struct PointProperty {
  PropertyKey key;
  int components;  ///< 3 of a vector, 1 of a number, 0 of a switch
  std::string name;
};

/// A name that every reader takes: letters, digits and underscores.
std::string PlainName(const std::string& name) {
  std::string plain = name.empty() ? "property" : name;
  for (char& c : plain)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return plain;
}

/// What the particles of some kinds have, as a file lists it.
class PointTable {
 public:
  PointTable(const ParticleSet& particles, u32 kinds) : mParticles(particles) {
    for (i32 kind = 0; kind < kParticleKinds; ++kind)
      if (kinds == 0 || (kinds >> kind & 1)) mKinds.push_back(kind);
    for (const i32 kind : mKinds) {
      Gather<double>(kind, 1);
      Gather<Vec3d>(kind, 3);
      Gather<bool>(kind, 0);
    }
    std::stable_sort(mProperties.begin(), mProperties.end(),
                     [](const auto& a, const auto& b) { return a.key.id < b.key.id; });
    NameApart();
  }

  bool TellsKinds() const { return mKinds.size() > 1; }
  i64 Count() const {
    i64 count = 0;
    for (const i32 kind : mKinds) count += mParticles.Count(kind);
    return count;
  }

  /// Calls f(name, isByte) for every column behind those of the fields.
  template <class F>
  void ForEachColumn(F&& f) const {
    if (TellsKinds()) f(std::string("kind"), true);
    for (const PointProperty& property : mProperties) {
      if (property.components != 3)
        f(property.name, property.components == 0);
      else
        for (const char* axis : {"_x", "_y", "_z"}) f(property.name + axis, false);
    }
  }

  /// Gives out.Number(double), out.Whole(i32) and out.Byte(u8) every value, row by row, with
  /// out.EndRow() behind each.
  template <class Out>
  void Write(Out& out) const {
    for (const i32 kind : mKinds) WriteKind(kind, out);
  }

 private:
  template <class T>
  void Gather(i32 kind, int components) {
    for (const auto& column : mParticles.Store(kind).List<T>()) {
      const PropertyKey& key = column->Key();
      const bool isKnown =
          std::any_of(mProperties.begin(), mProperties.end(), [&](const PointProperty& property) {
            return property.key == key && property.components == components;
          });
      if (!isKnown && IsDeclared(key.id))
        mProperties.push_back({key, components, PlainName(column->Name())});
    }
  }
  /// Whether it means something to others: what only carries state from step to step doesn't.
  static bool IsDeclared(i32 id) {
    if (id >= property_id::kFirstBool || id == property_id::kLifeSpan) return true;
    const std::vector<BuiltInProperty>& known = BuiltInProperties();
    return std::any_of(known.begin(), known.end(), [&](const BuiltInProperty& property) {
      return property.id == id && !property.label.empty();
    });
  }
  void NameApart() {
    std::map<std::string, int> uses;
    for (PointProperty& property : mProperties)
      if (const int use = ++uses[property.name]; use > 1) property.name += fmt::format("_{}", use);
  }

  template <class Out>
  void WriteKind(i32 kind, Out& out) const {
    const ParticleStore& store = mParticles.Store(kind);
    struct Found {
      const PropertyColumn<double>* scalar = nullptr;
      const PropertyColumn<Vec3d>* vector = nullptr;
      const PropertyColumn<bool>* flag = nullptr;
      int components = 1;
    };
    std::vector<Found> columns;
    for (const PointProperty& property : mProperties) {
      Found found{.components = property.components};
      if (found.components == 1) found.scalar = store.Find<double>(property.key);
      if (found.components == 3) found.vector = store.Find<Vec3d>(property.key);
      if (found.components == 0) found.flag = store.Find<bool>(property.key);
      columns.push_back(found);
    }
    const auto vector = [&](const Vec3d& v) { out.Number(v.x), out.Number(v.y), out.Number(v.z); };
    for (i32 row = 0; row < store.Count(); ++row) {
      vector(store.Positions()[row]);
      vector(store.Velocities()[row]);
      out.Whole(store.Ids()[row]);
      if (TellsKinds()) out.Byte(static_cast<u8>(kind));
      for (const Found& found : columns) {
        if (found.components == 1) out.Number(found.scalar ? found.scalar->Get(row, 0) : 0);
        if (found.components == 3) vector(found.vector ? found.vector->Get(row, {}) : Vec3d{});
        if (found.components == 0) out.Byte(found.flag && found.flag->Get(row, false));
      }
      out.EndRow();
    }
  }

  const ParticleSet& mParticles;
  std::vector<i32> mKinds;
  std::vector<PointProperty> mProperties;
};

struct BinaryOut {
  std::string bytes;
  void Number(double value) { Put(&value, sizeof value); }
  void Whole(i32 value) { Put(&value, sizeof value); }
  void Byte(u8 value) { Put(&value, 1); }
  void EndRow() {}
  void Put(const void* data, std::size_t size) {
    bytes.append(static_cast<const char*>(data), size);
  }
};

struct TextOut {
  std::string text;
  void Number(double value) { fmt::format_to(std::back_inserter(text), "{},", value); }
  void Whole(i32 value) { fmt::format_to(std::back_inserter(text), "{},", value); }
  void Byte(u8 value) { Whole(value); }
  void EndRow() { text.back() = '\n'; }
};

}  // namespace

std::string EncodePointsPly(const ParticleSet& particles, u32 kinds) {
  const PointTable table(particles, kinds);
  std::string header = "ply\nformat binary_little_endian 1.0\ncomment metres, seconds\n";
  header += fmt::format("element vertex {}\n", table.Count());
  for (const char* name : {"x", "y", "z", "vx", "vy", "vz"})
    header += fmt::format("property double {}\n", name);
  header += "property int id\n";
  table.ForEachColumn([&](const std::string& name, bool isByte) {
    header += fmt::format("property {} {}\n", isByte ? "uchar" : "double", name);
  });
  BinaryOut out{header + "end_header\n"};
  table.Write(out);
  return std::move(out.bytes);
}

std::string EncodePointsCsv(const ParticleSet& particles, u32 kinds) {
  const PointTable table(particles, kinds);
  TextOut out{"x,y,z,vx,vy,vz,id,"};
  table.ForEachColumn([&](const std::string& name, bool) { out.text += name + ","; });
  out.EndRow();
  table.Write(out);
  return std::move(out.text);
}

}  // namespace MELDO_GLOBAL::app
