// Files that other programs wrote, where the folder with them stands beside the checkout.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "exchange/particle_files.h"
#include "host/file_error.h"
#include "paths.h"

namespace MELDO_GLOBAL::exchange {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

const fs::path& Samples() {
  static const fs::path path = SourcePath("/../shared/data/particles");
  return path;
}

#define SKIP_WITHOUT_SAMPLES() \
  if (!fs::exists(Samples())) GTEST_SKIP() << "there is no " << Samples()

Json ReadJson(const fs::path& path) {
  std::ifstream file(path);
  return Json::parse(file);
}

/// Expects the first values of a column to be those of a list, of numbers or of lists.
void ExpectValues(const ParticleTable& table, const char* name, const Json& values,
                  double tolerance) {
  const int components = values[0].is_array() ? 3 : 1;
  const ParticleColumn* column = table.Find(name, components);
  ASSERT_TRUE(column) << name;
  for (std::size_t row = 0; row < values.size(); ++row)
    for (int c = 0; c < components; ++c) {
      const double value =
          components == 3 ? values[row][c].get<double>() : values[row].get<double>();
      ASSERT_NEAR(column->At(static_cast<i64>(row), c), value, tolerance) << name << " " << row;
    }
}

}  // namespace

TEST(ParticleSamples, HaveTheirCountsAndAttributes) {
  SKIP_WITHOUT_SAMPLES();
  for (const Json& sample : ReadJson(Samples() / "index.json")) {
    const std::string file = sample["file"];
    SCOPED_TRACE(file);
    const ParticleTable table = ReadParticles(Samples() / file);
    EXPECT_EQ(table.Count(), sample["particles"]);
    ASSERT_TRUE(table.Find("position", 3));
    // Each is a column, under its name or the one that it means.
    std::size_t expected = 0;
    for (const std::string attribute : sample["attributes"])
      expected += attribute.find("position:") == std::string::npos;
    EXPECT_EQ(table.Columns().size(), expected + 1);
    if (!sample.contains("bbox")) continue;
    for (int a = 0; a < 3; ++a) {
      double low = 1e9, high = -1e9;
      for (i64 row = 0; row < table.Count(); ++row) {
        low = std::min(low, table.Find("position")->At(row, a));
        high = std::max(high, table.Find("position")->At(row, a));
      }
      EXPECT_NEAR(low, sample["bbox"][0][a].get<double>(), 1e-6);
      EXPECT_NEAR(high, sample["bbox"][1][a].get<double>(), 1e-6);
    }
  }
}

TEST(ParticleSamples, HaveTheirValues) {
  SKIP_WITHOUT_SAMPLES();
  const Json told = ReadJson(Samples() / "synth/expected.json");
  struct Sample {
    const char* file;
    std::vector<const char*> columns;
    double tolerance = 1e-6;
  };
  const Sample samples[] = {{"basic.pda", {"velocity", "radius", "id"}},
                            {"pos.xyz", {}},
                            {"rgb.pts", {"color"}, 1.0 / 255},
                            {"v0.ptc", {"radius", "color"}},
                            {"v103_raw.icecache", {"velocity", "color"}},
                            {"v11.bin", {"velocity", "id"}},
                            {"v1_mixed.prt", {"color"}, 1e-3}};
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.file);
    const ParticleTable table = ReadParticles(Samples() / "synth" / sample.file);
    ASSERT_EQ(table.Count(), told["n"]);
    ExpectValues(table, "position", told["position"], 1e-6);
    for (const char* column : sample.columns)
      ExpectValues(table, column, told[std::string(column) == "color" ? "Cd" : column],
                   sample.tolerance);
  }
  const ParticleTable prt = ReadParticles(Samples() / "synth/v1_mixed.prt");
  ASSERT_TRUE(prt.Find("id", 1));
  EXPECT_EQ(prt.Find("id", 1)->Type(), ValueType::I64);
  EXPECT_EQ(prt.Find("id", 1)->At(24), 1e12 + 24);
  EXPECT_THROW(ReadParticles(Samples() / "synth/bad_truncated.bgeo"), host::FileError);
}

TEST(ParticleSamples, KeepTextsAndMeanings) {
  SKIP_WITHOUT_SAMPLES();
  const ParticleTable table = ReadParticles(Samples() / "scatter.bgeo");
  const ParticleColumn* test = table.Find("test", 1);
  ASSERT_TRUE(test);
  EXPECT_EQ(test->words, (std::vector<std::string>{"", "blah", "hello"}));
  const ParticleTable again = ParseParticles(EncodeParticles(table, GeoFormat()), GeoFormat());
  ASSERT_TRUE(again.Find("test", 1));
  EXPECT_EQ(again.Find("test", 1)->words, test->words);
  EXPECT_EQ(again.Find("test", 1)->values, test->values);
  const ParticleTable cloth = ReadParticles(Samples() / "nParticleFrame2.mc");
  ASSERT_TRUE(cloth.Find("id", 1));
  EXPECT_EQ(cloth.Find("id", 1)->Type(), ValueType::I32);
  EXPECT_TRUE(cloth.Find("lifespanPP", 1));
}

}  // namespace MELDO_GLOBAL::exchange
