// Particles that go through a cache.
#include "cache/particle_cacher.h"

#include <gtest/gtest.h>

#include <random>

#include "cache/particle_exchange.h"
#include "cacher_scene.h"
#include "host/atomic_file.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

namespace fs = std::filesystem;

/// Lets through what lies on one side of a plane.
class HalfSpace : public Constraint {
 public:
  using Constraint::Constraint;
  i32 GetTypeId() const override { return kTypeAny; }
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    if (p.x < 0) weight = 0;
    return true;
  }
};

/// A scene with two groups, a property of the user's, and a cache of the groups.
struct ParticleScene : CacherScene<ParticleCacher> {
  ParticleGroup& water = Add<ParticleGroup>("particlegroup", "water");
  ParticleGroup& foam = Add<ParticleGroup>("particlegroup", "foam");
  Property<double>& salt = Add<Property<double>>("property_scalar", "salt");
  std::vector<host::LinkTarget> filters;

  ParticleScene(const fs::path& folder, i32 mode, double cellSize = 0.1, double hostUnits = 100)
      : CacherScene("cache_particle", folder, mode, cellSize) {
    scene->UpdateDomain(hostUnits, 1, cellSize);
    Set(salt, iProperty::kPropertyRow, 80);
    salt.ReadParameters();
    Links(cacher, cache_row::kObjects, {&water, &foam});
    for (ParticleGroup* group : {&water, &foam}) group->Reset();
  }

  void Fill(i32 count) {
    using enum property_id::Id;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(-1, 1);
    const auto vector = [&] { return Vec3d{unit(random), unit(random), unit(random)}; };
    for (i32 i = 0; i < count; ++i) {
      ParticleTemplate particle;
      particle.position = vector();
      particle.velocity = vector();
      particle.Set(kRadius, unit(random));
      particle.Set(kSlopeU, vector());
      if (i % 3 == 0) particle.Set(kColor, vector());
      if (i % 5 == 0) particle.Set(salt.Key(), unit(random), "salt");
      if (i % 7 == 0) particle.Set(60, i % 2 == 0);
      water.Store(kLiquid).Create(particle);
      if (i % 2 == 0) foam.Store(kDiffuse).Create(particle);
    }
    water.Store(kLiquid).At(0).AddLink({0.5f, 3});
    water.Store(kLiquid).At(count - 1).AddLink({0.25f, 0});
    water.UpdateRange();
    foam.UpdateRange();
  }

  void Load(i32 frame) {
    BeginLoad(frame);
    Stage(cacher, kEmitters);
    cacher.Finish();
  }
  void ListKind(const iBase& group, u32 flags) {
    host::InExcludeData list;
    list.entries.push_back({group.Node()->Id(), flags});
    cacher.Node()->Set(cache_row::kObjects, std::move(list));
  }

 protected:
  void ConnectMore() override { cacher.Constraints()->Connect(filters); }
};

template <class T>
void ExpectSameColumns(const ParticleColumns& a, const ParticleColumns& b) {
  std::size_t kept = 0;
  for (const auto& column : a.List<T>()) {
    if (!IsDeclaredProperty(column->Key().id)) continue;
    ++kept;
    const PropertyColumn<T>* other = b.Find<T>(column->Key());
    ASSERT_TRUE(other) << column->Name();
    EXPECT_EQ(other->Name(), column->Name());
    for (i32 row = 0; row < a.Count(); ++row) {
      ASSERT_EQ(other->Has(row), column->Has(row)) << column->Name();
      ASSERT_EQ(other->Get(row, T{}), column->Get(row, T{})) << column->Name();
    }
  }
  EXPECT_EQ(b.List<T>().size(), kept);
}

