// Grids that go through a cache.
#include "cache/grid_cacher.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "cacher_scene.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/solvers/fluid_solver.h"
#include "grids/random_stream.h"
#include "host/atomic_file.h"
#include "host/file_limit.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

namespace fs = std::filesystem;

/// A scene with a solver, an empty channel, a scalar and a vector channel, and a cache of them.
struct CacheScene : CacherScene<GridCacher> {
  FluidSolver& solver = Add<FluidSolver>("fluid", "gas");
  PlainField& empty = Add<PlainField>("channel_scalar", "empty");
  PlainField& smoke = Add<PlainField>("channel_scalar", "smoke");
  VectorField& colour = Add<VectorField>("channel_vector", "colour");

  CacheScene(const fs::path& folder, i32 mode, double cellSize = 0.1)
      : CacherScene("cache", folder, mode, cellSize) {
    Links(cacher, 1012, {&solver, &empty, &smoke, &colour});
  }

  /// Gives the grids a box (simulation units) and fills them by f(position) or with noise.
  template <class F>
  void Fill(Vec3d min, Vec3d max, F&& f) {
    // On whole cells, as solvers and volumes have their boxes.
    const double h = scene->mDomain.cellSize;
    for (int a = 0; a < 3; ++a) {
      min[a] = std::round(min[a] / h) * h;
      max[a] = std::round(max[a] / h) * h;
    }
    solver.mFlow.mVelocity.ApplyBounds(min, max);
    smoke.ApplyBounds(min, max);
    colour.ApplyBounds(min, max);
    for (EGrid<double>* grid : Grids())
      for (i32 z = 0; z < grid->mNz; ++z)
        for (i32 y = 0; y < grid->mNy; ++y)
          for (i32 x = 0; x < grid->mNx; ++x) (*grid)(x, y, z) = f(grid->PositionOf(x, y, z));
  }
  void FillWithNoise() {
    RandomStream stream;
    Fill({-0.5, 0, 0.2}, {0.6, 0.8, 1.1}, [&](const Vec3d&) { return stream.NextUnit(); });
  }
  std::vector<EGrid<double>*> Grids() {
    return {solver.mFlow.mVelocity.GetGrid(0),
            solver.mFlow.mVelocity.GetGrid(1),
            solver.mFlow.mVelocity.GetGrid(2),
            smoke.GetGrid(0),
            colour.GetGrid(0),
            colour.GetGrid(1),
            colour.GetGrid(2)};
  }

  /// The three parts of a frame in which a cache plays: sizes, boxes, data.
  void Load(i32 frame) {
    BeginLoad(frame);
    for (iBase* channel : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&colour)}) {
      Vec3d min{1e9, 1e9, 1e9}, max{-1e9, -1e9, -1e9};
      channel->ExpandBounds(min, max);
      if (min.x < max.x) channel->ApplyBounds(min, max);
    }
    if (solver.Has(FLAG_CACHED)) {
      Vec3d min{}, max{0.1, 0.1, 0.1};
      solver.ExpandBounds(min, max);
      solver.mFlow.mVelocity.ApplyBounds(min, max);
    }
    Stage(cacher, kEmitters);
    cacher.Finish();
    cacher.ClearLinks();
  }
};

void ExpectSame(const EGrid<double>& a, const EGrid<double>& b) {
  ASSERT_EQ(a.Dims(), b.Dims());
  EXPECT_TRUE(a.mLayout.Equals(b.mLayout));
  EXPECT_EQ(std::memcmp(a.mData, b.mData, sizeof(double) * a.mCount), 0);
}

class GridCache : public testing::Test {
 protected:
  fs::path File(i32 frame) const {
    std::string number = std::to_string(frame);
    return folder.Path() /
           ("sulva_grid_frame" + std::string(5 - number.size(), '0') + number + ".cache");
  }
  const host::TempFolder folder;
};

TEST_F(GridCache, RecordedGridsComeBackBitForBit) {
  for (const i32 compression : {0, 1, 2}) {
    CacheScene recorded(folder.Path(), 1), played(folder.Path(), 0);
    CacheScene::Set(recorded.cacher, 1009, compression);
    recorded.FillWithNoise();
    recorded.Save(3);
    ASSERT_TRUE(fs::exists(File(3))) << recorded.cacher.Failure();
    played.Load(3);
    for (std::size_t i = 0; i < recorded.Grids().size(); ++i) {
      ASSERT_NE(played.Grids()[i], nullptr) << i;
      ExpectSame(*recorded.Grids()[i], *played.Grids()[i]);
    }
    EXPECT_TRUE(played.smoke.Has(FLAG_CACHED));
    EXPECT_TRUE(played.solver.Has(FLAG_CACHED));
    EXPECT_FALSE(played.empty.Has(FLAG_CACHED)) << "it had no grid";
    EXPECT_TRUE(played.cacher.Warnings().empty());
  }
}

