// Every format of particle files: what goes in comes out, and nothing broken does harm.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "exchange/particle_files.h"
#include "host/file_error.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::exchange {
namespace {

/// Particles with values that single precision holds, of every type that columns have.
ParticleTable MakeTable(i64 count) {
  ParticleTable table;
  table.SetCount(count);
  const auto fill = [&](const char* name, ValueType type, int components, auto&& value) {
    ParticleColumn& column = table.Add(name, type, components);
    std::visit(
        [&](auto& list) {
          using Value = typename std::remove_reference_t<decltype(list)>::value_type;
          for (std::size_t i = 0; i < list.size(); ++i)
            list[i] = static_cast<Value>(value(static_cast<double>(i)));
        },
        column.values);
  };
  fill("position", ValueType::F32, 3, [](double i) { return 0.25 * i - 7; });
  fill("velocity", ValueType::F64, 3, [](double i) { return 1 - i / 64; });
  fill("id", ValueType::I32, 1, [](double i) { return 1000 + i; });
  fill("radius", ValueType::F32, 1, [](double i) { return 0.5 + std::fmod(i, 8) / 16; });
  fill("color", ValueType::F32, 3, [](double i) { return std::fmod(i, 5) / 4; });
  fill("normal", ValueType::F32, 3, [](double i) { return std::fmod(i, 3) < 1 ? -1 : 0; });
  fill("intensity", ValueType::F32, 1, [](double i) { return i - 2048; });
  fill("heat of it", ValueType::F64, 1, [](double i) { return 3.5 * i; });
  fill("life", ValueType::F32, 2, [](double i) { return i; });
  fill("serial", ValueType::I64, 1, [](double i) { return 700 * i; });
  fill("wet", ValueType::U8, 1, [](double i) { return std::fmod(i, 2); });
  return table;
}

/// How exactly a format keeps a column.
double ToleranceOf(std::string_view format, std::string_view column) {
  if (column == "color" && (format == "xyz" || format == "pts")) return 0.5 / 255 + 1e-7;
  if (column == "normal" && format == "ptc") return 1e-4;
  // Within voxels of this size places are of single precision.
  return column == "position" && format == "vdb" ? 1e-5 : 0;
}

/// The rows of `table` in the order of ids, where there are some: volumes keep another one.
std::vector<i64> OrderOf(const ParticleTable& table) {
  std::vector<i64> rows(static_cast<std::size_t>(table.Count()));
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<i64>(i);
  if (const ParticleColumn* ids = table.Find("id", 1))
    std::stable_sort(rows.begin(), rows.end(),
                     [&](i64 a, i64 b) { return ids->At(a) < ids->At(b); });
  return rows;
}

/// Expects what was read to be all of `told` but for the columns that were lost.
void ExpectKept(const ParticleTable& told, const ParticleTable& read,
                const std::vector<std::string>& lost, std::string_view format) {
  ASSERT_EQ(read.Count(), told.Count());
  const std::vector<i64> order = OrderOf(read);
  for (const ParticleColumn& column : told.Columns()) {
    if (std::find(lost.begin(), lost.end(), column.name) != lost.end()) continue;
    std::string name = column.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    const ParticleColumn* found = read.Find(name, column.components);
    if (!found) found = read.Find(column.name, column.components);
    const bool isSplit = column.name == "life" && (format == "ply" || format == "csv");
    if (isSplit) found = read.Find("life_0", 1);
    ASSERT_TRUE(found) << format << ": " << column.name;
    const double tolerance = ToleranceOf(format, column.name);
    for (i64 row = 0; row < told.Count(); ++row)
      for (int c = 0; c < found->components; ++c)
        ASSERT_NEAR(found->At(order[row], c), column.At(row, c), tolerance)
            << format << ": " << column.name << " of row " << row;
  }
}

struct Encoded {
  std::string bytes;
  std::vector<std::string> lost;
};

Encoded Encode(const ParticleTable& table, const ParticleFormat& format, bool isGzip = false) {
  Encoded encoded;
  ByteSink sink(encoded.bytes, isGzip ? Wrapping::Gzip : Wrapping::None);
  WriteJob job{table, sink, {}};
  format.write(job);
  sink.Finish();
  encoded.lost = job.lost;
  return encoded;
}

class ParticleFormatCase : public testing::TestWithParam<const ParticleFormat*> {};

std::vector<const ParticleFormat*> BothWays() {
  std::vector<const ParticleFormat*> formats;
  for (const ParticleFormat* format : ParticleFormats())
    if (format->read && format->write) formats.push_back(format);
  return formats;
}

INSTANTIATE_TEST_SUITE_P(All, ParticleFormatCase, testing::ValuesIn(BothWays()),
                         [](const auto& each) { return std::string(each.param->name); });

}  // namespace