void ExpectSame(const ParticleColumns& a, const ParticleColumns& b) {
  ASSERT_EQ(a.Count(), b.Count());
  const auto equal = [](auto x, auto y) { return std::equal(x.begin(), x.end(), y.begin()); };
  EXPECT_TRUE(equal(a.Ids(), b.Ids()));
  EXPECT_TRUE(equal(a.Flags(), b.Flags()));
  EXPECT_TRUE(equal(a.Positions(), b.Positions()));
  EXPECT_TRUE(equal(a.Velocities(), b.Velocities()));
  ExpectSameColumns<double>(a, b);
  ExpectSameColumns<Vec3d>(a, b);
  ExpectSameColumns<bool>(a, b);
  for (i32 row = 0; row < a.Count(); ++row) {
    ASSERT_EQ(a.LinksOf(row).size(), b.LinksOf(row).size());
    for (std::size_t i = 0; i < a.LinksOf(row).size(); ++i)
      EXPECT_EQ(a.LinksOf(row)[i].other, b.LinksOf(row)[i].other);
  }
}

class ParticleCache : public testing::Test {
 protected:
  fs::path File(i32 frame, const char* suffix = "cache") const {
    return folder.Path() / ("sulva_particle_frame0000" + std::to_string(frame) + "." + suffix);
  }
  const host::TempFolder folder;
};

TEST_F(ParticleCache, RecordedParticlesComeBackBitForBit) {
  for (const i32 compression : {0, 1, 2}) {
    ParticleScene recorded(folder.Path(), cache_row::kRecord);
    ParticleScene::Set(recorded.cacher, cache_row::kCompression, compression);
    recorded.Fill(1000);
    recorded.Save(1);
    const std::string bytes = host::ReadFile(File(1));
    recorded.scene->mThreadCount = 3;
    recorded.Save(1);
    EXPECT_EQ(host::ReadFile(File(1)), bytes) << "the same for any number of workers";

    ParticleScene played(folder.Path(), cache_row::kPlayBack);
    played.scene->mThreadCount = 3;
    played.Fill(2000);  // more than are recorded
    played.Load(1);
    EXPECT_EQ(played.cacher.Failure(), "");
    ExpectSame(recorded.water.Store(kLiquid), played.water.Store(kLiquid));
    ExpectSame(recorded.foam.Store(kDiffuse), played.foam.Store(kDiffuse));
    EXPECT_TRUE(played.water.IsCached(kLiquid) && played.foam.IsCached(kDiffuse));
    EXPECT_EQ(played.water.Store(kLiquid).GetBounds().box.min,
              recorded.water.Store(kLiquid).GetBounds().box.min);
    EXPECT_EQ(played.water.Store(kLiquid).Create({}), 1000);
    EXPECT_EQ(played.water.Store(kLiquid).Ids()[1000], 2000) << "no id comes twice";
    played.Load(2);
    EXPECT_FALSE(played.water.IsCached(kLiquid)) << "no file";
  }
}

TEST_F(ParticleCache, ListsOfKindsAndPropertiesChooseWhatIsKept) {
  ParticleScene recorded(folder.Path(), cache_row::kRecord);
  recorded.Fill(100);
  recorded.water.Store(kPassive).Create({});
  recorded.ListKind(recorded.water, kParticleKindRows[kLiquid].listFlag);
  ParticleScene::Links(recorded.cacher, cache_row::kProperties, {&recorded.salt});
  recorded.Save(1);
  ParticleScene played(folder.Path(), cache_row::kPlayBack);
  played.water.Store(kPassive).Create({});
  played.water.Store(kPassive).Create({});
  played.ListKind(played.water, kParticleKindRows[kLiquid].listFlag);
  played.Load(1);
  EXPECT_EQ(played.water.Count(kPassive), 2) << "another kind stays as it is";
  EXPECT_FALSE(played.water.IsCached(kPassive));
  ParticleStore& store = played.water.Store(kLiquid);
  ASSERT_EQ(store.Count(), 100);
  EXPECT_EQ(store.Find<double>(property_id::kRadius), nullptr);
  ASSERT_TRUE(store.Find<double>(played.salt.Key())) << "its owner is its node";
  EXPECT_EQ(store.At(5).GetScalar(played.salt.Key(), -9),
            recorded.water.Store(kLiquid).At(5).GetScalar(recorded.salt.Key(), -8));
}

