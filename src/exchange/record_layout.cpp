#include "exchange/record_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::size_t kBlockBytes = 1 << 16;
constexpr i64 kLargest = std::numeric_limits<i64>::max();

/// Half precision, which the language has no type for.
struct Half {
  u16 bits;
};

/// The nearest value of another type; what is no number becomes 0 where there is no such thing.
template <class To, class From>
To Nearest(From value) {
  if constexpr (std::is_same_v<To, From> || std::floating_point<To>) {
    return static_cast<To>(value);
  } else if constexpr (std::floating_point<From>) {
    constexpr double low = static_cast<double>(std::numeric_limits<To>::min());
    constexpr double high = static_cast<double>(std::numeric_limits<To>::max());
    const double d = std::nearbyint(static_cast<double>(value));
    if (!(d > low)) return std::isnan(d) ? To{} : std::numeric_limits<To>::min();
    return d >= high ? std::numeric_limits<To>::max() : static_cast<To>(d);
  } else {
    if (std::cmp_less(value, std::numeric_limits<To>::min())) return std::numeric_limits<To>::min();
    if (std::cmp_greater(value, std::numeric_limits<To>::max()))
      return std::numeric_limits<To>::max();
    return static_cast<To>(value);
  }
}

template <class T>
T Load(const char* from, bool isSwapped) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, from, sizeof bytes);
  if (isSwapped) std::reverse(bytes, bytes + sizeof bytes);
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

template <class T>
void Store(char* to, T value, bool isSwapped) {
  std::memcpy(to, &value, sizeof value);
  if (isSwapped) std::reverse(to, to + sizeof value);
}

/// Calls f with a value of the type in which numbers are stored.
template <class F>
auto WithStored(Stored type, F&& f) {
  switch (type) {
    case Stored::I8: return f(std::int8_t{});
    case Stored::U8: return f(u8{});
    case Stored::I16: return f(i16{});
    case Stored::U16: return f(u16{});
    case Stored::I32: return f(i32{});
    case Stored::U32: return f(u32{});
    case Stored::I64: return f(i64{});
    case Stored::U64: return f(u64{});
    case Stored::F16: return f(Half{});
    case Stored::F32: return f(f32{});
    default: return f(f64{});
  }
}

/// Whether a number stays what it is when it is stored as another type.
template <class To, class From>
bool Fits(From value) {
  const To stored = Nearest<To>(value);
  if constexpr (std::floating_point<To> && std::floating_point<From>) {
    return std::isfinite(stored) || !std::isfinite(value);
  } else if constexpr (std::floating_point<To>) {
    constexpr To kBeyond = static_cast<To>(0x1p63);
    return stored < kBeyond && static_cast<i64>(stored) == static_cast<i64>(value);
  } else if constexpr (std::floating_point<From>) {
    return static_cast<From>(stored) == value;
  } else {
    return std::cmp_equal(stored, value);
  }
}

/// A block of records and the rows that it stands for.
struct Block {
  char* bytes;
  std::size_t recordSize;
  std::size_t rows;
  std::size_t firstRow;
};

template <bool kIsWriting, class List>
void MoveField(const Block& block, const RecordField& field, int width, List& list, bool swaps) {
  using Value = std::remove_const_t<std::remove_reference_t<decltype(list[0])>>;
  WithStored(field.type, [&](auto zero) {
    using Number = decltype(zero);
    for (std::size_t row = 0; row < block.rows; ++row) {
      char* at = block.bytes + row * block.recordSize + field.offset;
      auto* value = list.data() + (block.firstRow + row) * width + field.first;
      for (int c = 0; c < field.components; ++c, at += sizeof(Number), ++value) {
        if constexpr (std::is_same_v<Number, Half>) {
          if constexpr (!kIsWriting) *value = Nearest<Value>(FromHalf(Load<u16>(at, swaps)));
        } else if constexpr (kIsWriting) {
          Store(at, Nearest<Number>(*value), swaps);
        } else {
          *value = Nearest<Value>(Load<Number>(at, swaps));
        }
      }
    }
  });
}

}  // namespace

f32 FromHalf(u16 bits) {
  const int exponent = bits >> 10 & 31, fraction = bits & 1023;
  const float sign = bits >> 15 ? -1.0f : 1.0f;
  if (exponent == 31)
    return fraction ? std::numeric_limits<float>::quiet_NaN()
                    : sign * std::numeric_limits<float>::infinity();
  if (exponent == 0) return sign * std::ldexp(static_cast<float>(fraction), -24);
  return sign * std::ldexp(static_cast<float>(fraction | 1024), exponent - 25);
}

std::size_t SizeOf(Stored type) {
  return WithStored(type, [](auto zero) { return sizeof zero; });
}

