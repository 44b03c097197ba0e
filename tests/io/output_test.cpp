// Statistics lines, atomic files, pictures, names and the small parsers of the run command.
#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/command_line.h"
#include "cli/run_folder.h"
#include "host/exit_codes.h"
#include "host/file_limit.h"
#include "io/json_line.h"
#include "io/png_preview.h"
#include "io/preview_film.h"
#include "io/statistics.h"
#include "nodes/catalogue.h"
#include "run/memory_limit.h"
#include "run/run_arguments.h"
#include "scene/command_files.h"
#include "scene/node_names.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
namespace fs = std::filesystem;

namespace {

fs::path FreshFolder(const std::string& name) {
  const fs::path folder = fs::path(testing::TempDir()) / name;
  fs::remove_all(folder);
  fs::create_directories(folder);
  return folder;
}

Picture DecodePng(const std::string& bytes) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_TRUE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()));
  image.format = PNG_FORMAT_RGB;
  Picture picture{static_cast<i32>(image.width), static_cast<i32>(image.height), {}};
  picture.rgb.resize(PNG_IMAGE_SIZE(image));
  EXPECT_TRUE(png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr));
  return picture;
}

int Brightness(const Picture& p, i32 x, i32 y) {
  const u8* c = p.rgb.data() + 3 * (std::size_t(p.width) * y + x);
  return c[0] + c[1] + c[2];
}

}  // namespace

TEST(JsonLine, NumbersRoundTripAndTextIsEscaped) {
  const double values[] = {0.1, 1.0 / 3, 6.02e23, 5e-324, -0.0, 123456789.125};
  JsonLine line;
  line.Open('{').Key("v").Open('[');
  for (const double v : values) line.Number(v);
  line.Number(std::numeric_limits<double>::quiet_NaN()).Close(']');
  line.Key("a \"quoted\"\n\\ name").Number(0.05f).Close('}');
  const auto json = nlohmann::json::parse(line.Str());
  for (std::size_t i = 0; i < std::size(values); ++i)
    EXPECT_EQ(json["v"][i].get<double>(), values[i]);
  EXPECT_TRUE(json["v"].back().is_null());
  EXPECT_EQ(json["a \"quoted\"\n\\ name"].dump(), "0.05");
  EXPECT_EQ(line.Str().find('\n'), std::string::npos);
}

TEST(Statistics, LinesHoldTheContract) {
  FrameRecord record;
  record.frame = 12;
  record.elapsed = 0.48;
  record.steps = {0.02, 0.02};
  record.simulated = true;
  record.stageSeconds[6] = 0.05;
  record.channels.push_back({.name = "smoke", .dims = {4, 5, 6}, .max = {1, 0, 0}, .ledger = {}});
  record.channels[0].ledger = MELDO_SULVA::FieldLedger{.emitted = 3, .handedOver = 2, .drift = -1};
  record.channels.push_back({.name = "colour", .components = 3, .sum = {1, 2, 3}, .ledger = {}});
  record.solvers.push_back({.name = "gas",
                            .maxSpeed = 1.5,
                            .pressure = {{31, 8e-9}},
                            .viscosity = {},
                            .volume = {},
                            .liquid = {}});
  record.solvers[0].volume = MELDO_SULVA::VolumeLedger{.solids = 0.5, .left = 0.25};
  record.cfl = 2.5;
  record.warnings = {"it \"leaks\""};
  const auto json = nlohmann::json::parse(FormatFrame(record));
  EXPECT_EQ(json["frame"], 12);
  EXPECT_EQ(json["substeps"], 2);
  EXPECT_EQ(json["dt_s"], nlohmann::json({0.02, 0.02}));
  EXPECT_EQ(json["channels"]["smoke"]["dims"], nlohmann::json({4, 5, 6}));
  EXPECT_EQ(json["channels"]["smoke"]["max"], 1);
  EXPECT_EQ(json["channels"]["colour"]["sum"], nlohmann::json({1, 2, 3}));
  EXPECT_EQ(json["solvers"]["gas"]["pressure"][0]["iterations"], 31);
  EXPECT_EQ(json["solvers"]["gas"]["max_speed"], 1.5);
  EXPECT_TRUE(json["particles"].is_object() && json["bodies"].is_object());
  const auto& ledger = json["channels"]["smoke"]["ledger"];
  EXPECT_EQ(ledger["emitted"], 3);
  EXPECT_EQ(ledger["handed_over"], 2);
  EXPECT_EQ(ledger["drift"], -1);
  EXPECT_EQ(ledger["trapped"], 0);
  EXPECT_FALSE(json["channels"]["colour"].contains("ledger"));
  EXPECT_EQ(json["solvers"]["gas"]["volume"]["solids"], 0.5);
  EXPECT_EQ(json["solvers"]["gas"]["volume"]["left"], 0.25);
  EXPECT_EQ(json["cfl"], 2.5);
  EXPECT_EQ(json["warnings"], nlohmann::json({"it \"leaks\""}));
  bool hasAdvection = false;
  for (const auto& stage : json["stages"])
    hasAdvection |= stage["stage"] == 6 && stage["name"] == "Advection" && stage["wall_s"] == 0.05;
  EXPECT_TRUE(hasAdvection);
  EXPECT_EQ(nlohmann::json::parse(FormatSummary(3, 1.5, 7, {"late"}))["summary"],
            nlohmann::json({{"frames", 3},
                            {"wall_s", 1.5},
                            {"exit_code", 7},
                            {"warnings", nlohmann::json::array({"late"})}}));
}

