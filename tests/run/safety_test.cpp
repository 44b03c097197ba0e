// Nothing is lost and nobody is let in: folders that hold runs, runs beside runs, planted files.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "cli/run_folder.h"

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

}  // namespace MELDO_GLOBAL::app
