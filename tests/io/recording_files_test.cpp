// What caches have recorded of particles, as tables.
#include "io/recording_files.h"

#include <gtest/gtest.h>

#include "cache/particle_cache_file.h"
#include "fluids/particles/particle.h"
#include "host/file_error.h"
#include "host/memory_budget.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::app {
namespace {

using namespace MELDO_SULVA;

constexpr i32 kMine = property_id::kFirstUser + 3;

/// A store in which every third particle lacks an age, and none or all have more than that.
void Fill(ParticleStore& store, const GridLayout& domain, i32 count, bool hasMore) {
  store.Reset(domain);
  for (i32 i = 0; i < count; ++i) {
    ParticleTemplate particle;
    particle.position = {0.5 * i, 1, -2};
    particle.velocity = {1, 0.25 * i, 0};
    if (i % 3 != 0) particle.Set(property_id::kAge, 4.0 + i);
    if (hasMore) {
      particle.Set(kMine, i % 2 == 1, "wet through");
      particle.Set(property_id::kColor, Vec3d{1, 0.5, 0.125 * i});
    }
    store.Create(particle);
  }
  store.UpdateBounds(1);
}

TEST(RecordedParticles, AreTheColumnsOfAllStoresWhateverTheirPacking) {
  const host::TempFolder folder;
  const auto path = folder.Path() / "x.cache";
  GridLayout domain;
  domain.Set({1, 1, 1}, {100, 100, 100}, 0.25f, {});
  ParticleStore water, none, foam;
  Fill(water, domain, 70, false);
  Fill(none, domain, 0, false);
  Fill(foam, domain, 130, true);
  foam.At(3).AddLink({1, 2});
  for (const i32 compression : {0, 1, 2}) {
    SCOPED_TRACE(compression);
    HyperFile file;
    ASSERT_TRUE(file.Open(kCacheIdent, path, HyperFile::Mode::kWrite));
    const ParticleSource sources[] = {{&water, &water}, {&none, &none}, {&foam, &foam}};
    WriteParticleCache(file, domain, sources, {}, false, {compression, 1});
    CacheOrigin origin;
    origin.objects = {{"water (liquid)", "m"}, {"none", "m"}, {"foam (diffuse)", "m"}};
    WriteOrigin(file, origin);
    ASSERT_TRUE(file.Close()) << file.Error();

    const exchange::ParticleTable table = ReadRecordedParticles(path);
    ASSERT_EQ(table.Count(), 200);
    std::string names;
    for (const exchange::ParticleColumn& column : table.Columns()) names += column.name + " ";
    EXPECT_EQ(names, "position velocity id group age color wet_through ");
    const exchange::ParticleColumn& groups = *table.Find("group", 1);
    EXPECT_EQ(groups.words[2], "foam (diffuse)");
    bool isSame = true;
    for (i64 row = 0; row < 200; ++row) {
      const bool isFoam = row >= 70;
      const ParticleStore& store = isFoam ? foam : water;
      const i32 i = static_cast<i32>(isFoam ? row - 70 : row);
      const auto at = [&](const char* name, int c = 0) { return table.Find(name)->At(row, c); };
      isSame = isSame && groups.At(row) == (isFoam ? 2 : 0) && at("id") == store.Ids()[i] &&
               at("position") == 0.5 * i && at("position", 2) == -2 &&
               at("velocity", 1) == 0.25 * i && at("age") == (i % 3 != 0 ? 4.0 + i : 0) &&
               at("color", 2) == (isFoam ? 0.125 * i : 0) &&
               at("wet_through") == (isFoam && i % 2 == 1);
    }
    EXPECT_TRUE(isSame);

    host::SetMemoryLimit(host::MemoryInUse() + 15'000);
    try {
      ReadRecordedParticles(path);
      ADD_FAILURE() << "more memory than there is";
    } catch (const host::FileError& error) {
      EXPECT_NE(std::string(error.what()).find("x.cache: it doesn't fit into memory"),
                std::string::npos)
          << error.what();
    }
    host::SetMemoryLimit(0);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
