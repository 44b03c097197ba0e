// Nothing is lost and nobody is let in: folders that hold runs, runs beside runs, planted files.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "cli/run_folder.h"
#include "run/memory_limit.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace MELDO_GLOBAL::app {
namespace {

/// Runs in the background until a file is there.
pid_t StartAndWaitFor(const RunFolder& folder, const std::vector<std::string>& arguments,
                      const std::string& file) {
  const pid_t child = folder.Start(arguments);
  for (int i = 0; i < 4000 && !fs::exists(folder.Path() / file); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(fs::exists(folder.Path() / file)) << file << folder.Errors();
  return child;
}

int Kill(pid_t child, int signal = SIGKILL) {
  kill(child, signal);
  return RunFolder::Wait(child);
}

class Safety : public testing::Test {
 protected:
  Safety() : folder(testing::UnitTest::GetInstance()->current_test_info()->name()) {
    folder.Write("smoke.json", RecordedSmoke(12));
  }
  int Run(std::vector<std::string> more, const std::string& out = "o",
          const std::string& scene = "smoke.json") {
    more.insert(more.begin(), {"run", scene, "--out", out});
    return folder.Run(more);
  }
  /// A run that is killed once frame 6 is written.
  void CutShort(const std::string& out = "o") {
    Kill(StartAndWaitFor(folder, {"run", "smoke.json", "--out", out, "--checkpoint", "2"},
                         out + "/preview/0006.png"));
  }
  bool Says(const std::string& text) const {
    return folder.Errors().find(text) != std::string::npos;
  }
  bool Exists(const std::string& file) const { return fs::exists(folder.Path() / file); }

  const RunFolder folder;
};

}  // namespace

// ---- what earlier runs left ---------------------------------------------------------------------

TEST_F(Safety, RunThatWasCutShortIsNotStartedOverUnasked) {
  ASSERT_EQ(Run({"--quiet"}, "whole"), 0);
  CutShort();
  const auto before = folder.Files("o");
  EXPECT_EQ(Run({}), 2);
  EXPECT_TRUE(Says("holds a run that was cut short behind frame ") && Says("--resume") &&
              Says("--restart"))
      << folder.Errors();
  EXPECT_TRUE(folder.Files("o") == before) << "nothing was touched";

  // One that starts over and fails at once leaves the old one as it was.
  EXPECT_EQ(Run({"--restart", "--memory", "1M"}), 6) << folder.Errors();
  EXPECT_TRUE(Says(" MB of it for 'gas', the limit is ")) << folder.Errors();
  EXPECT_TRUE(folder.Files("o").at("manifest.jsonl") == before.at("manifest.jsonl"));
  ASSERT_EQ(Run({"--resume"}), 0) << folder.Errors();
  EXPECT_TRUE(Says("going on behind frame "));
  folder.ExpectSame("whole", "o");
  EXPECT_EQ(Run({"--quiet"}), 0) << "one that ended runs again as it is";
  folder.ExpectSame("whole", "o");

  CutShort("p");
  EXPECT_EQ(Run({"--restart"}, "p"), 0) << folder.Errors();
  folder.ExpectSame("whole", "p");
}

TEST_F(Safety, StatesOfAnotherRunAreNotGoneOnFrom) {
  CutShort();
  // Another scene starts over in this folder and is killed before it has states of its own.
  std::string other = RecordedSmoke(12, 0.2);
  other.replace(other.find("preview/####"), 7, "looks");
  folder.Write("other.json", other);
  Kill(StartAndWaitFor(
      folder, {"run", "other.json", "--out", "o", "--restart", "--checkpoint", "1000", "--quiet"},
      "o/looks/0002.png"));
  EXPECT_EQ(Run({"--resume"}), 5) << folder.Errors();
  EXPECT_TRUE(Says("other.json has run in this folder since")) << folder.Errors();
  ASSERT_EQ(Run({"--resume", "--quiet"}, "o", "other.json"), 0) << folder.Errors();
  ASSERT_EQ(Run({"--quiet"}, "whole", "other.json"), 0);
  for (const auto& [name, bytes] : folder.Files("whole")) {
    if (name.starts_with("checkpoints/")) continue;
    EXPECT_TRUE(folder.Files("o").at(name) == bytes) << name;
  }
}

TEST_F(Safety, CopyOfAFolderByHardLinksStaysAsItIs) {
  CutShort();
  fs::copy(folder.Path() / "o", folder.Path() / "copy",
           fs::copy_options::recursive | fs::copy_options::create_hard_links);
  const auto before = folder.Files("copy");
  ASSERT_TRUE(Exists("copy/.sulva-lock"));
  const std::string lock = ReadAll(folder.Path() / "copy/.sulva-lock");
  EXPECT_EQ(Run({"--resume", "--quiet"}), 0) << folder.Errors();
  EXPECT_TRUE(folder.Files("copy") == before);
  EXPECT_EQ(ReadAll(folder.Path() / "copy/.sulva-lock"), lock);
  EXPECT_EQ(Run({"--resume", "--quiet"}, "copy"), 0) << folder.Errors();
  folder.ExpectSame("o", "copy");
}

TEST_F(Safety, ScenesOfOneNameDoNotShareTheirFolderUnseen) {
  for (const char* place : {"a", "b"}) fs::create_directories(folder.Path() / place);
  folder.Write("a/smoke.json", RecordedSmoke(1));
  folder.Write("b/smoke.json", RecordedSmoke(1, 0.2));
  ASSERT_EQ(folder.Run({"run", "a/smoke.json", "--quiet"}), 0);
  const auto before = folder.Files("out/smoke");
  EXPECT_EQ(folder.Run({"run", "b/smoke.json"}), 2);
  EXPECT_TRUE(Says("another scene of this name; name another folder with --out"))
      << folder.Errors();
  EXPECT_TRUE(folder.Files("out/smoke") == before);
  EXPECT_EQ(folder.Run({"run", "b/smoke.json", "--out", "out/smoke"}), 0);
  EXPECT_TRUE(Says("note: out/smoke held what ")) << folder.Errors();
  // The same scene, moved.
  fs::rename(folder.Path() / "b", folder.Path() / "c");
  EXPECT_EQ(folder.Run({"run", "c/smoke.json", "--quiet"}), 0) << folder.Errors();
}

TEST_F(Safety, CacheFileThatIsGoneEndsResumingUnlessTheSceneGoesOn) {
  ASSERT_EQ(Run({"--quiet"}, "whole"), 0);
  CutShort();
  fs::remove(folder.Path() / "o/cache/sulva_grid_frame00003.cache");
  EXPECT_EQ(Run({"--resume"}), 5);
  EXPECT_TRUE(Says("sulva_grid_frame00003.cache is missing; put it back")) << folder.Errors();

  std::string lenient = RecordedSmoke(12);
  lenient.replace(lenient.find("\"mode\""), 0, "\"go_on_after_failure\": true, ");
  folder.Write("smoke.json", lenient);
  CutShort("p");
  fs::remove(folder.Path() / "p/cache/sulva_grid_frame00003.cache");
  EXPECT_EQ(Run({"--resume"}, "p"), 0) << folder.Errors();
  EXPECT_TRUE(Says("sulva_grid_frame00003.cache is missing")) << folder.Errors();
  EXPECT_TRUE(folder.Files("p").at("vdb/0012.vdb") == folder.Files("whole").at("vdb/0012.vdb"));
}

TEST_F(Safety, VerifyTellsEachFileThatIsNotAsTheRunLeftIt) {
  const auto verify = [&] { return folder.Run({"verify", "o"}); };
  const auto tells = [&](const std::string& text) {
    return folder.Answers().find(text) != std::string::npos;
  };
  EXPECT_EQ(verify(), 5);
  EXPECT_TRUE(Says("o: no run has left a manifest.jsonl here")) << folder.Errors();
  ASSERT_EQ(Run({"--quiet", "--checkpoint", "5"}), 0);
  EXPECT_EQ(verify(), 0) << folder.Answers();
  EXPECT_TRUE(tells("o: 13 frames, 41 files, all whole\n")) << folder.Answers();

  const fs::path o = folder.Path() / "o";
  fs::remove(o / "preview/0004.png");
  fs::resize_file(o / "vdb/0005.vdb", 100);
  for (const char* name : {"cache/sulva_grid_frame00006.cache", "checkpoints/00009.checkpoint"}) {
    std::string bytes = ReadAll(o / name);
    bytes[bytes.size() / 2] ^= 1;
    folder.Write(std::string("o/") + name, bytes);
  }
  std::string text = ReadAll(o / "manifest.jsonl");
  const std::size_t line = text.find("{\"frame\": 7,");
  text.erase(line, text.find('\n', line) + 1 - line);
  folder.Write("o/manifest.jsonl", text);
  EXPECT_EQ(verify(), 5);
  for (const char* finding :
       {"o/preview/0004.png: of frame 4: it is missing\n",
        "o/vdb/0005.vdb: of frame 5: it has 100 bytes, the run wrote ",
        "o/cache/sulva_grid_frame00006.cache: of frame 6: its bytes are others than the run wrote",
        "o/checkpoints/00009.checkpoint: it is damaged", "the manifest has no frame 7\n",
        ", 5 findings\n"})
    EXPECT_TRUE(tells(finding)) << finding << "\n" << folder.Answers();

  text = ReadAll(o / "manifest.jsonl");
  std::string twice = text, outside = text;
  const std::size_t third = text.find("{\"frame\": 3,");
  twice.insert(third, text.substr(third, text.find('\n', third) + 1 - third));
  outside.insert(text.find("vdb/0003.vdb"), "../o/");
  for (const std::string& damaged : {twice, outside}) {
    folder.Write("o/manifest.jsonl", damaged);
    EXPECT_EQ(verify(), 5);
    EXPECT_TRUE(Says("o/manifest.jsonl:") && Says("it is damaged")) << folder.Errors();
  }

  CutShort("p");
  EXPECT_EQ(folder.Run({"verify", "p"}), 5);
  EXPECT_TRUE(tells("the run was cut short: its manifest has no end\n")) << folder.Answers();
}

TEST_F(Safety, ABranchGoesOnFromAStateAndLeavesTheRunAlone) {
  ASSERT_EQ(Run({"--quiet", "--checkpoint", "5", "--keep", "0"}, "base"), 0);
  const auto base = folder.Files("base");
  const auto branch = [&](const char* frame, const char* out, std::vector<std::string> more) {
    more.insert(more.begin(), {"--resume", "--from", frame, "--base", "base", "--quiet"});
    return Run(more, out);
  };
  EXPECT_EQ(branch("9", "same", {}), 0) << folder.Errors();
  EXPECT_FALSE(Exists("same/vdb/0009.vdb"));
  for (const char* file : {"vdb/0010.vdb", "vdb/0012.vdb", "cache/sulva_grid_frame00011.cache"})
    EXPECT_TRUE(folder.Files("same").at(file) == base.at(file)) << file;
  EXPECT_EQ(folder.Run({"verify", "same"}), 0) << folder.Answers();

  EXPECT_EQ(branch("4", "other", {"--set", "rate.amount=3"}), 0) << folder.Errors();
  EXPECT_FALSE(folder.Files("other").at("vdb/0012.vdb") == base.at("vdb/0012.vdb"));
  EXPECT_EQ(branch("7", "none", {}), 5);
  EXPECT_TRUE(Says("no checkpoint behind that frame; there are those behind")) << folder.Errors();
  // As the file is called; what was in the folder stays.
  EXPECT_EQ(branch("00009", "other", {"--frames", ":10"}), 0) << folder.Errors();
  const auto other = folder.Files("other");
  EXPECT_EQ(branch("7", "other", {}), 5);
  EXPECT_TRUE(folder.Files("other") == other);
  EXPECT_EQ(branch("9x", "other", {}), 2);
  EXPECT_EQ(branch("9", "other", {"--frames", ":9"}), 2);
  // Before it has a state, a branch can't go on at the first frame.
  fs::remove_all(folder.Path() / "other/checkpoints");
  EXPECT_EQ(Run({"--resume"}, "other"), 5);
  EXPECT_TRUE(Says("branch off again with --from 9")) << folder.Errors();
  EXPECT_EQ(branch("4", "base", {}), 2);
  EXPECT_TRUE(Says("a run branches into another folder than its own")) << folder.Errors();
  EXPECT_TRUE(folder.Files("base") == base);
}

TEST_F(Safety, RecordingsAndVolumesTellWhoseTheyAre) {
  ASSERT_EQ(Run({"--quiet", "--frames", ":2"}), 0) << folder.Errors();
  const std::string head = ReadAll(folder.Path() / "o/manifest.jsonl");
  const std::size_t at = head.find("\"simulation\": \"") + 15;
  const std::string simulation = "simulation " + head.substr(at, 16);
  ASSERT_EQ(folder.Run({"info", "o/cache/sulva_grid_frame00002.cache"}), 0) << folder.Errors();
  EXPECT_NE(folder.Answers().find("Objects: smoke [1], heat [K], gas [m/s], block volume [m]\n"
                                  "Of frame 2, 0.08 s, 25 frames a second; sulva "),
            std::string::npos)
      << folder.Answers();
  EXPECT_NE(folder.Answers().find(simulation), std::string::npos) << simulation;
  ASSERT_EQ(folder.Run({"info", "o/vdb/0002.vdb"}), 0) << folder.Errors();
  EXPECT_NE(folder.Answers().find("values in m/s, frame 2, 0.08 s, 25 frames a second, sulva "),
            std::string::npos)
      << folder.Answers();
  EXPECT_NE(folder.Answers().find(simulation), std::string::npos) << simulation;
  const std::string picture = ReadAll(folder.Path() / "o/preview/0002.png");
  const auto carries = [&](const std::string& key, const std::string& text) {
    return picture.find("tEXt" + key + '\0' + text) != std::string::npos;
  };
  EXPECT_TRUE(carries("sulva:fields", "smoke [1]") && carries("sulva:frame", "2") &&
              carries("sulva:time", "0.08 s"));
  EXPECT_TRUE(carries("sulva:fingerprint", head.substr(at, 16)));
}

TEST_F(Safety, FramesOfTwoSimulationsDoNotMixUnseen) {
  ASSERT_EQ(Run({"--quiet", "--frames", ":4"}), 0) << folder.Errors();
  ASSERT_EQ(Run({"--set", "rate.amount=30", "--frames", ":2"}), 0) << folder.Errors();
  EXPECT_TRUE(Says("warning: o/cache/sulva_grid_frame00004.cache is left of another simulation"))
      << folder.Errors();
  EXPECT_EQ(folder.Run({"verify", "o"}), 5);
  EXPECT_NE(folder.Answers().find("o/cache/sulva_grid_frame00003.cache: it is left of the "),
            std::string::npos)
      << folder.Answers();
  EXPECT_NE(folder.Answers().find(", 2 findings\n"), std::string::npos) << folder.Answers();

  // A recording without its first frames isn't one that starts late.
  std::string text = RecordedSmoke(4);
  text.replace(text.find("\"record\""), 8, "\"play_back\"");
  const std::size_t offset = text.find("\"mode\"");
  folder.Write("late.json", std::string(text).insert(offset, "\"frame_offset\": -1, "));
  folder.Write("play.json", text);
  ASSERT_EQ(Run({"--quiet", "--frames", ":4", "--restart"}), 0) << folder.Errors();
  EXPECT_EQ(Run({"--quiet"}, "o", "late.json"), 0) << folder.Errors();
  fs::remove(folder.Path() / "o/cache/sulva_grid_frame00000.cache");
  EXPECT_EQ(Run({"--quiet"}, "o", "play.json"), 5);
  EXPECT_TRUE(
      Says("sulva_grid_frame00000.cache in frame 0: it isn't there; the recording has "
           "frames 1 to 4"))
      << folder.Errors();
}

// ---- two at once --------------------------------------------------------------------------------

TEST_F(Safety, FolderBelongsToOneRunAtATime) {
  folder.Write("long.json", RecordedSmoke(5000));
  const pid_t child =
      StartAndWaitFor(folder, {"run", "long.json", "--out", "o", "--quiet", "--checkpoint", "1"},
                      "o/preview/0003.png");
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{}, {"--resume"}, {"--restart"}}) {
    EXPECT_EQ(Run(more), 5);
    EXPECT_TRUE(Says("o is in use by sulva run (process " + std::to_string(child)))
        << folder.Errors();
  }
  EXPECT_EQ(folder.Run({"cache", "delete", "long.json", "--out", "o", "--yes"}), 5)
      << folder.Errors();
  EXPECT_TRUE(Exists("o/cache/sulva_grid_frame00002.cache"));
  EXPECT_EQ(Run({"--quiet", "--frames", ":1"}, "other"), 0) << "another folder is free";
  EXPECT_EQ(Kill(child), -SIGKILL);
  EXPECT_TRUE(Exists("o/.sulva-lock"));
  // The lock of a killed process holds nobody back.
  EXPECT_EQ(Run({"--restart", "--frames", ":1"}), 0) << folder.Errors();
  EXPECT_FALSE(Exists("o/.sulva-lock"));
}