TEST_F(ParticleCache, FiltersRefuseOnBothWaysAndLoseNothingBehind) {
  const auto half = [](ParticleScene& scene) {
    HalfSpace& own = scene.AddOwn<HalfSpace>("kernel", "half");
    own.ReadParameters();
    scene.filters = {{own.Node(), &own, 0}};
  };
  const auto right = [](const ParticleColumns& all) {
    std::vector<i32> ids;
    for (i32 row = 0; row < all.Count(); ++row)
      if (all.Positions()[row].x >= 0) ids.push_back(all.Ids()[row]);
    return ids;
  };
  for (const bool onWriting : {true, false}) {
    ParticleScene recorded(folder.Path(), cache_row::kRecord);
    ParticleScene played(folder.Path(), cache_row::kPlayBack);
    recorded.Fill(300);
    half(onWriting ? recorded : played);
    recorded.Save(1);
    EXPECT_EQ(recorded.water.Count(kLiquid), 300) << "what is simulated stays";
    HyperFile file;
    ParticleCacheHeader header;
    std::string problem;
    ASSERT_TRUE(file.Open(kCacheIdent, File(1), HyperFile::Mode::kRead));
    ASSERT_TRUE(ReadParticleCacheHeader(file, header, problem)) << problem;
    const auto ids = right(recorded.water.Store(kLiquid));
    EXPECT_EQ(header.stores[2].Count(), onWriting ? static_cast<i64>(ids.size()) : 300);
    played.Load(1);
    const auto left = played.water.Store(kLiquid).Ids();
    EXPECT_EQ(std::vector<i32>(left.begin(), left.end()), ids);
    EXPECT_EQ(played.foam.Count(kDiffuse),
              static_cast<i32>(right(recorded.foam.Store(kDiffuse)).size()));
  }
}

class SlowMotion : public ParticleCache, public testing::WithParamInterface<i32> {};

/// The native format and some of other tools: of numbers, of text, and of columns.
INSTANTIATE_TEST_SUITE_P(Formats, SlowMotion, testing::Values(21, 2, 6, 11));

TEST_P(SlowMotion, PutsParticlesBetweenTheirPlaces) {
  constexpr i32 kLast = 8;
  const bool isNative = GetParam() == cache_row::kParticles;
  const double near = isNative ? 1e-12 : 1e-5;
  const auto place = [](i32 id, double t) { return Vec3d{0.1 * id, 0.3 * t, 1 - 0.01 * id * t}; };
  const auto velocity = [](i32 id) { return Vec3d{0, 0.3, -0.01 * id}; };  // a frame
  const auto choose = [&](ParticleScene& scene) {
    ParticleScene::Set(scene.cacher, cache_row::kFormat, GetParam());
    scene.ListKind(scene.water, kParticleKindRows[kLiquid].listFlag);
  };
  {
    ParticleScene recorded(folder.Path(), cache_row::kRecord);
    choose(recorded);
    ParticleStore& store = recorded.water.Store(kLiquid);
    for (i32 id = 0; id < 50; ++id) store.Create({});
    for (i32 frame = 0; frame <= kLast; ++frame) {
      if (frame > 0) {
        // One dies, whose row another one takes, and one is born that knows where it comes from.
        store.Flags()[frame] &= static_cast<u16>(~PF_ALIVE);
        store.RemoveDead(false);
        store.Create({});
      }
      for (i32 row = 0; row < store.Count(); ++row) {
        store.Positions()[row] = place(store.Ids()[row], frame);
        store.Velocities()[row] = velocity(store.Ids()[row]);
      }
      const Particle born = store.At(store.Count() - 1);
      born.AddVector(property_id::kOldPosition, place(born.Id(), frame - 1));
      recorded.Save(frame);
    }
  }
  ParticleScene played(folder.Path(), cache_row::kPlayBack);
  choose(played);
  const auto check = [&](double t, double rate) {
    const ParticleStore& store = played.water.Store(kLiquid);
    ASSERT_EQ(store.Count(), 50) << t;
    for (i32 row = 0; row < store.Count(); ++row) {
      const i32 id = store.Ids()[row];
      EXPECT_LT(Length(store.Positions()[row] - place(id, t)), near) << t;
      EXPECT_LT(Length(store.Velocities()[row] - velocity(id) * rate), near) << t;
    }
    // The newest one alone was told anew where it comes from.
    const i32 newest = 49 + static_cast<i32>(std::ceil(t));
    const PropertyColumn<Vec3d>* starts = store.Find<Vec3d>(property_id::kOldPosition);
    for (i32 row = 0; starts && row < store.Count(); ++row) {
      if (store.Ids()[row] != newest || newest == 49) continue;
      EXPECT_LT(Length(Vec3d(starts->Values()[row]) - place(newest, t - rate)), near) << t;
    }
  };
  ParticleScene::Set(played.cacher, cache_row::kTimeScale, 0.1);
  for (const i32 frame : {0, 1, 5, 9, 10, 13, 30, 71, 80}) {
    played.Load(frame);
    ASSERT_EQ(played.cacher.Failure(), "");
    check(0.1 * frame, 0.1);
  }
  ParticleScene::Set(played.cacher, cache_row::kTimeScale, 0.25);
  ParticleScene::Set(played.cacher, cache_row::kBackwards, 1);
  ParticleScene::Set(played.cacher, cache_row::kFrameOffset, 2);
  for (const i32 frame : {0, 1, 2, 3, 4}) {
    played.Load(frame);
    check(kLast - 2 - 0.25 * frame, -0.25);
  }
  EXPECT_TRUE(played.cacher.Warnings().empty()) << played.cacher.Warnings().front();
}