TEST(Statistics, FileGrowsWhileItIsOpenAndAFailureIsOnlyAWarning) {
  const fs::path folder = FreshFolder("statistics");
  StatisticsFile file(folder / "deep" / "stats.jsonl");
  file.WriteFrame({});
  EXPECT_NE(ReadAll(folder / "deep" / "stats.jsonl").find("\"frame\": 0"), std::string::npos);
  EXPECT_TRUE(file.Warning().empty());

  std::ofstream(folder / "plain") << "a file where a folder should be";
  // A file that has lost lines keeps those that it has.
  std::ofstream(folder / "short.jsonl") << "{\"frame\": 0,}\n{\"frame\": 1,}\n{\"fra";
  StatisticsFile goesOn(folder / "short.jsonl");
  goesOn.GoOn(4, 5);
  goesOn.WriteSummary(2, 0, 0);
  EXPECT_TRUE(ReadAll(folder / "short.jsonl")
                  .starts_with("{\"frame\": 0,}\n{\"frame\": 1,}\n{\"summary\""));
  EXPECT_NE(goesOn.Warning().find("2 of the 5 frames"), std::string::npos);

  StatisticsFile broken(folder / "plain" / "stats.jsonl");
  broken.WriteFrame({});
  EXPECT_NE(broken.Warning().find("plain/stats.jsonl"), std::string::npos);

  StatisticsFile full(folder / "full.jsonl");
  const host::FileLimit limit(1000);
  full.WriteFrame({});
  const std::string line = ReadAll(folder / "full.jsonl");
  FrameRecord more;
  more.frame = 1;
  for (int i = 0; i < 30; ++i) more.channels.push_back({.name = "smoke", .ledger = {}});
  full.WriteFrame(more);
  EXPECT_NE(full.Warning().find("File too large"), std::string::npos) << full.Warning();
  EXPECT_EQ(ReadAll(folder / "full.jsonl"), line) << "a line is there whole or not at all";

  // What an earlier run left stays until there is a frame to write.
  StatisticsFile failed(folder / "full.jsonl");
  failed.WriteSummary(0, 0, 6);
  EXPECT_EQ(ReadAll(folder / "full.jsonl"), line);
}

