// Runs that are stopped, killed and resumed end with the same bytes.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <chrono>
#include <random>
#include <thread>

#include "cli/run_folder.h"
#include "paths.h"
#include "run/checkpoint_header.h"

namespace fs = std::filesystem;

namespace MELDO_GLOBAL::app {
namespace {

std::vector<fs::path> Checkpoints(const fs::path& out) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator(out / "checkpoints"))
    found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}

void WaitMilliseconds(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

/// Kills a run again and again at random moments until a resumed one ends; the number of kills.
int RunThroughKills(const RunFolder& folder, std::vector<std::string> arguments, int most,
                    double longest, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> moment(0, longest);
  arguments.insert(arguments.end(), {"--resume", "--quiet"});
  for (int kills = 0; kills < most; ++kills) {
    const pid_t child = folder.Start(arguments);
    WaitMilliseconds(static_cast<int>(moment(random)));
    kill(child, SIGKILL);
    if (RunFolder::Wait(child) == 0) return kills;
  }
  EXPECT_EQ(folder.Run(arguments), 0) << folder.Errors();
  return most;
}

}  // namespace

TEST(Checkpoint, RunThatGoesOnEndsWithTheSameBytes) {
  const RunFolder folder("goes_on");
  folder.Write("smoke.json", RecordedSmoke(9, 0.2));
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "whole", "--checkpoint", "2"}), 0)
      << folder.Errors();
  for (int stop = 0; stop < 9; stop += 2) {
    const std::string out = std::string("part").append(std::to_string(stop));
    const std::string frames = std::string("0:").append(std::to_string(stop));
    ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", out, "--checkpoint", "2", "--frames",
                          frames, "--quiet"}),
              0);
    ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", out, "--checkpoint", "2", "--resume"}), 0)
        << folder.Errors();
    EXPECT_NE(folder.Errors().find(stop == 0 ? "no checkpoint to go on from"
                                             : "going on behind frame " + std::to_string(stop - 1)),
              std::string::npos)
        << folder.Errors();
    folder.ExpectSame("whole", out);
  }
  EXPECT_EQ(Checkpoints(folder.Path() / "whole").size(), 2u);
  EXPECT_EQ(Checkpoints(folder.Path() / "whole").back().filename(), "00009.checkpoint");
}

TEST(Checkpoint, RunThatStartsOverRecordsAgainWhatItRecorded) {
  const RunFolder folder("over");
  folder.Write("smoke.json", RecordedSmoke(4));
  const auto run = [&](const char* out, std::vector<std::string> more) {
    more.insert(more.begin(), {"run", "smoke.json", "--out", out, "--quiet", "--checkpoint", "100",
                               "--set", "recording.mode=both"});
    return folder.Run(more);
  };
  ASSERT_EQ(run("whole", {}), 0) << folder.Errors();
  ASSERT_EQ(run("part", {"--frames", ":2"}), 0) << folder.Errors();
  ASSERT_EQ(run("part", {"--resume"}), 0) << folder.Errors();
  folder.ExpectSame("whole", "part");
}

TEST(Checkpoint, RunThatIsKilledAtRandomMomentsEndsWithTheSameBytes) {
  const RunFolder folder("killed");
  folder.Write("smoke.json", RecordedSmoke(11));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "whole", "--quiet"}), 0);
  const double wall =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  const char* asked = std::getenv("SULVA_KILLS");
  const int most = asked ? std::atoi(asked) : 4;
  const unsigned seed = asked ? std::random_device()() : 7;
  const int kills = RunThroughKills(
      folder, {"run", "smoke.json", "--out", "killed", "--checkpoint", "1"}, most, wall, seed);
  folder.ExpectSame("whole", "killed");
  if (asked) std::printf("%d kills, seed %u\n", kills, seed);
  for (const auto& [name, bytes] : folder.Files("killed"))
    EXPECT_EQ(name.find("-part"), std::string::npos) << name;
}

class StoppedBy : public testing::TestWithParam<int> {};

TEST_P(StoppedBy, SignalTheRunKeepsWhatIsNeededToGoOn) {
  const RunFolder folder("interrupt");
  folder.Write("smoke.json", RecordedSmoke(12));
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "whole", "--quiet", "--checkpoint", "0"}), 0);
  EXPECT_FALSE(fs::exists(folder.Path() / "whole/checkpoints")) << "0 takes none";
  const pid_t child = folder.Start({"run", "smoke.json", "--out", "cut", "--checkpoint", "1000"});
  const fs::path fourth = folder.Path() / "cut/preview/0004.png";
  for (int i = 0; i < 3000 && !fs::exists(fourth); ++i) WaitMilliseconds(5);
  kill(child, GetParam());
  const int code = RunFolder::Wait(child);
  if (code == 0) GTEST_SKIP() << "the run ended before the interrupt came";
  ASSERT_EQ(code, 7) << folder.Errors();
  EXPECT_NE(folder.Errors().find("--resume goes on behind frame"), std::string::npos);
  ASSERT_EQ(Checkpoints(folder.Path() / "cut").size(), 1u);
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "cut", "--checkpoint", "1000", "--resume"}),
            0)
      << folder.Errors();
  folder.ExpectSame("whole", "cut");
}