TEST_F(ParticleCache, FilesWithoutIdsSayThatTheyJump) {
  constexpr i32 kXyz = 14;
  ParticleScene recorded(folder.Path(), cache_row::kRecord),
      played(folder.Path(), cache_row::kPlayBack);
  for (ParticleScene* scene : {&recorded, &played})
    ParticleScene::Set(scene->cacher, cache_row::kFormat, kXyz);
  recorded.Fill(10);
  for (const i32 frame : {0, 1}) recorded.Save(frame);
  ParticleScene::Set(played.cacher, cache_row::kTimeScale, 0.5);
  played.Load(1);
  ASSERT_EQ(played.cacher.Warnings().size(), 1u);
  EXPECT_NE(played.cacher.Warnings()[0].find("no column 'id' tells the particles"),
            std::string::npos);
}

TEST_F(ParticleCache, WhatIsPlayedIsNotRecordedOver) {
  constexpr i32 kBgeo = 2;
  for (const i32 format : {i32{cache_row::kParticles}, kBgeo}) {
    const char* suffix = format == kBgeo ? "bgeo" : "cache";
    ParticleScene recorded(folder.Path(), cache_row::kRecord),
        both(folder.Path(), cache_row::kBoth);
    for (ParticleScene* scene : {&recorded, &both}) {
      ParticleScene::Set(scene->cacher, cache_row::kFormat, format);
      scene->ListKind(scene->water, kParticleKindRows[kLiquid].listFlag);
    }
    recorded.Fill(10);
    for (const i32 frame : {0, 1}) {
      recorded.water.Store(kLiquid).Positions()[0].x += 1;
      recorded.Save(frame);
    }
    const std::string zero = host::ReadFile(File(0, suffix)), one = host::ReadFile(File(1, suffix));
    const auto play = [&](i32 frame) {
      both.Load(frame);
      both.water.Store(kLiquid).Positions()[0].y += 1;
      both.Save(frame);
    };
    play(1);
    EXPECT_EQ(both.cacher.TakeWritten().size(), 1u) << "it stands for the frame";
    ParticleScene::Set(both.cacher, cache_row::kBackwards, 1);
    play(0);
    play(1);
    EXPECT_TRUE(host::ReadFile(File(0, suffix)) == zero);
    EXPECT_TRUE(host::ReadFile(File(1, suffix)) == one);
    ParticleScene::Set(both.cacher, cache_row::kBackwards, 0);
    play(2);
    EXPECT_TRUE(fs::exists(File(2, suffix)));
    fs::remove(File(2, suffix));
  }
}

