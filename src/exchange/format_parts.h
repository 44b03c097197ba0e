// What the readers and writers of several formats share.
#pragma once
#include <algorithm>
#include <limits>
#include <string_view>

#include "exchange/particle_format.h"
#include "exchange/record_layout.h"

namespace MELDO_GLOBAL::exchange {

/// A column of three real components called "position". Throws host::FileError without one.
std::size_t PositionColumn(const ParticleTable& table);
/// As a clause of a reader.
void ExpectPositions(const ParticleTable& table);
/// The place of a column; -1 without one of so many components.
int PlaceOf(const ParticleTable& table, std::string_view name, int components);

/// Numbers as formats of single precision and 32-bit integers hold them.
inline Stored ShortTypeOf(const ParticleColumn& column) {
  return column.IsReal() ? Stored::F32 : Stored::I32;
}

/// Whether whole numbers of a column need 64 bits.
inline bool NeedsWide(const ParticleColumn& column) {
  return column.Type() == ValueType::I64 && CountMisfits(column, Stored::I32) > 0;
}

/// A number that stands once for all particles, as the nearest of the type; `otherwise` where there
/// is none, or one that isn't finite.
double RemarkedNumber(const ParticleTable& table, std::string_view key, double otherwise);
template <class T>
T RemarkOr(const ParticleTable& table, std::string_view key, T otherwise) {
  constexpr double kLow = std::numeric_limits<T>::lowest(), kHigh = std::numeric_limits<T>::max();
  return static_cast<T>(
      std::clamp(RemarkedNumber(table, key, static_cast<double>(otherwise)), kLow, kHigh));
}

/// Turns ids that a format keeps as real numbers into whole ones, where all of them are.
void MakeIdsWhole(ParticleTable& table);

/// Names columns that a writer of a few fixed attributes has no place for.
void LoseAllBut(WriteJob& job, std::initializer_list<std::string_view> kept);

/// Reads a value of all particles, standing side by side, into a new column of theirs.
ParticleColumn& ReadColumn(ByteSource& source, ParticleTable& table, std::string_view inFile,
                           Stored type, int components, std::endian order);
/// And writes one.
void WriteColumn(WriteJob& job, std::size_t column, Stored type, std::endian order);
/// Adds all components of a column to records, behind their other fields, and reports numbers that
/// the type doesn't hold.
void AppendColumn(WriteJob& job, RecordLayout& layout, std::size_t column, Stored type);
/// Reports them alone.
void TellMisfits(WriteJob& job, const ParticleColumn& column, Stored type);

}  // namespace MELDO_GLOBAL::exchange