TEST(FrameLog, LinesAreInTheOrderOfTheirFrames) {
  const fs::path folder = FreshFolder("log");
  const auto line = [](int frame, const char* text) {
    return "{\"frame\": " + std::to_string(frame) + ", \"x\": \"" + text + "\"}";
  };
  FrameLog log(folder / "log");
  EXPECT_FALSE(log.GoOn());
  log.Start("{\"head\": 1}");
  for (const int frame : {-3, 0, 4}) log.Put(frame, line(frame, "a"));
  log.Finish("{\"end\": 1}");
  std::ofstream(folder / "log", std::ios::app) << "{\"frame\": 9, torn";
  FrameLog again(folder / "log");
  ASSERT_TRUE(again.GoOn());
  EXPECT_EQ(again.Count(), 3);
  EXPECT_EQ(again.CountUpTo(0), 2);
  again.Put(2, line(2, "b"));
  again.Put(0, line(0, "longer"));
  again.Put(4, line(4, "a"));
  again.Put(7, line(7, "c"));
  again.Finish("{\"end\": 2}");
  EXPECT_EQ(ReadAll(folder / "log"), "{\"head\": 1}\n" + line(-3, "a") + "\n" + line(0, "longer") +
                                         "\n" + line(2, "b") + "\n" + line(4, "a") + "\n" +
                                         line(7, "c") + "\n{\"end\": 2}\n");
}

TEST(FrameRecord, NonFiniteValuesAreNamed) {
  FrameRecord record;
  record.channels.push_back({.name = "smoke", .ledger = {}});
  record.solvers.emplace_back().name = "gas";
  EXPECT_EQ(FindNonFinite(record), "");
  record.channels[0].sum.x = std::numeric_limits<double>::infinity();
  EXPECT_NE(FindNonFinite(record).find("smoke"), std::string::npos);
  record.solvers[0].maxSpeed = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(FindNonFinite(record).find("gas"), std::string::npos);
}