TEST_F(ParticleCache, TellsWhyAFrameShowsNothing) {
  ParticleScene recorded(folder.Path(), cache_row::kRecord);
  recorded.Fill(10);
  for (const i32 frame : {0, 1, 3, 5}) recorded.Save(frame);
  ParticleScene played(folder.Path(), cache_row::kPlayBack);
  played.Load(2);
  EXPECT_NE(played.cacher.Failure().find("the recording has frames 0 to 5 without 2, 4;"),
            std::string::npos)
      << played.cacher.Failure();
  ParticleScene late(folder.Path(), cache_row::kPlayBack);
  ParticleScene::Set(late.cacher, cache_row::kFrameOffset, -2);
  late.Load(1);
  EXPECT_EQ(late.cacher.Failure(), "");
  ASSERT_EQ(late.cacher.Warnings().size(), 1u);
  EXPECT_EQ(late.cacher.Warnings()[0],
            "'frame_offset' -2 lets the recording start late: before, it shows nothing");
}

TEST_F(ParticleCache, MovesAndScalesWithTheScene) {
  ParticleScene recorded(folder.Path(), cache_row::kRecord);
  recorded.Fill(20);
  recorded.Save(1);
  ParticleScene played(folder.Path(), cache_row::kPlayBack, 0.05, 50);
  played.cacher.Node()->SetPlacement({100, 0, -50}, {}, {1, 1, 1});
  played.Load(1);
  const ParticleStore &from = recorded.water.Store(kLiquid), &to = played.water.Store(kLiquid);
  ASSERT_EQ(to.Count(), 20);
  for (i32 row = 0; row < 20; ++row) {
    EXPECT_LT(Length(to.Positions()[row] - (from.Positions()[row] * 2.0 + Vec3d{2, 0, -1})), 1e-6);
    EXPECT_LT(Length(to.Velocities()[row] - from.Velocities()[row] * 2.0), 1e-6);
    EXPECT_NEAR(to.Find<double>(property_id::kRadius)->Get(row, 0),
                2 * from.Find<double>(property_id::kRadius)->Get(row, 0), 1e-6);
  }
}

TEST_F(ParticleCache, PlainFilesHaveNeitherVersionNorIds) {
  ParticleScene recorded(folder.Path(), cache_row::kRecord);
  ParticleScene::Set(recorded.cacher, cache_row::kFormat, i32{cache_row::kPlainParticles});
  recorded.Fill(30);
  recorded.Save(1);
  ParticleScene played(folder.Path(), cache_row::kPlayBack);
  ParticleScene::Set(played.cacher, cache_row::kFormat, i32{cache_row::kPlainParticles});
  played.Load(1);
  const ParticleStore& store = played.foam.Store(kDiffuse);
  ASSERT_EQ(store.Count(), 15);
  for (i32 row = 0; row < 15; ++row) EXPECT_EQ(store.Ids()[row], row);
  EXPECT_EQ(store.Positions()[7], recorded.foam.Store(kDiffuse).Positions()[7]);
  HyperFile file;
  ASSERT_TRUE(file.Open(kCacheIdent, File(1, "pcache"), HyperFile::Mode::kRead));
  EXPECT_FALSE(file.IsAtLong());
}