TEST_F(GridCache, ContainerFollowsTheRecordingDownToo) {
  CacheScene recorded(folder.Path(), 1), played(folder.Path(), 0);
  recorded.FillWithNoise();
  recorded.Save(0);
  recorded.Fill({-0.2, 0.1, 0.3}, {0.3, 0.5, 0.7}, [](const Vec3d& p) { return p.x; });
  recorded.Save(1);
  played.Load(0);
  played.Load(1);
  ExpectSame(*recorded.smoke.GetGrid(0), *played.smoke.GetGrid(0));
}

TEST_F(GridCache, FinerAndMovedScenesReadTheSameField) {
  const auto ramp = [](const Vec3d& p) { return 1 + 2 * p.x - p.y + 0.5 * p.z; };
  CacheScene recorded(folder.Path(), 1), played(folder.Path(), 0, 0.03);
  recorded.Fill({-0.5, 0, 0.2}, {0.6, 0.8, 1.1}, ramp);
  recorded.Save(0);
  const Vec3d moved{0.25, -0.1, 0.5};
  played.cacher.Node()->SetPlacement(moved * 100.0, {}, {1, 1, 1});
  played.Load(0);
  for (const EGrid<double>* grid : played.Grids()) {
    ASSERT_TRUE(grid);
    EXPECT_FLOAT_EQ(grid->mLayout.cellSize, 0.03f);
    // Beyond the recording's outermost samples its border goes on.
    i32 inside = 0;
    for (i32 z = 0; z < grid->mNz; ++z)
      for (i32 y = 0; y < grid->mNy; ++y)
        for (i32 x = 0; x < grid->mNx; ++x) {
          const Vec3d p = grid->PositionOf(x, y, z) - moved;
          if (p.x < -0.4 || p.x > 0.5 || p.y < 0.1 || p.y > 0.7 || p.z < 0.3 || p.z > 1.0) continue;
          ASSERT_NEAR((*grid)(x, y, z), ramp(p), 1e-6);
          ++inside;
        }
    EXPECT_GT(inside, 10000);
  }
}

TEST_F(GridCache, ModesOffsetsAndDirectionsChooseTheFile) {
  CacheScene recorded(folder.Path(), 1);
  const auto value = [&](double v) { return [v](const Vec3d&) { return v; }; };
  for (i32 frame = 0; frame < 6; ++frame) {
    recorded.Fill({0, 0, 0}, {0.5, 0.5, 0.5}, value(frame));
    recorded.Save(frame);
  }
  recorded.Load(2);
  EXPECT_FALSE(recorded.smoke.Has(FLAG_CACHED)) << "recording reads nothing";

  const auto shown = [&](i32 frame, auto&& set) {
    CacheScene played(folder.Path(), 0);
    set(played.cacher);
    played.Load(frame);
    const auto* grid = played.smoke.GetGrid(0);
    const double v = grid ? (*grid)[0] : -1;
    played.Save(frame + 50);
    EXPECT_FALSE(fs::exists(File(frame + 50))) << "playing writes nothing";
    EXPECT_FALSE(played.smoke.Has(FLAG_CACHED)) << "the mark ends with the frame";
    return v;
  };
  const auto set = [](std::initializer_list<std::pair<i32, i32>> values) {
    return [values = std::vector<std::pair<i32, i32>>(values)](GridCacher& cacher) {
      for (const auto& [id, v] : values) CacheScene::Set(cacher, id, v);
    };
  };
  EXPECT_EQ(shown(2, set({})), 2);
  EXPECT_EQ(shown(2, set({{1007, 3}})), 5);
  EXPECT_EQ(shown(2, set({{1006, 4}})), 4);
  EXPECT_EQ(shown(2, set({{1014, 1}})), 3) << "backwards from the last file";
  {
    // What goes back moves back; fields that no one moves by stay as they are.
    CacheScene played(folder.Path(), 0);
    set({{1014, 1}})(played.cacher);
    played.Load(2);
    for (i32 c = 0; c < 3; ++c) {
      EXPECT_EQ((*played.solver.mFlow.mVelocity.GetGrid(c))[7], -3);
      EXPECT_EQ((*played.colour.GetGrid(c))[7], 3);
    }
  }
  EXPECT_EQ(shown(9, set({})), -1) << "no file";
  EXPECT_EQ(shown(2, set({{1000, 1}})), -1) << "only for pictures";

  // A window that is closed leaves the objects to themselves.
  CacheScene played(folder.Path(), 0);
  auto& window = played.Add<Duration>("duration", "window");
  CacheScene::Set(window, 1001, 10.0);
  CacheScene::Link(played.cacher, 1018, window);
  played.Load(2);
  EXPECT_FALSE(played.smoke.Has(FLAG_CACHED));
  played.scene->mTime.elapsed = 11;
  played.Load(2);
  EXPECT_TRUE(played.smoke.Has(FLAG_CACHED));
}

