// Particles as named columns, the way files of any tool hold them.
#pragma once
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::exchange {

/// What the numbers of a column are; in the order of `ColumnValues`.
enum class ValueType : u8 { U8, I32, I64, F32, F64 };
using ColumnValues = std::variant<std::vector<u8>, std::vector<i32>, std::vector<i64>,
                                  std::vector<f32>, std::vector<f64>>;

/// One attribute of all particles.
struct ParticleColumn {
  std::string name;
  int components = 1;
  ColumnValues values;             ///< of each row all components, row after row
  std::vector<std::string> words;  ///< where the values are places in a list of texts; -1 is none

  ValueType Type() const { return static_cast<ValueType>(values.index()); }
  bool IsReal() const { return Type() >= ValueType::F32; }
  /// Bytes of one component.
  std::size_t Width() const;
  /// A value as a double, whatever its type.
  double At(i64 row, int component = 0) const;
  void Resize(i64 rows);
};

/// A text that a file carries beside its particles, such as the frame.
using Remark = std::pair<std::string, std::variant<i32, double, std::string>>;

/// Any number of particles as columns of equal length. Columns that mean something to the
/// simulation have its readable names, such as "position", "velocity", "id" and "radius" (see
/// `attribute_names.h`); lengths and seconds are those of who made it.
class ParticleTable {
 public:
  i64 Count() const { return mCount; }
  /// Gives all columns this length; new values are 0.
  void SetCount(i64 count);
  /// Says how many rows stand in columns that were filled one by one.
  void TakeCount(i64 count) { mCount = count; }

  std::vector<ParticleColumn>& Columns() { return mColumns; }
  const std::vector<ParticleColumn>& Columns() const { return mColumns; }
  /// A new column of the table's length; its name gets a number where it is taken.
  ParticleColumn& Add(std::string name, ValueType type, int components);
  /// The column of a name; null where there is none, or, unless `components` is 0, another number
  /// of them.
  const ParticleColumn* Find(std::string_view name, int components = 0) const;
  ParticleColumn* Find(std::string_view name, int components = 0) {
    return const_cast<ParticleColumn*>(std::as_const(*this).Find(name, components));
  }
  /// Bytes of all values.
  i64 Bytes() const;
  /// From now on columns that don't fit into the memory that is left throw host::FileError, with a
  /// clause: what fills the table believes what a file says of its length.
  void LimitMemory() { mIsLimited = true; }
  /// Refuses as many rows in its columns, and one column more of so many bytes a row, where they
  /// wouldn't fit.
  void ExpectRoom(i64 rows, std::size_t more = 0) const;
  /// A table of some of the rows.
  ParticleTable Picked(std::span<const i64> rows) const;

  std::vector<Remark> remarks;
  std::vector<std::string> warnings;  ///< what a reader left out, each a clause
  double spacing = 0;  ///< about how far particles stand apart, for formats in blocks; 0: unknown

 private:
  i64 mCount = 0;
  bool mIsLimited = false;
  std::vector<ParticleColumn> mColumns;
};

/// An empty list of values of a type.
ColumnValues EmptyValues(ValueType type);

}  // namespace MELDO_GLOBAL::exchange