TEST_F(ParticleCache, FilesOfOtherToolsHoldAllGroupsInOneTable) {
  constexpr i32 kBgeo = 2;
  ParticleScene recorded(folder.Path(), cache_row::kRecord);
  ParticleScene::Set(recorded.cacher, cache_row::kFormat, kBgeo);
  recorded.Fill(100);
  recorded.water.Store(kLiquid).At(0).AddScalar(property_id::kTemperature, 300);
  recorded.Save(1);
  ASSERT_EQ(recorded.cacher.Failure(), "");
  EXPECT_EQ(recorded.cacher.DescribeFile(File(1, "bgeo")), "Particles: 150\n");
  EXPECT_EQ(recorded.cacher.TakeWritten().size(), 1u);

  ParticleScene played(folder.Path(), cache_row::kPlayBack);
  ParticleScene::Set(played.cacher, cache_row::kFormat, kBgeo);
  played.ListKind(played.water, kParticleKindRows[kLiquid].listFlag);
  played.Load(1);
  ASSERT_EQ(played.cacher.Failure(), "");
  EXPECT_FALSE(played.water.IsCached(kLiquid)) << "they go on as its own";
  ParticleStore& store = played.water.Store(kLiquid);
  ASSERT_EQ(store.Count(), 150);
  const ParticleStore &water = recorded.water.Store(kLiquid), &foam = recorded.foam.Store(kDiffuse);
  EXPECT_LT(Length(store.Positions()[70] - water.Positions()[70]), 1e-6);
  EXPECT_LT(Length(store.Positions()[120] - foam.Positions()[20]), 1e-6);
  EXPECT_LT(Length(store.Velocities()[120] - foam.Velocities()[20]), 1e-6);
  EXPECT_EQ(store.At(0).GetScalar(property_id::kTemperature, -1), 300);
  EXPECT_EQ(store.At(1).GetScalar(property_id::kTemperature, -1), 0) << "who had none";
  EXPECT_EQ(store.At(1).GetVector(property_id::kColor, {}), (Vec3d{1, 1, 1}));
  EXPECT_TRUE(store.Find<double>(played.salt.Key())) << "a property of the same name";
  EXPECT_TRUE(store.Flags()[149] & PF_KIND_LIQUID);
  played.Load(2);
  EXPECT_NE(played.cacher.Failure().find("it isn't there"), std::string::npos);
}

TEST_F(ParticleCache, FilesOfOtherToolsLeadEachKindToItsStore) {
  constexpr i32 kBgeo = 2, kGeo = 4, kPdb = 7;
  for (const i32 format : {kBgeo, kGeo, kPdb}) {
    ParticleScene recorded(folder.Path(), cache_row::kRecord),
        played(folder.Path(), cache_row::kPlayBack);
    for (ParticleScene* scene : {&recorded, &played})
      ParticleScene::Set(scene->cacher, cache_row::kFormat, format);
    recorded.Fill(100);
    recorded.water.Store(kPassive).Create({});
    recorded.Save(0);
    ParticleStore &water = recorded.water.Store(kLiquid), &foam = recorded.foam.Store(kDiffuse);
    for (ParticleStore* store : {&water, &foam, &recorded.water.Store(kPassive)})
      for (Vec3d& p : store->Positions()) p.x += 1;
    recorded.Save(1);
    ParticleScene::Set(played.cacher, cache_row::kTimeScale, 0.5);
    played.Load(1);
    ASSERT_EQ(played.cacher.Failure(), "");
    if (format == kPdb) {
      EXPECT_EQ(played.water.Count(kLiquid), 151) << "no words tell the groups apart";
      continue;
    }
    ASSERT_EQ(played.water.Count(kLiquid), 100);
    ASSERT_EQ(played.foam.Count(kDiffuse), 50);
    EXPECT_EQ(played.water.Count(kPassive), 1);
    EXPECT_EQ(played.foam.Count(kLiquid) + played.water.Count(kDiffuse), 0);
    // Both count their ids from 0.
    const Vec3d half{0.5, 0, 0};
    EXPECT_LT(Length(played.water.Store(kLiquid).Positions()[20] - (water.Positions()[20] - half)),
              1e-5);
    EXPECT_LT(Length(played.foam.Store(kDiffuse).Positions()[20] - (foam.Positions()[20] - half)),
              1e-5);
    EXPECT_EQ(played.foam.Store(kDiffuse).Ids()[20], 20);
    EXPECT_TRUE(played.foam.Store(kDiffuse).Flags()[20] & PF_KIND_DIFFUSE);
    EXPECT_TRUE(played.cacher.Warnings().empty()) << played.cacher.Warnings().front();
  }
}