TEST_F(GridCache, WhatGoesOnWithARecordingFindsItsOwnNumbers) {
  constexpr i32 kFirst = 10, kNumbering = 1011;
  CacheScene both(folder.Path(), cache_row::kBoth);
  CacheScene::Set(both.cacher, kNumbering, 1);
  both.scene->mClock.startFrame = kFirst;
  both.Fill({0, 0, 0}, {0.5, 0.5, 0.5}, [](const Vec3d&) { return 12.0; });
  both.Save(12);
  ASSERT_TRUE(fs::exists(File(12))) << both.cacher.Failure();
  both.Fill({0, 0, 0}, {0.5, 0.5, 0.5}, [](const Vec3d&) { return 1.0; });
  both.Load(12);
  EXPECT_EQ((*both.smoke.GetGrid(0))[0], 12);
}

TEST_F(GridCache, RecorderLeavesWhatAnotherCachePlays) {
  CacheScene recorded(folder.Path(), 1), played(folder.Path(), 0);
  recorded.FillWithNoise();
  recorded.Save(0);
  auto& second = played.Add<GridCacher>("cache", "second");
  CacheScene::Set(second, 1001, 1);
  CacheScene::Links(second, 1012, {&played.smoke});
  played.SetFrame(0);
  played.scene->LoadCaches();
  EXPECT_TRUE(played.smoke.Has(FLAG_CACHED));
  played.scene->SaveCaches();
  EXPECT_FALSE(played.smoke.Has(FLAG_CACHED)) << "the mark ends with the frame";
}

TEST_F(GridCache, FileThatIsPlayedStaysAsItIs) {
  CacheScene recorded(folder.Path(), 1), both(folder.Path(), 2, 0.03);
  recorded.FillWithNoise();
  recorded.Save(0);
  const std::string bytes = host::ReadFile(File(0));
  both.Load(0);
  ASSERT_TRUE(both.smoke.Has(FLAG_CACHED));
  both.Save(0);
  EXPECT_EQ(host::ReadFile(File(0)), bytes) << "finer samples of it are none of their own";
  both.Load(1);
  both.Save(1);
  EXPECT_TRUE(fs::exists(File(1)));
  // What the file lacks is recorded.
  both.empty.ApplyBounds({0, 0, 0}, {0.3, 0.3, 0.3});
  both.Load(0);
  both.Save(0);
  EXPECT_NE(host::ReadFile(File(0)), bytes);
}

TEST_F(GridCache, DataStayInAllStepsOfAFrame) {
  CacheScene recorded(folder.Path(), 1), played(folder.Path(), 0);
  recorded.FillWithNoise();
  recorded.Save(0);
  CacheScene::Set(played.smoke, 1001, 1);  // cleared in every step
  played.smoke.ReadParameters();
  played.Load(0);
  Vec3d min{1e9, 1e9, 1e9}, max{-1e9, -1e9, -1e9};
  played.smoke.ExpandBounds(min, max);
  played.smoke.ApplyBounds(min, max);
  ExpectSame(*recorded.smoke.GetGrid(0), *played.smoke.GetGrid(0));
}

TEST_F(GridCache, RunThatGoesOnDropsWhatItRecordedLaterAndNothingElse) {
  const auto file = [&](const char* number) {
    return folder.Path() / (std::string("sulva_grid_frame") + number + ".cache");
  };
  CacheScene run(folder.Path(), 2);
  CacheScene::Set(run.cacher, 1021, 6);
  run.FillWithNoise();
  fs::copy(folder.Write("old", "an older run's"), file("000013"));
  fs::copy(folder.Path() / "old", file("000014").string() + ".1-0.sulva-part");
  fs::copy(folder.Path() / "old", folder.Path() / "film.sulva-part");
  run.SetFrame(2);
  run.cacher.DropLaterFrames();
  EXPECT_TRUE(fs::exists(file("000013"))) << "nothing was recorded yet";
  EXPECT_FALSE(fs::exists(file("000014").string() + ".1-0.sulva-part"));
  EXPECT_TRUE(fs::exists(folder.Path() / "film.sulva-part")) << "another's";
  run.Load(0);
  for (const i32 frame : {0, 2, 12}) run.Save(frame);
  run.SetFrame(2);
  run.cacher.DropLaterFrames();
  EXPECT_FALSE(fs::exists(file("000012")));
  for (const char* number : {"000000", "000002", "000013"}) EXPECT_TRUE(fs::exists(file(number)));
}