TEST_F(Safety, RecordingOutsideOfTheOutputFolderBelongsToOneRunToo) {
  std::string text = RecordedSmoke(5000);
  text.replace(text.find("\"mode\""), 0, "\"folder\": \"custom\", \"custom_folder\": \"shared\", ");
  folder.Write("long.json", text);
  const std::vector<std::string> run = {"run", "long.json", "--frames", ":2", "--allow-outside"};
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.begin(), run.begin(), run.end());
    return folder.Run(more);
  };
  fs::create_directories(folder.Path() / "shared");
  const pid_t child =
      StartAndWaitFor(folder, {"run", "long.json", "--out", "a", "--quiet", "--allow-outside"},
                      "shared/sulva_grid_frame00003.cache");
  EXPECT_EQ(with({"--out", "b"}), 5);
  EXPECT_TRUE(Says("shared is in use by sulva run (process " + std::to_string(child)))
      << folder.Errors();
  EXPECT_EQ(folder.Run({"cache", "delete", "long.json", "--out", "b", "--yes"}), 5);
  EXPECT_EQ(with({"--out", "b", "--set", "recording.base_name=mine"}), 0) << folder.Errors();
  Kill(child);
  EXPECT_EQ(with({"--out", "c"}), 0) << folder.Errors();
}