INSTANTIATE_TEST_SUITE_P(Checkpoint, StoppedBy, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST(Checkpoint, OtherScenesAndVersionsAreRefusedAndDamagedOnesPassedOver) {
  const RunFolder folder("refused");
  folder.Write("smoke.json", RecordedSmoke(5));
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "o", "--checkpoint", "2", "--quiet"}), 0);
  const auto whole = folder.Files("o");
  const auto resume = [&](std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"run", "smoke.json", "--out", "o", "--resume"});
    return folder.Run(more);
  };
  EXPECT_EQ(resume({"--set", "rate.amount=50"}), 5);
  EXPECT_NE(folder.Errors().find("can't go on from it: the scene"), std::string::npos)
      << folder.Errors();
  EXPECT_TRUE(folder.Files("o") == whole) << "nothing was touched";
  const fs::path newest = Checkpoints(folder.Path() / "o").back();
  const std::string before = ReadAll(newest);
  std::string later = before;
  later[12] = 99;  // the format's version
  std::ofstream(newest, std::ios::binary) << later;
  const auto other = folder.Files("o");
  EXPECT_EQ(resume(), 5);
  EXPECT_NE(folder.Errors().find("version 99"), std::string::npos) << folder.Errors();
  EXPECT_TRUE(folder.Files("o") == other) << "nothing was touched";
  std::ofstream(newest, std::ios::binary) << before;
  folder.Write("o/film.part", "half of a download");

  // Comments, exports and a longer range are the same simulation.
  std::string text = RecordedSmoke(6);
  const std::size_t png = text.find(",\n    { \"format\": \"png\"");
  text.erase(png, text.find('\n', png + 2) - png);
  folder.Write("smoke.json", "// a comment\n" + text);
  fs::copy(folder.Path() / "o", folder.Path() / "longer", fs::copy_options::recursive);
  EXPECT_EQ(folder.Run({"run", "smoke.json", "--out", "longer", "--resume"}), 0) << folder.Errors();
  EXPECT_TRUE(fs::exists(folder.Path() / "longer/vdb/0006.vdb"));

  folder.Write("smoke.json", RecordedSmoke(5));
  const auto checkpoints = Checkpoints(folder.Path() / "o");
  ASSERT_EQ(checkpoints.size(), 2u);
  std::string bytes = ReadAll(checkpoints[1]);
  std::ofstream(checkpoints[1], std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  EXPECT_EQ(resume(), 0) << folder.Errors();
  EXPECT_NE(folder.Errors().find("cut short"), std::string::npos) << folder.Errors();
  EXPECT_NE(folder.Errors().find("going on behind frame 3"), std::string::npos);
  EXPECT_EQ(folder.Files("o").at("stats.jsonl"), whole.at("stats.jsonl"));
  EXPECT_TRUE(folder.Files("o").at("vdb/0005.vdb") == whole.at("vdb/0005.vdb"));
  EXPECT_TRUE(fs::exists(folder.Path() / "o/film.part")) << "not ours";

  // Old ones stay until a new run has its own.
  EXPECT_EQ(folder.Run({"run", "smoke.json", "--out", "o", "--frames", ":0", "--checkpoint", "2"}),
            0);
  ASSERT_EQ(Checkpoints(folder.Path() / "o").size(), 1u);
  EXPECT_EQ(Checkpoints(folder.Path() / "o")[0].filename(), "00003.checkpoint");
  EXPECT_EQ(folder.Run({"run", "smoke.json", "--out", "o", "--frames", ":2", "--checkpoint", "2"}),
            0);
  ASSERT_EQ(Checkpoints(folder.Path() / "o").size(), 1u);
  EXPECT_EQ(Checkpoints(folder.Path() / "o")[0].filename(), "00001.checkpoint");
}

