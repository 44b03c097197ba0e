#include "cache/particle_record.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMostEntries = 1 << 20;  ///< of a particle; a count beyond is damage

void WriteValue(HyperFile& file, double value) { file.WriteReal(value); }
void WriteValue(HyperFile& file, bool value) { file.WriteBool(value); }
void WriteValue(HyperFile& file, const Vec3d& value) {
  for (int a = 0; a < 3; ++a) file.WriteLReal(value[a]);
}

bool ReadValue(HyperFile& file, double& value) { return file.ReadReal(value); }
bool ReadValue(HyperFile& file, bool& value) { return file.ReadBool(value); }
bool ReadValue(HyperFile& file, Vec3d& value) {
  return file.ReadLReal(value.x) && file.ReadLReal(value.y) && file.ReadLReal(value.z);
}

template <class T>
void WriteProperties(HyperFile& file, const ParticleColumns& particles, i32 row,
                     std::span<const i32> selection, bool all) {
  const auto& columns = particles.List<T>();
  const auto has = [&](const auto& column) { return column->Has(row); };
  file.WriteLong(static_cast<i32>(std::count_if(columns.begin(), columns.end(), has)));
  for (const auto& column : columns) {
    if (!has(column)) continue;
    const i32 id = column->Key().id;
    const bool included =
        all || std::find(selection.begin(), selection.end(), id) != selection.end();
    file.WriteBool(included);
    if (!included) continue;
    WriteValue(file, column->Get(row, T{}));
    file.WriteLong(id);
  }
}

bool ReadCount(HyperFile& file, i32& count) {
  return file.ReadLong(count) && count >= 0 && count <= kMostEntries;
}

/// Calls add(id, value) for the properties of a type.
template <class T, class F>
bool ReadProperties(HyperFile& file, F&& add) {
  i32 count = 0;
  if (!ReadCount(file, count)) return false;
  for (i32 i = 0; i < count; ++i) {
    bool included = false;
    if (!file.ReadBool(included)) return false;
    if (!included) continue;
    T value{};
    i32 id = 0;
    if (!ReadValue(file, value) || !file.ReadLong(id)) return false;
    add(id, value);
  }
  return true;
}

bool ReadLinks(HyperFile& file, const Particle& particle) {
  i32 count = 0;
  if (!ReadCount(file, count)) return false;
  for (i32 i = 0; i < count; ++i) {
    ParticleLink link;
    if (!file.ReadLong(link.other) || !file.ReadSReal(link.weight)) return false;
    particle.AddLink(link);
  }
  return true;
}

}  // namespace

void WriteParticle(HyperFile& file, const ParticleColumns& particles, i32 row,
                   std::span<const i32> selection, bool all) {
  file.WriteLong(particles.Ids()[row]);
  WriteValue(file, particles.Positions()[row]);
  WriteValue(file, particles.Velocities()[row]);
  file.WriteUWord(particles.Flags()[row]);
  WriteProperties<double>(file, particles, row, selection, all);
  WriteProperties<Vec3d>(file, particles, row, selection, all);
  WriteProperties<bool>(file, particles, row, selection, all);
  const std::vector<ParticleLink>& links = particles.LinksOf(row);
  file.WriteLong(static_cast<i32>(links.size()));
  for (const ParticleLink& link : links) {
    file.WriteLong(link.other);
    file.WriteSReal(link.weight);
  }
}

bool ReadParticle(HyperFile& file, const Particle& particle) {
  if (!file.ReadLong(particle.Id()) || !ReadValue(file, particle.Position()) ||
      !ReadValue(file, particle.Velocity()) || !file.ReadUWord(particle.Flags()))
    return false;
  if (!ReadProperties<double>(file, [&](i32 id, double v) { particle.AddScalar(id, v); }) ||
      !ReadProperties<Vec3d>(file, [&](i32 id, const Vec3d& v) { particle.AddVector(id, v); }) ||
      !ReadProperties<bool>(file, [&](i32 id, bool v) { particle.AddBool(id, v); }))
    return false;
  using enum property_id::Id;
  if (particle.HasProperty(kFrameStart))
    particle.AddVector(kOldPosition, particle.GetVector(kFrameStart, {}));
  return ReadLinks(file, particle);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