// ---- planted files ------------------------------------------------------------------------------

TEST_F(Safety, PlantedLinksAreNotFollowedAndPipesNotWaitedFor) {
  folder.Write("precious", "mine");
  const fs::path precious = folder.Path() / "precious", o = folder.Path() / "o";
  fs::create_directories(o / "vdb");
  for (const char* name : {"stats.jsonl", "manifest.jsonl", "vdb/0000.vdb",
                           "vdb/0001.vdb.sulva-part", "vdb/0001.vdb.1-0.sulva-part"})
    fs::create_symlink(precious, o / name);
  ASSERT_EQ(mkfifo((o / "vdb/0002.vdb.sulva-part").c_str(), 0600), 0);
  EXPECT_EQ(Run({"--restart"}), 0) << folder.Errors();
  EXPECT_EQ(ReadAll(precious), "mine");
  EXPECT_FALSE(fs::is_symlink(o / "vdb/0000.vdb"));

  // Names of ours that are pipes, or links.
  const auto run = [&](const char* name) {
    fs::remove_all(o);
    fs::create_directories(o / "checkpoints");
    fs::create_directories(o / "vdb");
    EXPECT_EQ(mkfifo((o / name).c_str(), 0600), 0);
    return Run({"--resume", "--frames", ":3"});
  };
  EXPECT_EQ(run("checkpoints/00009.checkpoint"), 5);
  EXPECT_TRUE(Says("00009.checkpoint: it is no plain file")) << folder.Errors();
  EXPECT_EQ(run("vdb/0002.vdb"), 5);
  EXPECT_TRUE(Says("vdb/0002.vdb")) << folder.Errors();
  EXPECT_EQ(run("manifest.jsonl"), 5);
  EXPECT_EQ(run("stats.jsonl"), 0) << "statistics are a warning";
  EXPECT_TRUE(Says("warning: o/stats.jsonl isn't whole")) << folder.Errors();
  fs::remove_all(o);
  fs::create_directories(o);
  fs::create_symlink(precious, o / ".sulva-lock");
  EXPECT_EQ(Run({}), 5);
  EXPECT_EQ(ReadAll(precious), "mine");
}