ValueType TypeFor(Stored type) {
  switch (type) {
    case Stored::U8: return ValueType::U8;
    case Stored::I8:
    case Stored::I16:
    case Stored::U16:
    case Stored::I32: return ValueType::I32;
    case Stored::U32:
    case Stored::I64:
    case Stored::U64: return ValueType::I64;
    case Stored::F16:
    case Stored::F32: return ValueType::F32;
    default: return ValueType::F64;
  }
}

Stored StoredAs(ValueType type) {
  switch (type) {
    case ValueType::U8: return Stored::U8;
    case ValueType::I32: return Stored::I32;
    case ValueType::I64: return Stored::I64;
    case ValueType::F32: return Stored::F32;
    default: return Stored::F64;
  }
}

i64 CountMisfits(const ParticleColumn& column, Stored as) {
  if (as == StoredAs(column.Type())) return 0;
  return std::visit(
      [&](const auto& list) {
        return WithStored(as, [&](auto zero) -> i64 {
          using Number = decltype(zero);
          if constexpr (std::is_same_v<Number, Half>) {
            return 0;
          } else {
            return std::count_if(list.begin(), list.end(),
                                 [](auto value) { return !Fits<Number>(value); });
          }
        });
      },
      column.values);
}

std::string MisfitText(const ParticleColumn& column, i64 count, Stored as) {
  const bool isReal = as >= Stored::F16;
  const std::string type = !isReal             ? fmt::format("{} bits", 8 * SizeOf(as))
                           : as == Stored::F32 ? "single precision"
                                               : "double precision";
  return fmt::format(
      "{} {} of '{}' {} fit into {} and {}", count, count == 1 ? "number" : "numbers", column.name,
      count == 1 ? "doesn't" : "don't", type,
      !isReal ? (count == 1 ? "becomes the nearest that does" : "become the nearest that do")
      : column.IsReal() ? (count == 1 ? "becomes infinite" : "become infinite")
                        : (count == 1 ? "loses its last digits" : "lose their last digits"));
}

void RecordLayout::Add(const RecordField& field) {
  const std::size_t end = field.offset + field.components * SizeOf(field.type);
  if (mBlank.size() < end) mBlank.resize(end, '\0');
  mFields.push_back(field);
}

void RecordLayout::Append(const ParticleTable& table, std::size_t column, Stored type) {
  Add({column, type, Size(), 0, table.Columns()[column].components});
}

namespace {

/// Warns of numbers of unsigned 64 bits that are too large for the column.
void TellCut(ParticleTable& table, const RecordField& field, i64 first, i64 rows) {
  ParticleColumn& column = table.Columns()[field.column];
  const auto* list = std::get_if<std::vector<i64>>(&column.values);
  if (field.type != Stored::U64 || !list) return;
  const auto start = list->begin() + first * column.components;
  const i64 cut = std::count(start, start + rows * column.components, kLargest);
  if (cut > 0) table.warnings.push_back(MisfitText(column, cut, Stored::I64));
}

}  // namespace

void RecordLayout::Read(ByteSource& source, ParticleTable& table, i64 rows, i64 first) const {
  source.Expect(rows, Size(), "records");
  const i64 most = static_cast<i64>(std::max<std::size_t>(kBlockBytes / Size(), 1));
  std::string bytes(static_cast<std::size_t>(std::min(most, rows)) * Size(), '\0');
  const bool swaps = mOrder != std::endian::native;
  const i64 start = first;
  for (const i64 end = first + rows; first < end;) {
    const std::size_t count = static_cast<std::size_t>(std::min(most, end - first));
    source.Read(bytes.data(), count * Size());
    const Block block{bytes.data(), Size(), count, static_cast<std::size_t>(first)};
    for (const RecordField& field : mFields) {
      ParticleColumn& column = table.Columns()[field.column];
      std::visit(
          [&](auto& list) { MoveField<false>(block, field, column.components, list, swaps); },
          column.values);
    }
    first += static_cast<i64>(count);
  }
  for (const RecordField& field : mFields) TellCut(table, field, start, rows);
}

void RecordLayout::Write(ByteSink& sink, const ParticleTable& table, i64 rows, i64 first) const {
  if (Size() == 0) return;
  const i64 most = static_cast<i64>(std::max<std::size_t>(kBlockBytes / Size(), 1));
  std::string bytes;
  for (i64 i = std::min(most, rows); i > 0; --i) bytes += mBlank;
  const bool swaps = mOrder != std::endian::native;
  for (const i64 end = first + rows; first < end;) {
    const std::size_t count = static_cast<std::size_t>(std::min(most, end - first));
    const Block block{bytes.data(), Size(), count, static_cast<std::size_t>(first)};
    for (const RecordField& field : mFields) {
      const ParticleColumn& column = table.Columns()[field.column];
      std::visit(
          [&](const auto& list) { MoveField<true>(block, field, column.components, list, swaps); },
          column.values);
    }
    sink.Append({bytes.data(), count * Size()});
    first += static_cast<i64>(count);
  }
}

}  // namespace MELDO_GLOBAL::exchange
