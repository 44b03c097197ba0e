// Rows of binary numbers and the columns that they go to.
#pragma once
#include <bit>
#include <string>
#include <vector>

#include "exchange/byte_sink.h"
#include "exchange/byte_source.h"
#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::exchange {

/// How a number stands in a file.
enum class Stored : u8 { I8, U8, I16, U16, I32, U32, I64, U64, F16, F32, F64 };

std::size_t SizeOf(Stored type);
/// The type of a column that takes such numbers: all bits of it, but for the highest of `U64`.
ValueType TypeFor(Stored type);
/// How numbers of a column stand in files that have every type.
Stored StoredAs(ValueType type);

/// How many numbers of a column would be others if they were stored as this: what doesn't fit, and
/// whole ones whose last digits are lost; what single precision rounds doesn't count.
i64 CountMisfits(const ParticleColumn& column, Stored as);
/// The clause about so many of them.
std::string MisfitText(const ParticleColumn& column, i64 count, Stored as);

/// Some components of a column, side by side in every record.
struct RecordField {
  std::size_t column = 0;  ///< its place in the table
  Stored type = Stored::F32;
  std::size_t offset = 0;  ///< bytes from the start of the record
  int first = 0;           ///< component
  int components = 1;
};

/// Records of equal length. A file that is ordered by columns has records of one field.
class RecordLayout {
 public:
  explicit RecordLayout(std::endian order) : mOrder(order) {}

  /// Adds a field behind all others, or at its offset where the record is longer already.
  void Add(const RecordField& field);
  /// All components of a column behind the other fields.
  void Append(const ParticleTable& table, std::size_t column, Stored type);
  /// Bytes that records have besides fields; writers give them these values.
  void Reserve(std::string_view bytes) { mBlank += bytes; }
  std::size_t Size() const { return mBlank.size(); }
  bool IsEmpty() const { return mFields.empty(); }

  /// The next `rows` records go to the rows of the table from `first` on. Whole numbers that a
  /// column can't hold become the nearest that it can, with a warning.
  void Read(ByteSource& source, ParticleTable& table, i64 rows, i64 first = 0) const;
  /// The same the other way round.
  void Write(ByteSink& sink, const ParticleTable& table, i64 rows, i64 first = 0) const;

 private:
  std::endian mOrder;
  std::vector<RecordField> mFields;
  std::string mBlank;  ///< a record without fields
};

/// IEEE half precision.
f32 FromHalf(u16 bits);

}  // namespace MELDO_GLOBAL::exchange