TEST(Checkpoint, StatesGoToTheNodesOfTheirNames) {
  const RunFolder folder("names");
  folder.Write("smoke.json", RecordedSmoke(8));
  const auto run = [&](std::vector<std::string> more, const std::string& out,
                       const std::string& scene = "smoke.json") {
    more.insert(more.begin(), {"run", scene, "--out", out, "--quiet"});
    return folder.Run(more);
  };
  const auto says = [&](const std::string& text) {
    return folder.Errors().find(text) != std::string::npos;
  };
  ASSERT_EQ(run({"--checkpoint", "2", "--keep", "0"}, "base"), 0);
  const fs::path states = folder.Path() / "base/checkpoints";
  ASSERT_EQ(folder.Run({"info", "base/checkpoints/00003.checkpoint"}), 0) << folder.Errors();
  EXPECT_NE(folder.Answers().find("Fields: smoke [1], heat [K], ball volume [m], block volume [m], "
                                  "gas [m/s]\n"),
            std::string::npos)
      << folder.Answers();
  const auto branch = [&](const std::string& text, const char* frame = "3") {
    folder.Write("other.json", text);
    return run({"--resume", "--from", frame, "--base", "base"}, "branch", "other.json");
  };
  const auto renamed = [](std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find('"' + from + '"', at)) != std::string::npos;)
      text.replace(at + 1, from.size(), to);
    return text;
  };
  // Two fields of one kind that change places would take each other's state.
  const std::string scene = renamed(RecordedSmoke(8), "channel_temp", "channel_scalar");
  folder.Write("two.json", scene);
  ASSERT_EQ(run({"--checkpoint", "2", "--keep", "0"}, "base2", "two.json"), 0) << folder.Errors();
  folder.Write("other.json",
               renamed(renamed(renamed(scene, "smoke", "?"), "heat", "smoke"), "?", "heat"));
  const auto onTwo = [&] {
    return run({"--resume", "--from", "3", "--base", "base2"}, "branch", "other.json");
  };
  EXPECT_EQ(onTwo(), 5);
  EXPECT_TRUE(
      says("base2/checkpoints/00003.checkpoint: can't go on from it: it holds \"smoke\" [1] "
           "where the scene has \"heat\" [1]"))
      << folder.Errors();
  EXPECT_EQ(branch(renamed(RecordedSmoke(8), "heat", "warmth")), 5);
  EXPECT_TRUE(says("it holds \"heat\" [K], which the scene hasn't, and none of \"warmth\" [K]"))
      << folder.Errors();
  EXPECT_FALSE(fs::exists(folder.Path() / "branch/vdb")) << "nothing was simulated";

  // A state under the name of another frame.
  fs::copy(states / "00003.checkpoint", states / "00004.checkpoint");
  EXPECT_EQ(branch(RecordedSmoke(8), "4"), 5);
  EXPECT_TRUE(says("it is the state behind frame 3, whatever its name says")) << folder.Errors();
  EXPECT_EQ(folder.Run({"verify", "base"}), 5);
  EXPECT_NE(folder.Answers().find("00004.checkpoint: it is the state behind frame 3"),
            std::string::npos)
      << folder.Answers();

  // What earlier builds left, the first of which named nothing, isn't written over.
  HyperFile old;
  ASSERT_TRUE(old.Open(kCheckpointIdent, states / "00003.checkpoint", HyperFile::Mode::kRead));
  CheckpointHeader header;
  ASSERT_TRUE(ReadCheckpointHeader(old, header));
  for (const i32 format : {1, kCheckpointFormat - 1}) {
    for (const auto& entry : fs::directory_iterator(states)) fs::remove(entry.path());
    HyperFile file;
    file.Open(kCheckpointIdent, states / "00003.checkpoint", HyperFile::Mode::kWrite);
    header.format = format;
    if (format > 1) {
      WriteCheckpointHeader(file, header);
    } else {
      file.WriteText(header.version);
      file.WriteLLong(static_cast<i64>(header.scene));
      file.WriteLong(header.run.frame);
      file.WriteLong(header.run.framesWritten);
    }
    file.WriteMemory("x", 1);
    ASSERT_TRUE(file.Close());
    const auto before = folder.Files("base");
    EXPECT_EQ(run({"--resume"}, "base"), 5);
    EXPECT_TRUE(says("its format is " + std::to_string(format) +
                     ", and this build of sulva goes on from format " +
                     std::to_string(kCheckpointFormat) + " alone"))
        << folder.Errors();
    EXPECT_TRUE(folder.Files("base") == before);
  }
}

TEST(Checkpoint, FileThatCannotBeWrittenEndsTheRunAndLeavesWhatWasThere) {
  const RunFolder folder("full");
  folder.Write("smoke.json", RecordedSmoke(6));
  const fs::path inTheWay = folder.Path() / "o/cache/sulva_grid_frame00003.cache";
  fs::create_directories(inTheWay);
  EXPECT_EQ(folder.Run({"run", "smoke.json", "--out", "o", "--checkpoint", "1"}), 5);
  EXPECT_NE(folder.Errors().find("sulva_grid_frame00003.cache: Is a directory"), std::string::npos)
      << folder.Errors();
  fs::remove(inTheWay);
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "o", "--checkpoint", "1", "--resume"}), 0);
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "whole", "--quiet"}), 0);
  folder.ExpectSame("whole", "o");

  fs::remove(inTheWay);
  fs::create_directories(inTheWay);
  EXPECT_EQ(folder.Run(
                {"run", "smoke.json", "--out", "o", "--set", "recording.go_on_after_failure=true"}),
            0);
  EXPECT_NE(folder.Errors().find("cache \"recording\": cannot write"), std::string::npos)
      << folder.Errors();
}

