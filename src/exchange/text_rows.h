// Tables of numbers as text, a line for each particle.
#pragma once
#include <string>
#include <vector>

#include "exchange/particle_format.h"
#include "exchange/text_source.h"

namespace MELDO_GLOBAL::exchange {

/// Takes rows of numbers into the columns of a table, whose length nobody knows before the end.
class RowTaker {
 public:
  /// `table` has its columns, all empty.
  explicit RowTaker(ParticleTable& table);

  /// How many numbers a row has.
  std::size_t Width() const { return mWidth; }
  /// Adds a row, a number for each component in the order of the columns; those of whole numbers
  /// take what stands before the point.
  void Take(const std::vector<TextNumber>& row, ByteSource& source);
  /// Gives the table its length, and warnings of numbers that columns can't hold, which became the
  /// nearest that they can.
  void Finish();

 private:
  void ReserveFor(ByteSource& source);

  ParticleTable& mTable;
  std::size_t mWidth = 0;
  i64 mRows = 0;
  u64 mStart = 0;
  std::vector<i64> mMisfits;  ///< of each column
};

/// Turns columns of 64 bits whose numbers fit into 32 into such.
void NarrowWholeColumns(ParticleTable& table);

/// The numbers of a line, parted by blanks or tabs.
void NumbersOf(const TextSource& text, std::string_view line, std::vector<TextNumber>& numbers);

/// Appends a value as text that reads back to the same bits.
void AppendValue(std::string& line, const ParticleColumn& column, i64 row, int component);
/// The same of formats whose whole numbers have 32 bits: others become the nearest of these.
void AppendWithin32(std::string& line, const ParticleColumn& column, i64 row, int component);

}  // namespace MELDO_GLOBAL::exchange