TEST_F(ParticleCache, FilesOfOtherToolsThatFailLeaveNothingHalfTaken) {
  constexpr i32 kBgeo = 2, kGoOn = 1030;
  ParticleScene recorded(folder.Path(), cache_row::kRecord),
      played(folder.Path(), cache_row::kPlayBack), both(folder.Path(), cache_row::kBoth);
  for (ParticleScene* scene : {&recorded, &played, &both}) {
    ParticleScene::Set(scene->cacher, cache_row::kFormat, kBgeo);
    scene->ListKind(scene->water, kParticleKindRows[kLiquid].listFlag);
  }
  recorded.Fill(10);
  recorded.Save(0);
  recorded.Save(1);
  recorded.water.Store(kLiquid).Velocities()[3].y = std::numeric_limits<double>::quiet_NaN();
  recorded.Save(2);
  const std::string damaged = host::ReadFile(File(2, "bgeo"));

  played.Fill(20);
  played.Load(2);
  EXPECT_NE(played.cacher.Failure().find("isn't a number"), std::string::npos)
      << played.cacher.Failure();
  EXPECT_EQ(played.water.Count(kLiquid), 0);
  const ParticleBounds none;
  EXPECT_EQ(played.water.Store(kLiquid).GetBounds().box.min, none.box.min);

  ParticleScene::Set(both.cacher, kGoOn, true);
  both.Load(2);
  both.water.Store(kLiquid).Create({});
  both.Save(2);
  EXPECT_EQ(both.cacher.Failure(), "");
  EXPECT_TRUE(host::ReadFile(File(2, "bgeo")) == damaged) << "what can't be read is kept";
  both.Load(3);
  both.Save(3);
  EXPECT_TRUE(fs::exists(File(3, "bgeo"))) << "what isn't there is recorded";

  fs::resize_file(File(0, "bgeo"), 20);
  ParticleScene slow(folder.Path(), cache_row::kPlayBack);
  ParticleScene::Set(slow.cacher, cache_row::kFormat, kBgeo);
  ParticleScene::Set(slow.cacher, cache_row::kTimeScale, 0.5);
  slow.ListKind(slow.water, kParticleKindRows[kLiquid].listFlag);
  slow.Load(1);
  EXPECT_NE(slow.cacher.Failure(), "") << "the frame before is damaged";
  ASSERT_EQ(slow.water.Count(kLiquid), 10);
  EXPECT_LT(Length(slow.water.Store(kLiquid).Positions()[7] -
                   recorded.water.Store(kLiquid).Positions()[7]),
            1e-6);
}

TEST_F(ParticleCache, FilesOfOtherToolsKeepSwitchesAndTypesOfNames) {
  constexpr i32 kBgeo = 2, kPda = 6;
  for (const i32 format : {kBgeo, kPda}) {
    ParticleScene recorded(folder.Path(), cache_row::kRecord),
        played(folder.Path(), cache_row::kPlayBack);
    for (ParticleScene* scene : {&recorded, &played}) {
      ParticleScene::Set(scene->cacher, cache_row::kFormat, format);
      scene->ListKind(scene->water, kParticleKindRows[kLiquid].listFlag);
    }
    Property<bool>& told = recorded.Add<Property<bool>>("property_state", "wet");
    // Of the two that are called so the switch alone can take switches.
    Property<Vec3d>& other = played.Add<Property<Vec3d>>("property_vector", "wet");
    Property<bool>& wet = played.Add<Property<bool>>("property_state", "wet");
    ParticleScene::Set(told, iProperty::kPropertyRow, 81);
    ParticleScene::Set(other, iProperty::kPropertyRow, 82);
    ParticleScene::Set(wet, iProperty::kPropertyRow, 81);
    for (iProperty* property : {static_cast<iProperty*>(&told), static_cast<iProperty*>(&other),
                                static_cast<iProperty*>(&wet)})
      property->ReadParameters();
    ParticleStore& store = recorded.water.Store(kLiquid);
    store.Require<Vec3d>(property_id::kNormal);
    for (const bool isWet : {false, true, false}) {
      ParticleTemplate particle;
      particle.Set(told.Key(), isWet, "wet");
      store.Create(particle);
    }
    recorded.Save(1);
    played.Load(1);
    ASSERT_EQ(played.cacher.Failure(), "");
    ParticleStore& taken = played.water.Store(kLiquid);
    const PropertyColumn<bool>* column = taken.Find<bool>(wet.Key());
    ASSERT_TRUE(column) << format;
    for (i32 row = 0; row < 3; ++row) EXPECT_EQ(column->Get(row, row != 1), row == 1);
    EXPECT_FALSE(taken.Find<Vec3d>(other.Key()));
    EXPECT_FALSE(taken.Find<Vec3d>(property_id::kNormal)) << "which no particle has";
  }
}

