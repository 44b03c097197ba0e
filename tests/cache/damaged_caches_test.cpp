// Files of particles and meshes of which something is missing or wrong.
#include <gtest/gtest.h>

#include "cache/cache_contents.h"
#include "cache/mesh_cache_file.h"
#include "cache/particle_cache_file.h"
#include "fluids/particles/particle.h"
#include "grids/grid_memory.h"
#include "host/document.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr std::size_t kFrame = 32, kTrailer = 8;  ///< round the items of a file

std::string SmallParticles(i32 compression) {
  ParticleStore store;
  GridLayout unit;
  unit.Set({1, 1, 1}, {100, 100, 100}, 1, {});
  store.Reset(unit);
  for (i32 i = 0; i < 3; ++i) {
    ParticleTemplate particle;
    particle.position = {0.5 * i, 1, 2};
    if (i > 0) particle.Set(property_id::kAge, 4.0 + i);
    particle.Set(property_id::kColor, Vec3d{1, 0.5, 0});
    particle.Set(60, i == 1);
    store.Create(particle);
  }
  store.At(0).AddLink({1, 2});
  store.UpdateBounds(1);
  HyperFile file;
  file.StartMemory(kCacheIdent);
  const ParticleSource sources[] = {{&store, &store}};
  WriteParticleCache(file, unit, sources, {}, false, {compression, 1});
  CacheOrigin origin;
  origin.objects = {{"water (liquid)", "m"}};
  WriteOrigin(file, origin);
  return file.TakeBytes();
}

std::string SmallMesh(i32 compression) {
  host::Geometry mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 1}};
  mesh.polygons = {{0, 1, 2, 2}, {1, 3, 2, 2}};
  mesh.normals.assign(2, {});
  mesh.uvs.assign(2, {});
  mesh.velocities.assign(4, {1, 2, 3});
  HyperFile file;
  file.StartMemory(kCacheIdent);
  const host::Geometry* const meshes[] = {&mesh};
  WriteMeshCache(file, meshes, {compression, 1});
  CacheOrigin origin;
  origin.objects = {{"skin", "host units"}};
  WriteOrigin(file, origin);
  return file.TakeBytes();
}

/// Reads all of a file; whether it could be read, else `problem` tells why not.
bool ReadAllParticles(HyperFile& file, std::string& problem) {
  ParticleCacheHeader header;
  if (!ReadParticleCacheHeader(file, header, problem)) return false;
  for (std::size_t chunk = 0; chunk < header.stores.size(); ++chunk) {
    i32 id, level;
    ParticleColumns particles;
    if (!file.ReadChunkStart(id, level) ||
        !ReadParticleChunk(file, header, chunk, {}, 1, particles) || !file.SkipToEndChunk() ||
        !file.ReadChunkEnd())
      return problem = "unread", false;
  }
  file.Rewind();
  return !DescribeParticleCache(file).empty();
}

bool ReadAllMeshes(HyperFile& file, std::string& problem) {
  MeshCacheHeader header;
  if (!ReadMeshCacheHeader(file, header, problem)) return false;
  for (std::size_t chunk = 0; chunk < header.meshes.size(); ++chunk) {
    i32 id, level;
    host::Geometry mesh;
    if (!file.ReadChunkStart(id, level) || !ReadMeshChunk(file, 1, mesh) ||
        !file.SkipToEndChunk() || !file.ReadChunkEnd())
      return problem = "unread", false;
    host::Document document;  // refuses polygons without points
    document.Create<host::PolygonObject>(0, "mesh", nullptr).SetGeometry(std::move(mesh));
  }
  file.Rewind();
  return !DescribeMeshCache(file).empty();
}

using Reader = bool (*)(HyperFile&, std::string&);
struct SmallFile {
  std::string (*make)(i32 compression);
  Reader read;
};
constexpr SmallFile kSmallFiles[] = {{SmallParticles, ReadAllParticles},
                                     {SmallMesh, ReadAllMeshes}};

}  // namespace

TEST(DamagedCaches, EveryCutAndEveryWrongByteIsToldOf) {
  for (const SmallFile& small : kSmallFiles)
    for (const i32 compression : {0, 1}) {
      const std::string whole = small.make(compression);
      HyperFile file;
      std::string problem;
      ASSERT_TRUE(file.OpenMemory(kCacheIdent, whole));
      ASSERT_TRUE(small.read(file, problem)) << problem;
      for (std::size_t length = 0; length < whole.size(); ++length) {
        ASSERT_FALSE(file.OpenMemory(kCacheIdent, whole.substr(0, length), "cut.cache"));
        EXPECT_TRUE(file.Error().starts_with("cut.cache: it ")) << file.Error();
      }
      for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string wrong = whole;
        wrong[at] = static_cast<char>(wrong[at] ^ (1 << at % 8));
        ASSERT_FALSE(file.OpenMemory(kCacheIdent, wrong, "wrong.cache")) << at;
        EXPECT_TRUE(file.Error().starts_with("wrong.cache: ")) << file.Error();
      }
    }
}

TEST(DamagedCaches, NothingThatFilesSayIsBelieved) {
  // What a checksum covers may still be made up: nothing breaks, and no memory is taken for it.
  SetGridMemoryLimit(GridMemory() + (u64{64} << 20));
  for (const SmallFile& small : kSmallFiles)
    for (const i32 compression : {0, 1}) {
      const std::string whole = small.make(compression);
      const std::string body = whole.substr(kFrame, whole.size() - kFrame - kTrailer);
      int refused = 0;
      const auto look = [&](const std::string& items) {
        HyperFile file;
        std::string problem;
        ASSERT_TRUE(file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, items)));
        if (small.read(file, problem)) return;
        ++refused;
        EXPECT_FALSE(problem.empty());
      };
      for (std::size_t length = 0; length < body.size(); ++length) look(body.substr(0, length));
      EXPECT_GE(refused, static_cast<int>(body.size()) - 1) << "only the origin may be missing";
      for (std::size_t at = 0; at < body.size(); ++at)
        for (const int bit : {0, 6, 7}) {
          std::string wrong = body;
          wrong[at] = static_cast<char>(wrong[at] ^ (1 << bit));
          look(wrong);
        }
    }
  SetGridMemoryLimit(0);
}

TEST(DamagedCaches, FilesTellWhatTheyHold) {
  HyperFile file;
  ASSERT_TRUE(file.OpenMemory(kCacheIdent, SmallParticles(0), "x.cache"));
  EXPECT_EQ(KindOfCache(file), CacheKind::kParticles);
  EXPECT_EQ(OriginOf(file).objects.front().name, "water (liquid)");
  for (const char* name : {"x.mcache", "x.cache"}) {
    ASSERT_TRUE(file.OpenMemory(kCacheIdent, SmallMesh(0), name));
    EXPECT_EQ(KindOfCache(file), CacheKind::kMeshes);
    EXPECT_EQ(OriginOf(file).objects.front().name, "skin");
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