TEST_P(ParticleFormatCase, GivesBackWhatItTook) {
  const ParticleFormat& format = *GetParam();
  for (const i64 count : {0, 1, 3, 9001}) {
    SCOPED_TRACE(count);
    const ParticleTable table = MakeTable(count);
    const Encoded encoded = Encode(table, format, format.gzip == GzipUse::Always);
    const ParticleTable read = ParseParticles(encoded.bytes, format);
    if (count > 0) ExpectKept(table, read, encoded.lost, format.name);
    EXPECT_EQ(read.Count(), count);
    // The same particles are the same bytes again.
    EXPECT_EQ(Encode(table, format, format.gzip == GzipUse::Always).bytes, encoded.bytes);
    if (format.gzip == GzipUse::ByName)
      ExpectKept(read, ParseParticles(Encode(table, format, true).bytes, format), {}, format.name);
  }
}

TEST_P(ParticleFormatCase, RefusesWhatIsCut) {
  const ParticleFormat& format = *GetParam();
  const std::string bytes = Encode(MakeTable(3), format, format.gzip == GzipUse::Always).bytes;
  // Rows of text may end anywhere, and the value of a cut number is another one.
  const std::set<std::string_view> open = {"xyz", "pts", "csv", "pda"};
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    try {
      ParseParticles(std::string_view(bytes).substr(0, size), format);
      EXPECT_TRUE(open.contains(format.name) || size + 1 == bytes.size())
          << size << " of " << bytes.size() << " bytes are taken for a whole file";
    } catch (const host::FileError& error) {
      EXPECT_STRNE(error.what(), "");
    }
  }
}

TEST_P(ParticleFormatCase, SurvivesEveryByte) {
  const ParticleFormat& format = *GetParam();
  const bool isGzip = format.gzip == GzipUse::Always;
  const std::string bytes = Encode(MakeTable(3), format, isGzip).bytes;
  constexpr i64 kMostUnpacked = 1100;
  for (std::size_t at = 0; at < bytes.size(); ++at)
    for (const char change : {'\x01', '\x80', '\xff'}) {
      std::string changed = bytes;
      changed[at] = static_cast<char>(changed[at] ^ change);
      try {
        const ParticleTable table = ParseParticles(changed, format);
        EXPECT_LE(table.Bytes(), kMostUnpacked * static_cast<i64>(bytes.size()));
      } catch (const host::FileError& error) {
        EXPECT_STRNE(error.what(), "");
      }
    }
}

TEST(ParticleFiles, AreKnownByTheirBytes) {
  const host::TempFolder folder;
  const ParticleTable table = MakeTable(3);
  for (const ParticleFormat* format : BothWays()) {
    if (!format->begins) continue;
    const std::filesystem::path path = folder.Path() / "named.csv";
    WriteParticles(path, table, *format, false);
    const ParticleFormat* found = FormatOfFile(path);
    ASSERT_TRUE(found) << format->name;
    EXPECT_EQ(found->read, format->read) << format->name;
    EXPECT_EQ(ReadParticles(path).Count(), 3) << format->name;
  }
}