TEST_F(Safety, LinkedFoldersLeadNowhereOutsideUnasked) {
  EXPECT_EQ(Run({"--set", "recording.folder=custom", "--set", "recording.custom_folder=stray"}), 5);
  EXPECT_TRUE(Says("it leads out of the output folder o")) << folder.Errors();
  EXPECT_FALSE(Exists("stray")) << "nor are folders made";
  fs::remove_all(folder.Path() / "o");
  fs::create_directories(folder.Path() / "elsewhere");
  fs::create_directories(folder.Path() / "o/inside");
  fs::create_directory_symlink(folder.Path() / "elsewhere", folder.Path() / "o/vdb");
  fs::create_directory_symlink("inside", folder.Path() / "o/preview");
  EXPECT_EQ(Run({"--frames", ":2"}), 5);
  EXPECT_TRUE(Says("it leads out of the output folder o; add --allow-outside")) << folder.Errors();
  EXPECT_TRUE(fs::is_empty(folder.Path() / "elsewhere"));
  EXPECT_EQ(Run({"--restart", "--frames", ":2", "--allow-outside"}), 0) << folder.Errors();
  EXPECT_TRUE(Exists("elsewhere/0002.vdb") && Exists("o/inside/0002.png"));
}

// ---- names and texts ----------------------------------------------------------------------------

