// PDA: attributes of numbers and vectors as words of text.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/text_rows.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kPdaMagic = "ATTRIBUTES";
constexpr std::size_t kPdaAttributes = 4096;

void ReadPda(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  text.Expect(kPdaMagic);
  std::vector<std::string> names;
  for (std::string_view word = text.Word(); word != "TYPES"; word = text.Word()) {
    if (word.empty() || names.size() == kPdaAttributes) text.Fail("expected the word TYPES");
    names.emplace_back(word);
  }
  for (const std::string& name : names) {
    const std::string_view type = text.Word();
    if (type != "V" && type != "R" && type != "I") text.Fail("expected a type V, R or I");
    AddFromFile(table, name, type == "I" ? ValueType::I64 : ValueType::F32, type == "V" ? 3 : 1);
  }
  ExpectPositions(table);
  // Between the colon and the number a blank may be missing, or stand on both sides.
  text.Expect("NUMBER_OF_PARTICLES", ":");
  text.Expect(":", ":");
  const i64 count = text.Whole();
  text.Expect("BEGIN");
  text.Expect("DATA");
  RowTaker taker(table);
  // A number and what parts it from the next.
  source.Expect(count, 2 * taker.Width() - 1, "particles");
  std::vector<TextNumber> row(taker.Width());
  for (i64 i = 0; i < count; ++i) {
    for (TextNumber& value : row) value = text.Number();
    taker.Take(row, source);
  }
  taker.Finish();
  NarrowWholeColumns(table);
}

void WritePda(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  const std::vector<std::string> names = NamesInFile(table);
  std::string listed, types;
  std::vector<const ParticleColumn*> kept;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    const bool isVector = column.components == 3;
    if (!isVector && column.components != 1) {
      job.report.lost.push_back(column.name);
      continue;
    }
    kept.push_back(&column);
    TellMisfits(job, column, ShortTypeOf(column));
    listed += ' ' + names[i];
    types += isVector ? " V" : column.IsReal() ? " R" : " I";
  }
  job.sink.Append(fmt::format("{}\n{}\nTYPES\n{}\nNUMBER_OF_PARTICLES: {}\nBEGIN DATA\n", kPdaMagic,
                              listed, types, table.Count()));
  std::string line;
  for (i64 row = 0; row < table.Count(); ++row) {
    line.clear();
    for (const ParticleColumn* column : kept)
      for (int c = 0; c < column->components; ++c)
        AppendWithin32(line, *column, row, c), line += ' ';
    line.back() = '\n';
    job.sink.Append(line);
  }
}

}  // namespace

const ParticleFormat& PdaFormat() {
  static const ParticleFormat format = {
      .name = "pda",
      .extensions = {".pda"},
      .gzip = GzipUse::ByName,
      .begins = [](std::string_view head) { return head.starts_with(kPdaMagic); },
      .read = ReadPda,
      .write = WritePda};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