TEST_F(GridCache, FrameThatWasCutShortIsNotRecorded) {
  CacheScene recorded(folder.Path(), 1);
  recorded.FillWithNoise();
  recorded.scene->mReport.whole = false;
  recorded.Save(0);
  EXPECT_FALSE(fs::exists(File(0)));
}

TEST_F(GridCache, FailedWriteIsKeptInMindAndTheOldFileStays) {
  CacheScene recorded(folder.Path(), 1);
  recorded.FillWithNoise();
  recorded.Save(0);
  const std::string old = host::ReadFile(File(0));
  recorded.Fill({0, 0, 0}, {0.5, 0.5, 0.5}, [](const Vec3d&) { return 1.0; });
  {
    const host::FileLimit full(1000);
    recorded.Save(0);
  }
  EXPECT_NE(recorded.cacher.Failure().find("File too large"), std::string::npos);
  EXPECT_NE(recorded.cacher.Failure().find(File(0).string()), std::string::npos);
  EXPECT_EQ(host::ReadFile(File(0)), old);

  std::ofstream(folder.Path() / "file") << "in the way";
  CacheScene going(folder.Path() / "file" / "cache", 1);
  CacheScene::Set(going.cacher, 1030, 1);
  going.FillWithNoise();
  going.Save(0);
  EXPECT_EQ(going.cacher.Failure(), "");
  ASSERT_EQ(going.cacher.Warnings().size(), 1u);
  EXPECT_NE(going.cacher.Warnings()[0].find("cannot make the folder"), std::string::npos);
}

TEST_F(GridCache, DamagedAndForeignFilesAreFailures) {
  CacheScene recorded(folder.Path(), 1);
  CacheScene::Set(recorded.cacher, 1009, 1);
  recorded.Fill({0, 0, 0}, {0.3, 0.3, 0.3}, [](const Vec3d& p) { return p.x; });
  recorded.Save(0);
  const std::string whole = host::ReadFile(File(0));
  const auto play = [&](const std::string& bytes) {
    std::ofstream(File(0), std::ios::binary) << bytes;
    CacheScene played(folder.Path(), 0);
    played.Load(0);
    EXPECT_FALSE(played.smoke.Has(FLAG_CACHED));
    return played.cacher.Failure();
  };
  for (std::size_t length = 0; length < whole.size(); length += 1 + length / 8)
    EXPECT_NE(play(whole.substr(0, length)).find(File(0).string()), std::string::npos);
  for (std::size_t at = 0; at < whole.size(); at += 1 + at / 8) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    EXPECT_NE(play(damaged), "") << at;
  }

  // A list that is out of step with the file.
  // Where the scene says so, a run goes on, and a cache that records too leaves them alone.
  const std::string cut = whole.substr(0, whole.size() / 2);
  std::ofstream(File(0), std::ios::binary) << cut;
  CacheScene both(folder.Path(), 2);
  CacheScene::Set(both.cacher, 1030, 1);
  both.FillWithNoise();
  both.Load(0);
  EXPECT_EQ(both.cacher.Failure(), "");
  ASSERT_EQ(both.cacher.Warnings().size(), 1u);
  both.Save(0);
  EXPECT_EQ(host::ReadFile(File(0)), cut);
}