TEST(AtomicFile, ReplacesWholeFilesAndLeavesNothingBeside) {
  const fs::path folder = FreshFolder("atomic");
  const fs::path path = folder / "a" / "b" / "file.bin";
  WriteFileAtomically(path, "old");
  const std::string large(3 << 20, 'x');
  WriteFileAtomically(path, large);
  EXPECT_EQ(ReadAll(path), large);
  EXPECT_EQ(std::distance(fs::directory_iterator(path.parent_path()), {}), 1);

  // A name that can't be taken: the old content stays, the unfinished file goes.
  fs::create_directories(folder / "taken" / "child");
  try {
    WriteFileAtomically(folder / "taken", "new");
    FAIL() << "a folder was overwritten";
  } catch (const CommandError& error) {
    EXPECT_EQ(error.code, kExitFile);
    EXPECT_NE(std::string(error.what()).find("taken"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(folder / "taken.sulva-part"));
  EXPECT_THROW(WriteFileAtomically(path / "below a file", "x"), CommandError);
}

TEST(RunOptions, Checkpoints) {
  const auto plan = [](const char* text) {
    const auto read = ParseCheckpoints(text);
    return read ? std::pair(read->frames, read->minutes) : std::pair(-1, -1.0);
  };
  EXPECT_EQ(plan("20"), std::pair(20, 0.0));
  EXPECT_EQ(plan("1.5m"), std::pair(0, 1.5));
  EXPECT_EQ(plan("5m,20"), std::pair(20, 5.0));
  EXPECT_TRUE(ParseCheckpoints("0")->IsOff());
  for (const char* bad : {"", ",", "m", "-1", "5m,5m", "2,3", "1.5", "3h", "nanm", "5m,"})
    EXPECT_EQ(plan(bad), std::pair(-1, -1.0)) << bad;
}

TEST(RunOptions, FramesAndByteCounts) {
  const auto frames = ParseFrames("-5:20");
  ASSERT_TRUE(frames);
  EXPECT_EQ(frames->first, -5);
  EXPECT_EQ(frames->last, 20);
  EXPECT_EQ(ParseFrames("7")->last, 7);
  EXPECT_FALSE(ParseFrames(":9")->first);
  EXPECT_FALSE(ParseFrames("3:")->last);
  for (const char* bad : {"", ":", "a", "1:b", "5:4", "1:2:3", "99999999999", "1.5:2"})
    EXPECT_FALSE(ParseFrames(bad)) << bad;

  EXPECT_EQ(ParseByteCount("512"), 512u);
  EXPECT_EQ(ParseByteCount("2k"), 2048u);
  EXPECT_EQ(ParseByteCount("1.5GB"), 3221225472u / 2);
  EXPECT_EQ(ParseByteCount("8GiB"), u64{8} << 30);
  for (const char* bad : {"", "0", "-1G", "G", "1X", "1GG", "nan", "1e30T"})
    EXPECT_FALSE(ParseByteCount(bad)) << bad;
}

TEST(NodeNames, GrowPathsOnlyWhereNamesMeet) {
  host::Document document;
  auto& one = document.Create(1, "one", nullptr);
  auto& two = document.Create(1, "two", nullptr);
  auto& a = document.Create(1, "smoke", &one);
  auto& b = document.Create(1, "smoke", &two);
  auto& c = document.Create(1, "heat", &two);
  const NodeNames names(document);
  EXPECT_EQ(names.Of(a.Id()), "one/smoke");
  EXPECT_EQ(names.Of(b.Id()), "two/smoke");
  EXPECT_EQ(names.Of(c.Id()), "heat");
  EXPECT_EQ(names.Of(999), "");
}

TEST(NodeNames, StatisticsTellOnlyNodesOfAListApart) {
  host::Document document;
  const auto make = [&](i32 id, const char* name, host::BaseNode* parent) {
    return &MELDO_SULVA::CreateNode(document, *MELDO_SULVA::FindKind(id), name, parent);
  };
  constexpr i32 scalar = 1300027, emitter = 1300005;
  document.Create(host::kMeshObject, "fire", nullptr);
  host::BaseNode* server = make(host::kServerNode, "scene", nullptr);
  host::BaseNode* fire = make(scalar, "fire", server);
  host::BaseNode* source = make(emitter, "smoke", server);
  host::BaseNode* smoke = make(scalar, "smoke", server);
  host::BaseNode* hidden = make(scalar, "smoke", source);
  const NodeNames names(document, NodeNames::Among::SameList);
  EXPECT_EQ(names.Of(fire->Id()), "fire");
  EXPECT_EQ(names.Of(smoke->Id()), "scene/smoke");
  EXPECT_EQ(names.Of(hidden->Id()), "smoke/smoke");
  EXPECT_EQ(NodeNames(document).Of(fire->Id()), "scene/fire");
}

TEST(Preview, SmokeIsBrightOnDarkWithYUpAndTheSameExposureInEveryBox) {
  GridLayout layout;
  layout.Set({16, 8, 4}, {160, 80, 40}, 0.1f, {0, 0, 0});
  EGrid<double> grid(layout, kCentre);
  // A block in the upper left corner of the picture.
  ForEachCell({{2, 5, 1}, {5, 7, 3}}, [&](i32 x, i32 y, i32 z) { grid(x, y, z) = 1; });
  PreviewView view{{0, 0, 0}, {1.6, 0.8, 0.4}, 0.1, 2};
  PreviewLayer layer;
  layer.grids[0] = &grid;
  const std::string bytes = EncodePng(DrawPreview(view, {layer}, {}));
  const Picture picture = DecodePng(bytes);
  ASSERT_EQ(picture.width, 512);
  ASSERT_EQ(picture.height, 256);
  const int lit = Brightness(picture, 512 * 7 / 32, 256 / 4);
  EXPECT_GT(lit, 300);
  EXPECT_LT(Brightness(picture, 512 * 7 / 32, 256 * 3 / 4), 120);
  EXPECT_LT(Brightness(picture, 400, 64), 120);
  EXPECT_EQ(bytes, EncodePng(DrawPreview(view, {layer}, {})));

  // Along x one looks from the high side: +z is on the left.
  view.axis = 0;
  grid.Fill(0);
  grid(8, 4, 3) = 5;
  const Picture side = DrawPreview(view, {layer}, {});
  EXPECT_GT(Brightness(side, side.width / 8, side.height / 2 - 20),
            Brightness(side, side.width * 7 / 8, side.height / 2 - 20) + 50);
}

TEST(Png, TextsAreReadAsTheyWereWritten) {
  const Picture picture{1, 1, {1, 2, 3}};
  const FileTexts texts = {{"sulva:fields", "rauch \xc3\xa4 [1]"}, {"sulva:frame", "-7"}};
  const std::string bytes = EncodePng(picture, texts);
  EXPECT_EQ(DecodePng(bytes).rgb, picture.rgb);
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::istringstream in(bytes);
  png_set_read_fn(png, &in, [](png_structp reader, png_bytep to, png_size_t count) {
    static_cast<std::istream*>(png_get_io_ptr(reader))
        ->read(reinterpret_cast<char*>(to), static_cast<std::streamsize>(count));
  });
  png_read_info(png, info);
  png_textp found = nullptr;
  FileTexts read;
  const int count = png_get_text(png, info, &found, nullptr);
  for (int i = 0; i < count; ++i) read.emplace_back(found[i].key, found[i].text);
  EXPECT_EQ(read, texts);
  png_destroy_read_struct(&png, &info, nullptr);
}

TEST(Preview, LargeBoxesAreDrawnCoarserWithTheSameBrightness) {
  GridLayout layout;
  layout.Set({64, 64, 64}, {64, 64, 64}, 0.01f, {0, 0, 0});
  EGrid<double> grid(layout, kCentre);
  grid.Fill(1);
  PreviewLayer layer;
  layer.grids[0] = &grid;
  // The same smoke in one box twice as fine as the other; only the cells of the view differ.
  const auto brightness = [&](double size) {
    const Picture picture = DrawPreview({{0, 0, 0}, {size, size, 0.64}, 0.01, 2}, {layer}, {});
    const i32 at = static_cast<i32>(512 * 0.32 / size);
    return Brightness(picture, at, 511 - at);
  };
  const int fine = brightness(7.5), coarse = brightness(7.8);
  EXPECT_GT(fine, 200);
  EXPECT_NEAR(fine, coarse, 0.06 * fine);
}

TEST(PreviewFilm, CodesFollowTheCurveOfScreens) {
  for (int i = 0; i <= 30000; ++i) {
    const float x = static_cast<float>(i) / 30000;
    const double code = x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(double{x}, 1 / 2.4) - 0.055;
    ASSERT_NEAR(ToByte(x), 255 * code, 0.502) << x;
  }
  EXPECT_EQ(ToByte(-1), 0);
  EXPECT_EQ(ToByte(7), 255);
}

TEST(Memory, GridsBeyondTheLimitHaveNoData) {
  const u64 before = GridMemory();
  SetGridMemoryLimit(before + 20 * 1000 * 8);
  {
    Grid<double> first({10, 10, 100}, kCentre);
    EXPECT_EQ(GridMemory(), before + 10 * 1000 * 8);
    EXPECT_TRUE(first.mData);
    EXPECT_EQ(RefusedGrid().bytes, 0);
    Grid<double> second({10, 10, 101}, kCentre);
    EXPECT_FALSE(second.mData);
    EXPECT_EQ(RefusedGrid().dims.z, 101);
  }
  EXPECT_EQ(GridMemory(), before);
  SetGridMemoryLimit(0);
  Grid<double> vast({100000, 100000, 100000}, kCentre);
  EXPECT_FALSE(vast.mData);
  EXPECT_DOUBLE_EQ(RefusedGrid().bytes, 8e15 + static_cast<double>(before));
  SetGridMemoryLimit(0);
}

TEST(Memory, ThatRunsOutWhereNothingCatchesEndsWithASentence) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto end = [](void (*fault)()) {
    SettleUncaught();
    [&]() noexcept { fault(); }();
  };
  EXPECT_EXIT(end([] { throw std::bad_alloc(); }), testing::ExitedWithCode(6),
              "error: out of memory: ");
  EXPECT_EXIT(end([] { throw std::runtime_error("odd"); }), testing::KilledBySignal(SIGABRT),
              "odd");
}

TEST(Memory, SizesReadWell) {
  EXPECT_EQ(FormatBytes(999), "999 B");
  EXPECT_EQ(FormatBytes(2.5e9), "2.5 GB");
  EXPECT_GT(MachineMemory(), u64{1} << 28);
}
