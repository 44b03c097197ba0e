// Every format of particle files: what goes in comes out, and nothing broken does harm.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "exchange/particle_files.h"
#include "host/file_error.h"
#include "host/memory_budget.h"
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
  WriteReport report;
};

Encoded Encode(const ParticleTable& table, const ParticleFormat& format, bool isGzip = false) {
  Encoded encoded;
  encoded.bytes = EncodeParticles(table, format, isGzip, &encoded.report);
  return encoded;
}

/// Whether some of the clauses speaks of a column.
bool Names(const std::vector<std::string>& clauses, const std::string& column) {
  return std::any_of(clauses.begin(), clauses.end(), [&](const std::string& clause) {
    return clause.find("'" + column + "'") != std::string::npos;
  });
}

/// Why a text can't be read.
std::string FaultOf(std::string_view text, const ParticleFormat& format) {
  try {
    ParseParticles(text, format);
  } catch (const host::FileError& error) {
    return error.what();
  }
  return "none";
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
    // Without particles these have nothing that tells of columns.
    const std::set<std::string_view> bare = {"xyz", "pts", "ptc"};
    if (count > 0 || !bare.contains(format.name))
      ExpectKept(table, read, encoded.report.lost, format.name);
    EXPECT_EQ(encoded.report.count, count);
    EXPECT_TRUE(encoded.report.changed.empty()) << encoded.report.changed.begin()->second;
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

TEST_P(ParticleFormatCase, LeavesOutWhatIsNowhere) {
  ParticleTable table = MakeTable(9);
  auto& places = std::get<std::vector<f32>>(table.Find("position")->values);
  places[3 * 2 + 1] = std::numeric_limits<f32>::quiet_NaN();
  places[3 * 7] = -std::numeric_limits<f32>::infinity();
  const Encoded encoded = Encode(table, *GetParam());
  EXPECT_EQ(encoded.report.count, 7);
  ASSERT_EQ(encoded.report.changed.size(), 1u);
  EXPECT_EQ(encoded.report.changed.at(""), "2 particles at no finite place are left out");
  const std::vector<i64> rows = {0, 1, 3, 4, 5, 6, 8};
  ExpectKept(table.Picked(rows), ParseParticles(encoded.bytes, *GetParam()), encoded.report.lost,
             GetParam()->name);
}

TEST_P(ParticleFormatCase, ChangesNoNumberWithoutAWord) {
  const ParticleFormat& format = *GetParam();
  ParticleTable table;
  table.SetCount(3);
  std::get<std::vector<f64>>(table.Add("position", ValueType::F64, 3).values) = {0, 0, 1, 0, 1,
                                                                                 0, 1, 0, 0};
  std::get<std::vector<i64>>(table.Add("id", ValueType::I64, 1).values) = {5, (i64{1} << 40) + 1,
                                                                           (i64{1} << 60) + 3};
  std::get<std::vector<f64>>(table.Add("density", ValueType::F64, 1).values) = {1, 1e39, 2};
  std::get<std::vector<f64>>(table.Add("velocity", ValueType::F64, 3).values) = {0, 0, 0, 1e39,  0,
                                                                                 0, 0, 0, -1e300};
  const Encoded encoded = Encode(table, format, format.gzip == GzipUse::Always);
  const ParticleTable read = ParseParticles(encoded.bytes, format);
  ASSERT_EQ(read.Count(), 3);
  const std::vector<i64> order = OrderOf(read);
  for (const ParticleColumn& column : table.Columns()) {
    if (column.name == "position") continue;
    const bool isSaid =
        encoded.report.changed.contains(column.name) || Names(read.warnings, column.name) ||
        std::count(encoded.report.lost.begin(), encoded.report.lost.end(), column.name) > 0;
    const ParticleColumn* found = read.Find(column.name, column.components);
    bool isSame = found != nullptr;
    for (i64 row = 0; isSame && row < 3; ++row)
      for (int c = 0; c < column.components; ++c) {
        const double is = found->At(order[row], c), was = column.At(row, c);
        isSame = isSame && std::abs(is - was) <= 1e-6 * std::abs(was);
      }
    if (const auto* ids = found ? std::get_if<std::vector<i64>>(&found->values) : nullptr)
      isSame = isSame && (*ids)[order[2]] == (i64{1} << 60) + 3;
    else if (column.name == "id")
      isSame = false;
    EXPECT_TRUE(isSame || isSaid) << format.name << ": " << column.name;
  }
}

TEST(ParticleFiles, HoldWideNumbersWhereTheyHaveATypeForThem) {
  ParticleTable table = MakeTable(3);
  std::get<std::vector<i64>>(table.Find("serial")->values)[1] = (i64{1} << 60) + 3;
  std::get<std::vector<f64>>(table.Find("heat of it")->values)[1] = 1e39;
  for (const char* name : {"vdb", "prt", "csv"}) {
    const ParticleFormat& format = *FindFormat(name);
    const Encoded encoded = Encode(table, format);
    EXPECT_TRUE(encoded.report.changed.empty()) << name;
    const ParticleTable read = ParseParticles(encoded.bytes, format);
    EXPECT_TRUE(read.warnings.empty()) << read.warnings.front();
    if (std::string_view(name) != "csv")
      ExpectKept(table, read, encoded.report.lost, name);
    else
      EXPECT_EQ(read.Find("serial")->At(1), 0x1p60);
  }
  ParticleTable beyond = ParseParticles("x,y,z,id\n0,0,0,99999999999999999999\n", CsvFormat());
  ASSERT_EQ(beyond.warnings.size(), 1u);
  EXPECT_EQ(beyond.warnings[0],
            "1 number of 'id' doesn't fit into 64 bits and becomes the nearest that does");
}

TEST(ParticleFiles, StrayPointsCostTheOthersNothing) {
  ParticleTable table = MakeTable(1000);
  std::get<std::vector<f32>>(table.Find("position")->values)[0] = 1e7f;
  ParticleTable read = ParseParticles(EncodeParticles(table, VdbPointsFormat()), VdbPointsFormat());
  const std::vector<i64> order = OrderOf(read);
  const ParticleColumn &is = *read.Find("position"), &was = *table.Find("position");
  for (i64 row = 0; row < 1000; ++row)
    for (int a = 0; a < 3; ++a) ASSERT_NEAR(is.At(order[row], a), was.At(row, a), row ? 1e-4 : 10);
  // And where the places are told to stand too close to be counted.
  table.spacing = 1e-4;
  EXPECT_EQ(ParseParticles(EncodeParticles(table, VdbPointsFormat()), VdbPointsFormat()).Count(),
            1000);
}

TEST(ParticleFiles, TellTheLineOfAFault) {
  const ParticleTable table = MakeTable(20);
  for (const char* name : {"geo", "pda", "csv", "xyz", "pts"}) {
    const ParticleFormat& format = *FindFormat(name);
    std::string text = EncodeParticles(table, format);
    // A word in the middle of a row.
    std::size_t at = 0;
    const int line = 15;
    for (int i = 1; i < line; ++i) at = text.find('\n', at) + 1;
    text.replace(text.find_first_of("0123456789", at), 1, "q");
    EXPECT_EQ(FaultOf(text, format).substr(0, 9), "line 15: ") << FaultOf(text, format);
  }
  std::string ply = "ply\nformat ascii 1.0\nelement vertex 2\n";
  for (const char* axis : {"x", "y", "z"}) ply += std::string("property float ") + axis + "\n";
  EXPECT_EQ(FaultOf(ply + "end_header\n0 0 0\n1 0 q\n", PlyFormat()),
            "line 9: expected a number, got \"q\"");
  EXPECT_EQ(FaultOf(ply + "end_header\n0 0 0\n1 0           \n", PlyFormat()),
            "line 9: it ends too early");
}

TEST(ParticleFiles, KeepColumnsOfLikeNamesApart) {
  ParticleTable table = MakeTable(5);
  const char* names[] = {"wet sum", "wet_sum", "wet-sum", "v", "vx"};
  for (int i = 0; i < 5; ++i)
    std::get<std::vector<f32>>(table.Add(names[i], ValueType::F32, 1).values)
        .assign(5, 10.0f + static_cast<f32>(i));
  for (const char* format : {"ply", "csv", "vdb"}) {
    const Encoded encoded = Encode(table, *FindFormat(format));
    const ParticleTable read = ParseParticles(encoded.bytes, *FindFormat(format));
    EXPECT_TRUE(read.warnings.empty()) << format << ": " << read.warnings.front();
    for (int i = 0; i < 5; ++i) {
      const bool isThere = std::any_of(
          read.Columns().begin(), read.Columns().end(), [&](const ParticleColumn& column) {
            return column.components == 1 && column.At(0) == 10 + i && column.At(4) == 10 + i;
          });
      EXPECT_TRUE(isThere) << format << ": " << names[i];
    }
    const ParticleColumn* velocity = read.Find("velocity", 3);
    ASSERT_TRUE(velocity) << format;
    EXPECT_EQ(velocity->At(OrderOf(read)[4], 2), table.Find("velocity")->At(4, 2)) << format;
  }
}

TEST(ParticleFiles, CountColorsThatBytesCannotTell) {
  ParticleTable table = MakeTable(4);
  auto& colors = std::get<std::vector<f32>>(table.Find("color")->values);
  colors[0] = std::numeric_limits<f32>::quiet_NaN();
  colors[4] = 2;
  colors[5] = -1;
  for (const char* name : {"xyz", "pts"}) {
    const Encoded encoded = Encode(table, *FindFormat(name));
    ASSERT_EQ(encoded.report.changed.size(), 1u) << name;
    EXPECT_EQ(encoded.report.changed.at("color"),
              "3 numbers of 'color' aren't from 0 to 1 and become the nearest that is");
    const ParticleTable read = ParseParticles(encoded.bytes, *FindFormat(name));
    const ParticleColumn& is = *read.Find("color", 3);
    EXPECT_EQ(is.At(0, 0), 0);
    EXPECT_EQ(is.At(1, 1), 1);
    EXPECT_EQ(is.At(1, 2), 0);
  }
}

TEST(ParticleFiles, EndBehindTheLastNumberOfText) {
  const std::string head =
      "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\n"
      "property float z\nend_header\n";
  const ParticleTable read = ParseParticles(head + "0 0 0\n1 0 0", PlyFormat());
  ASSERT_EQ(read.Count(), 2);
  EXPECT_EQ(read.Find("position", 3)->At(1, 0), 1);
  EXPECT_NE(FaultOf(head + "0 0 0\n1 0", PlyFormat()), "none");
  const ParticleTable wide = ParseParticles("x,y,z,ID\n0,0,0,1152921504606846979\n", CsvFormat());
  ASSERT_TRUE(wide.Find("id", 1));
  EXPECT_EQ(std::get<std::vector<i64>>(wide.Find("id", 1)->values)[0], (i64{1} << 60) + 3);
}

namespace {

/// Bytes as a zlib stream that packs nothing.
std::string AsZlib(const std::string& bytes) {
  const auto size = static_cast<u32>(bytes.size());
  u32 low = 1, high = 0;
  for (const char c : bytes) {
    low = (low + static_cast<u8>(c)) % 65521;
    high = (high + low) % 65521;
  }
  std::string stream = "\x78\x01\x01";
  for (const u32 byte : {size, size >> 8, ~size, ~size >> 8, high >> 8, high, low >> 8, low}) {
    if (stream.size() == 7) stream += bytes;
    stream += static_cast<char>(byte & 0xff);
  }
  return stream;
}

template <class T>
void AppendNumbers(std::string& bytes, std::initializer_list<T> values) {
  for (const T value : values) bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// The start of an ICECACHE file, up to its attributes.
std::string IceStart(u32 points, u32 attributes) {
  std::string bytes = "ICECACHE";
  AppendNumbers<u32>(bytes, {103, 0, points, 0, 0, 0, 1, 0, attributes});
  return bytes;
}

/// An attribute of an ICECACHE file that isn't followed by anything of its own.
void AppendIceAttribute(std::string& bytes, const std::string& name, u32 type, u32 context) {
  AppendNumbers<u32>(bytes, {static_cast<u32>(name.size())});
  bytes += name + std::string((4 - name.size() % 4) % 4, '_');
  AppendNumbers<u32>(bytes, {type, 1, context, 0, 1});
}

/// A channel of an MC file with zeros for values.
std::string McChannel(const std::string& name, std::string_view tag, u32 size, u32 bytesEach) {
  std::string chunks;
  const auto put = [&](std::string_view id, std::string body) {
    chunks += id;
    for (int shift = 24; shift >= 0; shift -= 8)
      chunks += static_cast<char>(body.size() >> shift & 0xff);
    chunks += body + std::string((4 - body.size() % 4) % 4, '\0');
  };
  put("CHNM", name + '\0');
  put("SIZE", {'\0', '\0', '\0', static_cast<char>(size)});
  put(tag, std::string(size * bytesEach, '\0'));
  return chunks;
}
/// A file of one moment with such channels.
std::string McFile(const std::string& channels) {
  const std::string start = EncodeParticles(MakeTable(0), McFormat());
  std::string bytes = start.substr(0, start.find("FOR4", 1)) + "FOR4";
  const std::size_t size = channels.size() + 4;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(size >> shift & 0xff);
  return bytes + "MYCH" + channels;
}

}  // namespace

TEST(ParticleFiles, UnwrapZlibStreamsToo) {
  const std::string rows = "1 2 3\n4 5 6\n";
  const ParticleTable read = ParseParticles(AsZlib(rows), XyzFormat());
  ASSERT_EQ(read.Count(), 2);
  EXPECT_EQ(read.Find("position", 3)->At(1, 2), 6);
  std::string damaged = AsZlib(rows);
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  EXPECT_EQ(FaultOf(damaged, XyzFormat()), "what it has packed is damaged");
  EXPECT_EQ(ParseParticles("x , y , z\n1 , 2 , 3\n", CsvFormat()).Count(), 1)
      << "a text may begin alike";
}

TEST(ParticleFiles, FindTheNextMemberWhereverTheInputEnds) {
  constexpr std::size_t kFlags = 3, kHead = 10, kHasName = 8, kInput = 1 << 16;
  const std::string member = Encode(MakeTable(3), XyzFormat(), true).bytes;
  ASSERT_EQ(member[kFlags], 0);
  for (const std::size_t behind : {0, 1, 2}) {
    // A long name lets the first member end so many bytes before the input does.
    std::string first = member;
    first[kFlags] = kHasName;
    first.insert(kHead, std::string(kInput - behind - member.size() - 1, 'n') + '\0');
    ASSERT_EQ(first.size(), kInput - behind);
    EXPECT_EQ(ParseParticles(first + member, XyzFormat()).Count(), 6) << behind;
  }
}

TEST(ParticleFiles, TakePointsBesideWhatIsNotOfPoints) {
  constexpr u32 kFloat = 4, kVector = 16, kText = 131072, kOfAll = 1, kPerPoint = 2;
  std::string bytes = IceStart(1, 4);
  AppendIceAttribute(bytes, "Gain", kFloat, kOfAll);
  AppendIceAttribute(bytes, "PointPosition", kVector, kPerPoint);
  AppendIceAttribute(bytes, "Note", kText, kPerPoint);
  AppendIceAttribute(bytes, "Mass", kFloat, kPerPoint);
  AppendNumbers<u32>(bytes, {0});
  AppendNumbers<f32>(bytes, {9, 1, 2, 3});
  bytes += "text of any length";
  const ParticleTable read = ParseParticles(bytes, IcecacheFormat());
  ASSERT_EQ(read.Count(), 1);
  EXPECT_EQ(read.Find("position", 3)->At(0, 2), 3);
  EXPECT_FALSE(read.Find("mass"));
  ASSERT_EQ(read.warnings.size(), 2u);
  EXPECT_TRUE(Names(read.warnings, "Gain"));
  EXPECT_TRUE(Names(read.warnings, "Note"));
}

TEST(ParticleFiles, TakeNoMoreMemoryThanIsLeft) {
  // A few bytes stand for the values of four thousand points.
  constexpr u32 kMatrix = 256, kVector = 16, kPerPoint = 2, kPoints = 8000, kAttributes = 20;
  std::string bytes = IceStart(kPoints, kAttributes + 1);
  AppendIceAttribute(bytes, "PointPosition", kVector, kPerPoint);
  for (u32 i = 0; i < kAttributes; ++i)
    AppendIceAttribute(bytes, "m" + std::to_string(i), kMatrix, kPerPoint);
  bytes += std::string(kPoints * 3 * sizeof(f32), '\0');
  for (u32 i = 0; i < 2 * kAttributes; ++i) {
    AppendNumbers<u32>(bytes, {1});
    bytes += std::string(16 * sizeof(f32), '\0');
  }
  EXPECT_EQ(ParseParticles(bytes, IcecacheFormat()).Columns().size(), kAttributes + 1);
  host::SetMemoryLimit(host::MemoryInUse() + 4'000'000);
  EXPECT_EQ(FaultOf(bytes, IcecacheFormat()),
            "it doesn't fit into memory: the columns of its 8000 particles need 4 MB");
  std::string rows;
  for (i32 i = 0; i < 200'000; ++i) rows += "1 2 3\n";
  EXPECT_NE(FaultOf(rows, XyzFormat()).find("it doesn't fit into memory"), std::string::npos);
  host::SetMemoryLimit(0);
  EXPECT_EQ(ParseParticles(rows, XyzFormat()).Count(), 200'000);
}

TEST(ParticleFiles, KeepHowOpaqueColorsAre) {
  constexpr u32 kColor = 512, kVector = 16, kPerPoint = 2;
  for (const f32 opacity : {1.0f, 0.25f}) {
    std::string bytes = IceStart(2, 2);
    AppendIceAttribute(bytes, "PointPosition", kVector, kPerPoint);
    AppendIceAttribute(bytes, "Color", kColor, kPerPoint);
    AppendNumbers<f32>(bytes, {0, 0, 0, 1, 0, 0});
    AppendNumbers<u32>(bytes, {1});
    AppendNumbers<f32>(bytes, {0.5f, 0, 1, opacity});
    const ParticleTable read = ParseParticles(bytes, IcecacheFormat());
    ASSERT_TRUE(read.Find("color", 3));
    EXPECT_EQ(read.Find("color", 3)->At(1, 2), 1);
    const ParticleColumn* found = read.Find("color_opacity", 1);
    ASSERT_EQ(found != nullptr, opacity != 1);
    EXPECT_EQ(found ? found->At(1) : 0.25, 0.25);
  }
}

TEST(ParticleFiles, GoByThePositionsOfChannels) {
  const std::string radii = McChannel("drops_radiusPP", "DBLA", 1, 8);
  const std::string places = McChannel("drops_position", "FVCA", 3, 12);
  const ParticleTable read = ParseParticles(McFile(radii + places), McFormat());
  EXPECT_EQ(read.Count(), 3);
  EXPECT_EQ(read.Columns().size(), 1u);
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_EQ(read.warnings[0],
            "the channel 'radius' has values for 1 of 3 particles and is left out");
  // Cloth has one channel, which is named as the object.
  for (const char* name : {"my_cloth_shape", "drops_position", "cloth"}) {
    const ParticleTable lone = ParseParticles(McFile(McChannel(name, "DVCA", 2, 24)), McFormat());
    ASSERT_TRUE(lone.Find("position", 3)) << name;
    EXPECT_EQ(lone.Count(), 2);
  }
  EXPECT_EQ(FaultOf(McFile(radii), McFormat()), "its particles have no positions");
}

TEST(ParticleFiles, TakeWhatOneNumberStandsForAsItFits) {
  ParticleTable table;
  table.SetCount(1);
  table.Add("position", ValueType::F32, 3);
  table.remarks = {{"time", std::numeric_limits<double>::quiet_NaN()},
                   {"frame", 1e300},
                   {"fps", -std::numeric_limits<double>::infinity()}};
  const ParticleTable read = ParseParticles(EncodeParticles(table, BinFormat()), BinFormat());
  const auto remark = [&](std::string_view key) -> double {
    for (const auto& [name, value] : read.remarks)
      if (name == key)
        return std::holds_alternative<i32>(value) ? std::get<i32>(value) : std::get<double>(value);
    return -1;
  };
  EXPECT_EQ(remark("time"), 0);
  EXPECT_EQ(remark("frame"), 2147483647);
  EXPECT_EQ(remark("fps"), 0);
  EXPECT_EQ(ParseParticles(EncodeParticles(table, McFormat()), McFormat()).Count(), 1);
}

TEST(ParticleFiles, TakeWhatOtherWritersLeaveOutOrAdd) {
  EXPECT_EQ(ParseParticles("ATTRIBUTES\nposition\nTYPES\nV\nNUMBER_OF_PARTICLES:1\n"
                           "BEGIN DATA\n1 2 3\n",
                           PdaFormat())
                .Count(),
            1);
  // A normal whose first number is the last of all is none only where its second is so too.
  ParticleTable table = MakeTable(2);
  std::string ptc = EncodeParticles(table, PtcFormat());
  const std::size_t points = ptc.find("wet\n") + 4, each = (ptc.size() - points) / 2;
  for (const std::size_t at : {points + 12, points + each + 12}) ptc[at] = ptc[at + 1] = '\xff';
  const ParticleTable bent = ParseParticles(ptc, PtcFormat());
  ASSERT_TRUE(bent.Find("normal", 3));
  // A text that belongs to the whole ends what is read, behind the points.
  std::string bgeo = EncodeParticles(table, BgeoFormat());
  bgeo[40] = 1;  // an attribute of the whole
  bgeo.resize(bgeo.size() - 2);
  bgeo += std::string("\0\4note\0\1\0\0\0\2 any text", 21);
  const ParticleTable read = ParseParticles(bgeo, BgeoFormat());
  EXPECT_EQ(read.Count(), 2);
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_EQ(read.warnings[0],
            "what stands behind its points, from the text 'note' on, is left out");
}

TEST(ParticleFiles, TellOnceASeriesWhatIsLost) {
  ParticleTable table = MakeTable(2);
  ParticleColumn& groups = table.Add("group", ValueType::I32, 1);
  groups.words = {"water (liquid)", "foam (diffuse)"};
  std::get<std::vector<i32>>(groups.values) = {1, 0};
  SeriesReport told;
  const auto news = [&](const ParticleFormat& format) {
    WriteReport report;
    EncodeParticles(table, format, false, &report);
    return told.News(report);
  };
  EXPECT_TRUE(news(BgeoFormat()).empty());
  EXPECT_EQ(news(PrtFormat()),
            (std::vector<std::string>{
                "the format has no place for the texts of 'group', which become numbers: "
                "0 for \"water (liquid)\", 1 for \"foam (diffuse)\""}));
  EXPECT_TRUE(news(PrtFormat()).empty());
  EXPECT_EQ(news(PdcFormat()), (std::vector<std::string>{"the format has no place for life"}));
  std::get<std::vector<f64>>(table.Find("heat of it")->values)[1] = 1e39;
  ASSERT_EQ(news(BgeoFormat()).size(), 1u);
  std::get<std::vector<f64>>(table.Find("heat of it")->values)[0] = 1e39;
  EXPECT_TRUE(news(BgeoFormat()).empty());
}

TEST(ParticleFiles, TakeTablesAsOthersWriteThem) {
  const ParticleTable read = ParseParticles(
      "X;Y;Z;VX;VY;VZ;id;radius;radius\r\n1,5;2;3;0;0;1;9007199254740993;0,25;7\r\n", CsvFormat());
  ASSERT_EQ(read.Count(), 1);
  EXPECT_EQ(read.Find("position", 3)->At(0, 0), 1.5);
  EXPECT_EQ(read.Find("velocity", 3)->At(0, 2), 1);
  EXPECT_EQ(std::get<std::vector<i64>>(read.Find("id")->values)[0], 9007199254740993);
  EXPECT_EQ(read.Find("radius")->At(0), 0.25);
  EXPECT_EQ(read.Find("radius_2")->At(0), 7);
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_EQ(read.warnings[0], "there is a second 'radius', which becomes 'radius_2'");
  EXPECT_EQ(ParseParticles("x\ty\tz\n1\t2\t3\n", CsvFormat()).Find("position")->At(0, 2), 3);
  EXPECT_EQ(FaultOf("x,y,z,mass\n0,0,0,1\n0,,0,1\n", CsvFormat()),
            "line 3: the cell of 'y' is empty");
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
    const WriteReport report = WriteParticles(folder.Path() / name, table);
    EXPECT_TRUE(report.Clauses().empty());
    ExpectKept(table, ReadParticles(folder.Path() / name), report.lost, name);
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