TEST_F(GridCache, ObjectsFindTheirDataByName) {
  CacheScene recorded(folder.Path(), 1);
  recorded.FillWithNoise();
  recorded.Save(0);
  const auto play = [&](std::initializer_list<const iBase*> list, CacheScene& played) {
    CacheScene::Links(played.cacher, 1012, list);
    played.Load(0);
  };
  CacheScene other(folder.Path(), 0);
  play({&other.colour, &other.smoke, &other.solver}, other);
  for (std::size_t i = 0; i < other.Grids().size(); ++i)
    ExpectSame(*recorded.Grids()[i], *other.Grids()[i]);
  EXPECT_TRUE(other.cacher.Warnings().empty());

  // What has another name takes what stands at its place, if nothing else does.
  CacheScene renamed(folder.Path(), 0);
  renamed.colour.mName = "tint";
  play({&renamed.solver, &renamed.empty, &renamed.smoke, &renamed.colour}, renamed);
  ExpectSame(*recorded.colour.GetGrid(0), *renamed.colour.GetGrid(0));
  ASSERT_EQ(renamed.cacher.Warnings().size(), 1u);
  EXPECT_NE(renamed.cacher.Warnings()[0].find("no \"tint\"; it plays \"colour\""),
            std::string::npos)
      << renamed.cacher.Warnings()[0];
  EXPECT_EQ(renamed.cacher.TakeWarnings().size(), 1u);
  renamed.Load(0);
  EXPECT_TRUE(renamed.cacher.TakeWarnings().empty()) << "told once";
  CacheScene wrong(folder.Path(), 0);
  wrong.smoke.mName = "fog";
  play({&wrong.smoke, &wrong.colour}, wrong);
  EXPECT_EQ(wrong.smoke.GetGrid(0), nullptr) << "velocity doesn't go into a scalar";
  EXPECT_EQ(wrong.cacher.Warnings().size(), 2u);
}

TEST_F(GridCache, FramesOfTwoSimulationsAreNotMixed) {
  const auto record = [&](i32 frame, u64 simulation) {
    CacheScene recorded(folder.Path(), 1);
    recorded.cacher.SetRun({.simulation = simulation});
    recorded.FillWithNoise();
    recorded.Save(frame);
  };
  record(0, 7);
  record(1, 8);
  CacheScene played(folder.Path(), 0);
  played.Load(0);
  EXPECT_EQ(played.cacher.Failure(), "") << "the recording may be another scene's";
  played.Load(1);
  EXPECT_NE(played.cacher.Failure().find("another simulation recorded it than the frames before"),
            std::string::npos)
      << played.cacher.Failure();
  EXPECT_FALSE(played.smoke.Has(FLAG_CACHED));

  CacheScene both(folder.Path(), 2);
  both.cacher.SetRun({.simulation = 8});
  both.Load(1);
  EXPECT_EQ(both.cacher.Failure(), "");
  both.Load(0);
  EXPECT_NE(both.cacher.Failure().find("can't go on with it"), std::string::npos);
  both.SetFrame(5);
  both.Save(5);
  EXPECT_FALSE(fs::exists(File(5))) << "nothing is recorded behind a failure";
}

TEST_F(GridCache, WhatARecordingLacksIsAFailureBeforeItsFirstFileToo) {
  CacheScene recorded(folder.Path(), 1);
  recorded.FillWithNoise();
  for (const i32 frame : {1, 2, 4}) recorded.Save(frame);
  const auto failure = [&](i32 frame, i32 mode) {
    CacheScene played(folder.Path(), mode);
    played.Load(frame);
    return played.cacher.Failure();
  };
  EXPECT_EQ(failure(1, 0), "");
  for (const i32 frame : {0, 3, 5})
    EXPECT_NE(failure(frame, 0).find("the recording has frames 1 to 4"), std::string::npos);
  EXPECT_EQ(failure(3, 2), "") << "it is going to be recorded";
  CacheScene picture(folder.Path(), 0);
  picture.cacher.SetRun({.mayRecord = false, .firstPlayed = 4, .lastPlayed = 4});
  picture.Load(3);
  EXPECT_EQ(picture.cacher.Failure(), "") << "nobody needs that frame";
}

TEST_F(GridCache, CommandsCountAndDeleteItsFiles) {
  CacheScene recorded(folder.Path(), 1);
  recorded.Fill({0, 0, 0}, {0.3, 0.4, 0.5}, [](const Vec3d& p) { return p.x; });
  for (const i32 frame : {1, 2, 4}) recorded.Save(frame);
  folder.Write("sulva_grid_frame_old00001.cache", "another's");
  recorded.SetFrame(2);
  recorded.cacher.UpdateStatistics();
  EXPECT_EQ(recorded.cacher.FileStatistics(),
            "Grids: 3\nMax. cell count: 80\nGrid Type (1): Velocity U\nGrid Type (2): Fuel\n"
            "Grid Type (3): Custom\n");
  const std::string text = recorded.cacher.mInterface.GetString(1015, "");
  EXPECT_NE(text.find("Length: 4(1 - 4)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Missing Frames: 2\n"), std::string::npos) << text;
  recorded.cacher.DeleteCacheFiles();
  EXPECT_FALSE(fs::exists(File(1)) || fs::exists(File(2)) || fs::exists(File(4)));
  EXPECT_TRUE(fs::exists(folder.Path() / "sulva_grid_frame_old00001.cache"));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