TEST(ParticleExchange, StartsOfTheFrameStandInForOldPositions) {
  using exchange::ValueType;
  for (const bool isFirst : {false, true}) {
    exchange::ParticleTable table;
    table.SetCount(1);
    const auto add = [&](const char* name, double x) {
      std::get<std::vector<f64>>(table.Add(name, ValueType::F64, 3).values) = {x, 0, 0};
    };
    if (isFirst) add("frame_start", 2);
    add("position", 0);
    add("old_position", 1);
    if (!isFirst) add("frame_start", 2);
    table.Add("kernel_sum", ValueType::F64, 1);
    ParticleStore store;
    const auto none = [](std::string_view, PropertyType) { return std::optional<PropertyKey>(); };
    EXPECT_EQ(TakeTable(table, 0, none, store), (std::vector<std::string>{"kernel_sum"}))
        << "solvers keep that to themselves";
    EXPECT_EQ(store.At(0).GetVector(property_id::kOldPosition, {}), (Vec3d{2, 0, 0}));
  }
}

TEST_F(ParticleCache, NothingMovesBeforeTheRecordingBegins) {
  constexpr i32 kBgeo = 2;
  for (const i32 format : {i32{cache_row::kParticles}, kBgeo}) {
    ParticleScene recorded(folder.Path(), cache_row::kRecord),
        played(folder.Path(), cache_row::kPlayBack);
    for (ParticleScene* scene : {&recorded, &played}) {
      ParticleScene::Set(scene->cacher, cache_row::kFormat, format);
      scene->ListKind(scene->water, kParticleKindRows[kLiquid].listFlag);
    }
    ParticleTemplate particle;
    particle.position = {1, 0, 0};
    particle.Set(property_id::kOldPosition, Vec3d{});
    recorded.water.Store(kLiquid).Create(particle);
    recorded.Save(0);
    ParticleScene::Set(played.cacher, cache_row::kTimeScale, 0.5);
    ParticleScene::Set(played.cacher, cache_row::kFrameOffset, -1);
    played.Load(1);
    ASSERT_EQ(played.cacher.Failure(), "");
    ASSERT_EQ(played.water.Count(kLiquid), 1);
    EXPECT_NEAR(played.water.Store(kLiquid).Positions()[0].x, 1, 1e-6);
  }
}

TEST_F(ParticleCache, ListsOfOneKindFollowEachOther) {
  ParticleScene scene(folder.Path(), cache_row::kRecord);
  scene.Fill(40);
  const ParticleStore& store = scene.water.Store(kLiquid);
  HyperFile file;
  file.StartMemory(kCacheIdent);
  file.WriteLong(ParticleCacheHeader::kVersion);
  WriteLayout(file, scene.scene->mDomain);
  file.WriteLong(1);
  file.WriteBool(true);
  file.WriteLong(2);
  file.WriteLong(40);
  file.WriteLong(40);
  file.WriteChunkStart(1, 0);
  for (int i = 0; i < 6; ++i) file.WriteLong(0);
  for (int i = 0; i < 8; ++i) file.WriteLReal(0);
  WriteLayout(file, store.Layout());
  for (int list = 0; list < 2; ++list) WriteColumns(file, store, {}, true, {});
  file.WriteChunkEnd();
  HyperFile read;
  ASSERT_TRUE(read.OpenMemory(kCacheIdent, file.TakeBytes()));
  ParticleCacheHeader header;
  std::string problem;
  i32 id, level;
  ParticleColumns both;
  ASSERT_TRUE(ReadParticleCacheHeader(read, header, problem)) << problem;
  ASSERT_TRUE(read.ReadChunkStart(id, level));
  ASSERT_TRUE(ReadParticleChunk(read, header, 0, {}, 1, both));
  ASSERT_EQ(both.Count(), 80);
  EXPECT_EQ(both.Positions()[57], store.Positions()[17]);
  EXPECT_EQ(both.Ids()[57], 17);
  EXPECT_TRUE(both.Find<Vec3d>(property_id::kColor)->Has(43));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