TEST(ParticleFiles, OfManyParticlesAreWhole) {
  const host::TempFolder folder;
  const ParticleTable table = MakeTable(100000);
  for (const char* name : {"a.prt", "a.bgeo", "a.bgeo.gz"}) {
    const std::vector<std::string> lost = WriteParticles(folder.Path() / name, table);
    EXPECT_TRUE(lost.empty());
    ExpectKept(table, ReadParticles(folder.Path() / name), lost, name);
  }
}

TEST(ParticleFiles, SayWhatTheyCantDo) {
  const host::TempFolder folder;
  const ParticleTable table = MakeTable(2);
  const auto reason = [](auto&& f) {
    try {
      f();
    } catch (const host::FileError& error) {
      return std::string(error.what());
    }
    return std::string("no error");
  };
  const std::filesystem::path rib = folder.Path() / "a.rib", prt = folder.Path() / "a.prt.gz";
  WriteParticles(rib, table);
  EXPECT_EQ(reason([&] { ReadParticles(rib); }),
            "cannot read " + rib.string() + ": particles can be written as rib, but not read");
  EXPECT_EQ(reason([&] { WriteParticles(prt, table); }),
            "cannot write " + prt.string() + ": the format prt isn't wrapped by gzip");
  EXPECT_FALSE(std::filesystem::exists(prt));
  const auto later = folder.Write("later.bgeo", std::string("\x7fNSJ") + std::string(60, 'x'));
  EXPECT_EQ(reason([&] { ReadParticles(later); }),
            "cannot read " + later.string() +
                ": it is of the later layout of this extension; the classic one, version 5, is "
                "read");
  const auto open = folder.Write("open.prt", [&] {
    std::string bytes = EncodeParticles(table, PrtFormat());
    bytes.replace(48, 8, 8, '\xff');
    return bytes;
  }());
  EXPECT_EQ(reason([&] { ReadParticles(open); }),
            "cannot read " + open.string() + ": its writer never finished it");
}

TEST(ParticleFiles, TakeTheFirstMomentWithParticles) {
  const std::string none = EncodeParticles(MakeTable(0), McFormat());
  const std::string some = EncodeParticles(MakeTable(2), McFormat());
  const std::size_t start = some.find("FOR4", 1);
  const ParticleTable read = ParseParticles(none + some.substr(start), McFormat());
  EXPECT_EQ(read.Count(), 2);
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_EQ(read.warnings[0], "it holds 2 moments, of which the first with particles is read");
}

TEST(ParticleFiles, TakeNamesOfOtherTools) {
  ParticleTable table;
  table.SetCount(1);
  for (const char* name : {"position", "Cd", "v"}) table.Add(name, ValueType::F32, 3);
  for (const char* name : {"temperature", "pscale", "mine"}) table.Add(name, ValueType::F32, 1);
  const ParticleTable read = ParseParticles(EncodeParticles(table, BgeoFormat()), BgeoFormat());
  std::string names;
  for (const ParticleColumn& column : read.Columns()) names += column.name + " ";
  EXPECT_EQ(names, "position color velocity temperature radius mine ");
  // And back under the common ones.
  const std::string bytes = EncodeParticles(read, GeoFormat());
  EXPECT_NE(bytes.find("\ntemp 1 float"), std::string::npos) << bytes;
}

TEST(ParticleFiles, KeepWholeNumbersOfSixtyFourBits) {
  ParticleTable table;
  table.SetCount(2);
  table.Add("position", ValueType::F64, 3);
  auto& ids = std::get<std::vector<i64>>(table.Add("id", ValueType::I64, 1).values);
  ids = {-5, (i64{1} << 52) + 1};
  for (const char* name : {"prt", "pdc", "mc", "ply", "csv", "bin"}) {
    const ParticleFormat& format = *FindFormat(name);
    const ParticleTable read = ParseParticles(EncodeParticles(table, format), format);
    const ParticleColumn* found = read.Find("id", 1);
    ASSERT_TRUE(found) << name;
    EXPECT_EQ(found->At(1), 0x1p52 + 1) << name;
  }
}

}  // namespace MELDO_GLOBAL::exchange