TEST_F(Safety, NamesOfOurOwnFilesAreNotForExportsAndCachesStayInTheirFolder) {
  const auto check = [&](const std::string& from, const std::string& to) {
    std::string text = RecordedSmoke(1);
    text.replace(text.find(from), from.size(), to);
    folder.Write("names.json", text);
    return folder.Run({"check", "names.json"});
  };
  for (const char* name :
       {"checkpoints/####.vdb", "./Cache/a####.cache", "stats.jsonl/####.vdb",
        ".sulva-lock/####.vdb", "a/.x####.sulva-lock", "a\\n####.vdb", "a/####.sulva-part"})
    EXPECT_EQ(check("vdb/####.vdb", name), 3) << name;
  EXPECT_TRUE(Says("'a/####.sulva-part' ends in '.sulva-part'")) << folder.Errors();
  EXPECT_EQ(check("vdb/####.vdb", "a/cache/####.vdb"), 0) << folder.Errors();
  for (const char* name : {"../x", "a/../../x", "/tmp/x", "a\\u001bx", "x/"})
    EXPECT_EQ(check("\"mode\"", "\"base_name\": \"" + std::string(name) + "\", \"mode\""), 3)
        << name;
  EXPECT_TRUE(Says("'base_name': 'x/' leads out of the cache's folder")) << folder.Errors();
  EXPECT_EQ(check("\"mode\"", "\"base_name\": \"a/x\", \"mode\""), 0) << folder.Errors();
}

