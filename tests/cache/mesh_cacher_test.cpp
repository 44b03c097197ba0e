// Meshes that go through a cache.
#include "cache/mesh_cacher.h"

#include <gtest/gtest.h>

#include "cacher_scene.h"
#include "host/atomic_file.h"
#include "host/shapes.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using host::Geometry;

struct MeshScene : CacherScene<MeshCacher> {
  ImplicitMesher& skin = Add<ImplicitMesher>("mesher", "skin");
  ImplicitMesher& other = Add<ImplicitMesher>("mesher", "other");

  MeshScene(const std::filesystem::path& folder, i32 mode)
      : CacherScene("cache_mesh", folder, mode) {
    Links(cacher, cache_row::kObjects, {&skin, &other});
  }

  void Load(i32 frame) {
    BeginLoad(frame);
    Stage(cacher, kMeshing);
    cacher.Finish();
    for (ImplicitMesher* mesher : {&skin, &other}) {
      Stage(*mesher, kMeshing);
      mesher->Finish();
    }
  }
};

/// A fan of triangles with all that points and corners may have.
Geometry Fan(i32 triangles, bool sharesNormals) {
  Geometry mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}};
  for (i32 i = 0; i < triangles; ++i) {
    mesh.points.push_back({std::cos(0.1 * i), std::sin(0.1 * i), 0.3 * i});
    mesh.polygons.push_back({0, i + 1, i + 2, i + 2});
    mesh.uvs.push_back({Vec3d{0.1 * i, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 1, 0}});
  }
  for (const host::Polygon& p : mesh.polygons) {
    const auto normal = [&](i32 point) { return mesh.points[point] * 0.5; };
    mesh.normals.push_back({normal(p.a), normal(p.b), normal(p.c), normal(p.d)});
  }
  if (!sharesNormals) mesh.normals.back()[0].z += 1;
  for (const Vec3d& p : mesh.points) {
    mesh.velocities.push_back(p * 3.0);
    mesh.colours.push_back({p.x, 0, 1});
  }
  return mesh;
}

TEST(MeshCache, MeshesComeBackAsTheyWereWhateverTheirShape) {
  const host::TempFolder folder;
  const Geometry frames[] = {Fan(40, true), Fan(7, false), Fan(40, true), {}};
  for (const i32 compression : {0, 1, 2}) {
    MeshScene recorded(folder.Path(), cache_row::kRecord);
    MeshScene::Set(recorded.cacher, cache_row::kCompression, compression);
    for (i32 frame = 0; frame < 4; ++frame) {
      recorded.skin.TakePlayed(frames[frame]);
      recorded.Save(frame);
    }
    MeshScene played(folder.Path(), cache_row::kPlayBack);
    for (const i32 frame : {0, 1, 2, 3, 0}) {
      played.Load(frame);
      ASSERT_EQ(played.cacher.Failure(), "");
      EXPECT_TRUE(*played.skin.Polygons() == frames[frame]) << frame;
      EXPECT_TRUE(played.skin.Has(FLAG_CACHED));
      EXPECT_FALSE(played.other.HasPolygons());
    }
    EXPECT_EQ(played.cacher.DescribeFile(folder.Path() / "sulva_mesh_frame00001.mcache"),
              "Meshers: 2\nMax. Polygons: 7\nMax. Points: 9\n");
  }
  const auto size = [&](i32 frame) {
    return std::filesystem::file_size(folder.Path() /
                                      ("sulva_mesh_frame0000" + std::to_string(frame) + ".mcache"));
  };
  EXPECT_EQ(size(0), size(2));
}

TEST(MeshCache, VelocitiesTurnWithTheTime) {
  const host::TempFolder folder;
  MeshScene recorded(folder.Path(), cache_row::kRecord),
      played(folder.Path(), cache_row::kPlayBack);
  for (const i32 frame : {0, 1}) {
    recorded.skin.TakePlayed(Fan(3 + frame, true));
    recorded.Save(frame);
  }
  MeshScene::Set(played.cacher, cache_row::kBackwards, 1);
  played.Load(1);
  const Geometry &is = *played.skin.Polygons(), was = Fan(3, true);
  EXPECT_TRUE(is.points == was.points);
  ASSERT_EQ(is.velocities.size(), was.velocities.size());
  for (std::size_t i = 0; i < was.velocities.size(); ++i)
    EXPECT_EQ(is.velocities[i], -was.velocities[i]);
}

TEST(MeshCache, NormalsThatCornersShareAreKeptOnce) {
  const auto size = [](const Geometry& mesh) {
    HyperFile file;
    file.StartMemory(kCacheIdent);
    const Geometry* const meshes[] = {&mesh};
    WriteMeshCache(file, meshes, {});
    return file.TakeBytes().size();
  };
  const Geometry shared = Fan(400, true), own = Fan(400, false);
  EXPECT_EQ(size(own) - size(shared), 400 * 4 * sizeof(Vec3d) - 402 * sizeof(Vec3d));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