TEST(Checkpoint, SmallDiskThatFillsUp) {
  const RunFolder folder("tmpfs");
  folder.Write("smoke.json", RecordedSmoke(8));
  const fs::path disk = folder.Path() / "disk";
  fs::create_directories(disk);
  if (mount("sulva", disk.c_str(), "tmpfs", 0, "size=1500k") != 0)
    GTEST_SKIP() << "no right to mount a small disk";
  const int code = folder.Run({"run", "smoke.json", "--out", "disk/o", "--checkpoint", "1"});
  const std::string errors = folder.Errors();
  int parts = 0;
  for (const auto& entry : fs::recursive_directory_iterator(disk))
    parts += entry.path().extension() == ".sulva-part";
  // With more room the run goes on where it was.
  mount("sulva", disk.c_str(), "tmpfs", MS_REMOUNT, "size=64m");
  const int resumed =
      folder.Run({"run", "smoke.json", "--out", "disk/o", "--checkpoint", "1", "--resume"});
  if (resumed == 0) fs::copy(disk / "o", folder.Path() / "o", fs::copy_options::recursive);
  umount(disk.c_str());
  EXPECT_EQ(code, 5) << errors;
  EXPECT_NE(errors.find("No space left on device"), std::string::npos) << errors;
  EXPECT_EQ(parts, 0);
  ASSERT_EQ(resumed, 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "whole", "--quiet"}), 0);
  folder.ExpectSame("whole", "o");
}

TEST(Checkpoint, FolderWithoutRightsEndsTheRunWithItsName) {
  const RunFolder folder("rights");
  folder.Write("smoke.json", RecordedSmoke(3));
  ASSERT_EQ(folder.Run({"run", "smoke.json", "--out", "o", "--quiet", "--frames", ":1"}), 0);
  const auto before = folder.Files("o");
  // Rights don't hold for root, a read-only mount does.
  const fs::path out = folder.Path() / "o";
  fs::permissions(out / "vdb", fs::perms::owner_read | fs::perms::owner_exec);
  const bool isRoot = geteuid() == 0;
  if (isRoot && (mount(out.c_str(), out.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
                 mount(nullptr, out.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr)))
    GTEST_SKIP() << "no right to mount a folder read-only";
  const int code = folder.Run({"run", "smoke.json", "--out", "o"});
  const std::string errors = folder.Errors();
  if (isRoot) umount(out.c_str());
  fs::permissions(out / "vdb", fs::perms::owner_all);
  EXPECT_EQ(code, 5) << errors;
  EXPECT_NE(errors.find("o/"), std::string::npos) << errors;
  EXPECT_TRUE(folder.Files("o").at("vdb/0001.vdb") == before.at("vdb/0001.vdb"));
}

// ---- every scene ------------------------------------------------------------------------------

class ResumedScene : public testing::TestWithParam<fs::path> {};

// What a class keeps from frame to frame and doesn't save shows here.
TEST_P(ResumedScene, EndsWithTheSameBytes) {
  if (GetParam().stem().string().starts_with("replay")) GTEST_SKIP() << "needs a recording";
  const RunFolder folder("resumed_" + GetParam().stem().string());
  std::vector<std::string> run = {
      "run", GetParam().string(), "--quiet", "--set", "scene.cell_size=0.1", "--checkpoint", "1"};
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.begin(), run.begin(), run.end());
    return folder.Run(more);
  };
  const nlohmann::json scene = nlohmann::json::parse(ReadAll(GetParam()), nullptr, true, true);
  const int first = scene["range"][0], last = std::min(first + 8, scene["range"][1].get<int>());
  const auto frames = [&](int end) { return std::to_string(first) + ":" + std::to_string(end); };
  ASSERT_EQ(with({"--out", "whole", "--frames", frames(last)}), 0) << folder.Errors();
  ASSERT_EQ(with({"--out", "part", "--frames", frames((first + last + 1) / 2)}), 0);
  ASSERT_EQ(with({"--out", "part", "--frames", frames(last), "--resume"}), 0) << folder.Errors();
  folder.ExpectSame("whole", "part", true);
}

namespace {
std::vector<fs::path> AllScenes() {
  std::vector<fs::path> found;
  for (const char* name : {"scenes", "tests/scenes"})
    for (const auto& entry : fs::directory_iterator(fs::path(SourcePath()) / name))
      if (entry.path().extension() == ".json") found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(All, ResumedScene, testing::ValuesIn(AllScenes()),
                         [](const auto& scene) { return scene.param.stem().string(); });

}  // namespace MELDO_GLOBAL::app