TEST_F(Safety, CachesFindTheirFilesBelowZeroAndFromAHundredThousandOn) {
  std::string text = RecordedSmoke(4);
  text.replace(text.find("\"mode\""), 0, "\"numbering\": \"document\", ");
  for (const auto& [first, last] : {std::pair{-3, 2}, {99998, 100001}, {-100001, -99999}}) {
    std::string moved = text;
    moved.replace(moved.find("[0, 4]"), 6, fmt::format("[{}, {}]", first, last));
    folder.Write("smoke.json", moved);
    ASSERT_EQ(Run({"--quiet", "--restart"}), 0) << folder.Errors();
    EXPECT_EQ(folder.Run({"cache", "scan", "smoke.json", "--out", "o"}), 0);
    const std::string files = fmt::format("{} files in o/cache\nLength: {}({} - {})",
                                          last - first + 1, last - first + 1, first, last);
    EXPECT_NE(folder.Answers().find(files), std::string::npos) << folder.Answers();
    // One whose name goes on with a digit, or a minus, keeps its own.
    folder.Write("o/cache/sulva_grid_frame-00007.cache", "mine");
    EXPECT_EQ(folder.Run({"cache", "delete", "smoke.json", "--out", "o", "--yes"}), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path() / "o/cache"), {}), 1) << first;
  }
}

TEST_F(Safety, HolesInASequenceEndTheRunAndEachFileOfItCounts) {
  std::string text = RecordedSmoke(5);
  const std::string ball = R"("type": "sphere", "radius": 30, "segments": 16)";
  const auto scene = [&](const std::string& more) {
    std::string made = text;
    made.replace(made.find(ball), ball.size(), R"("type": "mesh", "frames": "m.####.obj")" + more);
    folder.Write("smoke.json", made);
  };
  const std::string mesh =
      "v 0 0 0\nv 40 0 0\nv 0 40 0\nv 0 0 40\nf 1 3 2\nf 1 2 4\nf 2 3 4\nf 1 4 3\n";
  for (int i = 0; i <= 4; ++i)
    if (i != 3) folder.Write(fmt::format("m.{:04}.obj", i), mesh);
  scene("");
  EXPECT_EQ(Run({}), 5);
  EXPECT_TRUE(Says("m.0003.obj is missing: the run will end there")) << folder.Errors();
  EXPECT_TRUE(Says("m.0003.obj\" is missing, and the sequence goes on")) << folder.Errors();
  scene(R"(, "go_on_after_failure": true)");
  EXPECT_EQ(Run({"--restart"}), 0) << folder.Errors();
  folder.Write("m.0003.obj", mesh);
  scene("");
  EXPECT_EQ(Run({"--restart", "--frames", ":1", "--checkpoint", "1"}), 0)
      << "behind the last file the mesh stays: " << folder.Errors();
  folder.Write("m.0004.obj", mesh + "v 9 9 9\n");
  EXPECT_EQ(Run({"--resume"}), 5);
  EXPECT_TRUE(Says("the scene, its meshes, its plug-ins or --set are others")) << folder.Errors();
}

TEST_F(Safety, TextsFromFilesGiveTerminalsNoOrdersAndErrorsEnd) {
  std::string text = RecordedSmoke(1), many;
  const std::string ball = R"("type": "sphere", "radius": 30, "segments": 16)";
  text.replace(text.find(ball), ball.size(),
               R"("type": "mesh", "file": "a\u001b[2J\u009b\n\u00e9.obj")");
  folder.Write("smoke.json", text);
  EXPECT_EQ(folder.Run({"check", "smoke.json"}), 3);
  EXPECT_TRUE(Says("a\\x1b[2J\\xc2\\x9b\\x0a\u00e9.obj")) << folder.Errors();

  text = RecordedSmoke(1);
  for (const std::string name : {"\"smoke\"", "\"recording\""})
    for (std::size_t i = 0; (i = text.find(name, i)) != std::string::npos; i += name.size())
      text.insert(i + 2, "\\u009b");
  folder.Write("odd.json", text);
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"run", "odd.json", "--out", "\x1bo", "--trace"},
                                             {"verify", "\x1bo"},
                                             {"info", "\x1bo/cache/sulva_grid_frame00001.cache"},
                                             {"cache", "scan", "odd.json", "--out", "\x1bo"},
                                             {"check", "odd.json"},
                                             {"graph", "odd.json"},
                                             {"why", "odd.json", "gas"}}) {
    EXPECT_EQ(folder.Run(command), 0) << folder.Errors();
    const std::string all = folder.Answers() + folder.Errors();
    EXPECT_EQ(all.find_first_of("\x1b\x9b"), std::string::npos) << command.front() << all;
  }

  for (int i = 0; i < 60; ++i) many += fmt::format("\"x{}\": 1, ", i);
  text = RecordedSmoke(1);
  text.replace(text.find("\"cell_size\""), 0, many);
  folder.Write("smoke.json", text);
  EXPECT_EQ(folder.Run({"check", "smoke.json"}), 3);
  const std::string errors = folder.Errors();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 51) << errors;
  EXPECT_TRUE(Says("error: 10 more errors aren't shown"));
}

// ---- memory -------------------------------------------------------------------------------------

TEST_F(Safety, MemoryIsWhatTheMachineAndEveryGroupHaveFree) {
  const fs::path root = folder.Path();
  const auto write = [&](const std::string& name, const std::string& text) {
    fs::create_directories((root / name).parent_path());
    folder.Write(name, text);
  };
  write("proc/meminfo", "MemTotal: 900 kB\nMemFree: 1 kB\nMemAvailable:    800 kB\n");
  EXPECT_EQ(FreeMemory(root), 800u * 1024);
  write("proc/self/cgroup", "0::/outer/inner\n");
  write("sys/fs/cgroup/outer/inner/memory.max", "max\n");
  write("sys/fs/cgroup/outer/memory.max", "600000\n");
  write("sys/fs/cgroup/outer/memory.current", "500000\n");
  write("sys/fs/cgroup/outer/memory.stat", "anon 100000\ninactive_file 400000\n");
  EXPECT_EQ(FreeMemory(root), 500000u);
  write("sys/fs/cgroup/outer/memory.stat", "anon 700000\n");
  write("sys/fs/cgroup/outer/memory.current", "700000\n");
  EXPECT_EQ(FreeMemory(root), 0u);
  write("proc/self/cgroup", "7:cpu,memory:/box\n0::/\n");
  write("sys/fs/cgroup/memory/box/memory.limit_in_bytes", "300000\n");
  write("sys/fs/cgroup/memory/box/memory.usage_in_bytes", "250000\n");
  write("sys/fs/cgroup/memory/box/memory.stat", "total_inactive_file 50000\n");
  EXPECT_EQ(FreeMemory(root), 100000u);
}

}  // namespace MELDO_GLOBAL::app
