#include "host/mesh_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "host/document.h"
#include "host/geometry_facts.h"
#include "host/mesh_writers.h"
#include "host/shapes.h"
#include "host/temp_folder.h"
#include "paths.h"

namespace MELDO_GLOBAL::host {
namespace {
using ::testing::HasSubstr;

Geometry Sphere() {
  ShapeArguments a;
  a.segments = 12;
  return MakeSphere(a);
}

std::string MessageOf(const std::filesystem::path& path) {
  try {
    LoadMesh(path);
  } catch (const MeshFileError& error) {
    return error.what();
  }
  return "no error";
}

TEST(MeshFiles, FormatsWithPointsKeepThemAndTheQuads) {
  const TempFolder folder;
  const Geometry sphere = Sphere();
  Geometry bare = sphere;
  bare.uvs.clear();
  EXPECT_EQ(LoadMesh(folder.Write("a.OBJ", ToObj(sphere))), sphere);
  EXPECT_EQ(LoadMesh(folder.Write("b.ply", ToBinaryPly(sphere, false))), bare);
  EXPECT_EQ(LoadMesh(folder.Write("c.ply", ToBinaryPly(sphere, true))), bare);

  const Geometry ascii = LoadMesh(folder.Write("d.ply", ToAsciiPly(sphere)));
  EXPECT_EQ(ascii.points, sphere.points);
  EXPECT_EQ(ascii.polygons, sphere.polygons);
  ASSERT_EQ(ascii.uvs.size(), sphere.polygons.size());
  EXPECT_EQ(ascii.uvs[20][2], (Vec3d{0.5 * sphere.points[sphere.polygons[20].c].x, 0.25, 0}));
}

TEST(MeshFiles, SoupsAreWeldedIntoClosedMeshes) {
  const TempFolder folder;
  const Geometry sphere = Sphere();
  const GeometryFacts facts = FactsOf(sphere);
  for (const auto& path :
       {folder.Write("a.stl", ToBinaryStl(sphere)), folder.Write("b.stl", ToAsciiStl(sphere)),
        folder.Write("c.glb", ToGlb(sphere, R"([{"mesh":0}])"))}) {
    SCOPED_TRACE(path.string());
    const Geometry read = LoadMesh(path);
    const GeometryFacts readFacts = FactsOf(read);
    EXPECT_EQ(read.points.size(), sphere.points.size());
    EXPECT_EQ(readFacts.triangles, facts.triangles);
    EXPECT_TRUE(readFacts.closed);
    EXPECT_NEAR(readFacts.volume, facts.volume, 1e-6 * facts.volume);
  }
}

TEST(MeshFiles, ObjCornersNormalsFansAndContinuedLines) {
  const TempFolder folder;
  const Geometry g = LoadMesh(folder.Write("a.obj", R"(# a comment
mtllib missing.mtl
o thing
v 0 0 0 1.0
v 1 0 0
v +1.5 1e0 0
v 1 2 0
v 0 2 0 # a comment behind
v 7 7 7
vt 0.5 0.25
vn 0 0 2
s off
f -6/-1/-1 2//1 3 4 \
  5/1
f 1 2 3 3
f 1 2 3 4
l 1 2
)"));
  ASSERT_EQ(g.points.size(), 6u);  // the unused one too
  EXPECT_EQ(g.points[2], (Vec3d{1.5, 1, 0}));
  ASSERT_EQ(g.polygons.size(), 5u);
  EXPECT_EQ(g.polygons[0], (Polygon{0, 1, 2, 2}));
  EXPECT_EQ(g.polygons[1], (Polygon{0, 2, 3, 3}));
  EXPECT_EQ(g.polygons[2], (Polygon{0, 3, 4, 4}));
  EXPECT_EQ(g.polygons[3], (Polygon{0, 1, 2, 2}));
  EXPECT_EQ(g.polygons[4], (Polygon{0, 1, 2, 3}));
  const Vec3d uv{0.5, 0.25, 0}, normal{0, 0, 2}, none{};
  EXPECT_EQ(g.uvs[2], (std::array{uv, none, uv, uv}));
  EXPECT_EQ(g.normals[0], (std::array{normal, normal, none, none}));
}

// A node that mirrors, under one that turns and moves: the mesh must stay turned outward.
TEST(MeshFiles, GltfPlacesNodesByTheirTransforms) {
  const TempFolder folder;
  ShapeArguments a;
  a.size = {2, 4, 6};
  const std::string nodes =
      R"([{"children":[1,2],"translation":[10,0,0],"rotation":[0,0,0.70710678118654752,)"
      R"(0.70710678118654752]},{"mesh":0,"scale":[-1,1,1]},)"
      R"({"mesh":0,"matrix":[2,0,0,0, 0,2,0,0, 0,0,2,0, 0,100,0,1]}])";
  const Geometry g = LoadMesh(folder.Write("a.glb", ToGlb(MakeBox(a), nodes)));
  const GeometryFacts facts = FactsOf(g);
  EXPECT_EQ(g.points.size(), 16u);
  EXPECT_TRUE(facts.closed);
  EXPECT_NEAR(facts.volume, 48 + 8 * 48, 1e-9);
  // A quarter turn about z leads y to -x: the second box stands at x = 10 - 100.
  EXPECT_NEAR(facts.low.x, -90 - 4, 1e-9);
  EXPECT_NEAR(facts.high.x, 10 + 2, 1e-9);
  EXPECT_NEAR(facts.high.y, 2, 1e-9);
  EXPECT_NEAR(facts.high.z, 6, 1e-9);
}

TEST(MeshFiles, GltfBuffersBesideTheFileAndInside) {
  const TempFolder folder;
  const Geometry sphere = Sphere();
  const Gltf beside = ToGltf(sphere, R"([{"mesh":0}])", R"("uri":"with%20blank.bin",)");
  folder.Write("with blank.bin", beside.binary);
  const Geometry read = LoadMesh(folder.Write("a.gltf", beside.json));
  EXPECT_TRUE(FactsOf(read).closed);

  constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string data = beside.binary, text;
  data.resize((data.size() + 2) / 3 * 3);
  for (size_t i = 0; i < data.size(); i += 3) {
    const u32 word = u32{u8(data[i])} << 16 | u32{u8(data[i + 1])} << 8 | u8(data[i + 2]);
    for (int shift = 18; shift >= 0; shift -= 6) text += digits[word >> shift & 63];
  }
  const Gltf inside = ToGltf(sphere, R"([{"mesh":0}])",
                             "\"uri\":\"data:application/octet-stream;base64," + text + "\",");
  EXPECT_EQ(LoadMesh(folder.Write("b.gltf", inside.json)), read);

  // The same bytes, but not below the file's own folder.
  std::filesystem::create_directories(folder.Path() / "own");
  std::filesystem::create_symlink("../with blank.bin", folder.Path() / "own/link.bin");
  const std::string whole = (folder.Path() / "with blank.bin").string();
  for (const std::string& uri :
       {std::string("../with%20blank.bin"), std::string("%2e%2e/with%20blank.bin"), whole,
        std::string("link.bin"), std::string("none/../../with%20blank.bin")})
    EXPECT_THROW(
        LoadMesh(folder.Write("own/c.gltf",
                              ToGltf(sphere, R"([{"mesh":0}])", "\"uri\":\"" + uri + "\",").json)),
        MeshFileError)
        << uri;
}

TEST(MeshFiles, RealMeshesHaveTheirKnownShape) {
  const std::filesystem::path folder = SourcePath("/../shared/data/meshes");
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no real meshes beside the checkout";
  struct Case {
    const char* file;
    size_t triangles, points;
    i64 euler;
    double volume, area;
  };
  for (const Case& c : {Case{"spot.obj", 5856, 2930, 2, 0.718259, 5.70952},
                        Case{"hand_closed.obj", 15982, 7993, 2, 0.0293821, 0.825724},
                        Case{"featuretype.stl", 3476, 1722, -16, 11.6277, 53.8274}}) {
    SCOPED_TRACE(c.file);
    const Geometry g = LoadMesh(folder / c.file);
    const GeometryFacts facts = FactsOf(g);
    EXPECT_EQ(g.points.size(), c.points);
    EXPECT_EQ(facts.triangles, c.triangles);
    EXPECT_TRUE(facts.closed);
    EXPECT_EQ(facts.euler, c.euler);
    EXPECT_NEAR(facts.volume, c.volume, 1e-5 * c.volume);
    EXPECT_NEAR(facts.area, c.area, 1e-5 * c.area);
  }
}

TEST(MeshFiles, AssetsAreClosedAndWhatTheirScriptMakes) {
  const TempFolder folder;
  const std::string command = ("python3 " + SourcePath("/scripts/make_assets.py --out ")) +
                              folder.Path().string() + " > /dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  struct Asset {
    const char* file;
    int euler;
  };
  for (const Asset& asset : {Asset{"urn.obj", -2},      // two handles
                             Asset{"knot.obj", 0},      // one
                             Asset{"logs.obj", 14}}) {  // seven pieces
    const Geometry mesh =
        LoadMesh(std::filesystem::path(SourcePath("/scenes/assets")) / asset.file);
    EXPECT_EQ(LoadMesh(folder.Path() / asset.file), mesh);
    const GeometryFacts facts = FactsOf(mesh);
    EXPECT_TRUE(facts.closed) << asset.file;
    EXPECT_EQ(facts.euler, asset.euler) << asset.file;
    EXPECT_GT(facts.volume, 0) << asset.file;
    EXPECT_NEAR(std::max(facts.high.x - facts.low.x, facts.high.z - facts.low.z), 2, 1e-9);
  }
}

TEST(MeshFiles, EveryFaultHasItsSentence) {
  const TempFolder folder;
  const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
  const std::string ply =
      "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  const std::string glb = ToGlb(Sphere(), R"([{"mesh":0}])");
  const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  struct Case {
    const char* name;
    std::string bytes;
    const char* message;
  };
  const Case cases[] = {
      {"a.obj", "", "has no polygons"},
      {"b.obj", triangle, "has no polygons"},
      {"c.obj", triangle + "f 1 2 4\n", "names point 3 (counted from 0) in a face, but has 3"},
      {"d.obj", triangle + "f 1 2 -4\n", "line 4: index -4 is out of range"},
      {"e.obj", triangle + "f 1 2 0\n", "line 4: index 0 is out of range"},
      {"f.obj", triangle + "f 1 2/1 3\n", "names uv 0"},
      {"g.obj", triangle + "f 1 2\n", "line 4: a face needs three corners"},
      {"h.obj", "v 0 0 nan\n" + triangle + "f 1 2 3\n", "isn't finite, in point 0"},
      {"i.obj", "v 0 1e999 0\n" + triangle + "f 1 2 3\n", "isn't finite, in point 0"},
      {"j.obj", "v 0 0 x\n", "line 1: \"x\" isn't a number"},
      {"k.obj", triangle + "f 1 2 99999999999999999999\n", "isn't a corner of a face"},
      {"l.obj", triangle + "f 1 2 9999999999\n", "out of range"},
      {"a.ply", "plx", "isn't a PLY file"},
      {"b.ply", ply + "0 0 0 1 0 0 0 1 0 3 0 1", "is truncated"},
      {"c.ply", ply + "0 0 0 1 0 0 0 1 0 3 0 1 3", "names point 3"},
      {"d.ply", ply + "0 0 0 1 0 0 0 1 0 3 0 1 -1", "has -1 where an index"},
      {"e.ply", replaced(ply, "vertex 3", "vertex 99999999999999"), "is truncated"},
      {"f.ply", replaced(ply, "property float z\n", ""), "has points without x, y and z"},
      {"g.ply", replaced(ply, "float z", "quad z"), "unknown type \"quad\""},
      {"a.stl", "solid\nendsolid\n", "has no polygons"},
      {"b.stl", "nothing", "is truncated, or isn't an STL file"},
      {"c.stl", ToBinaryStl(Sphere()).substr(0, 1000), "is truncated"},
      {"d.stl", "solid\nfacet\nouter loop\nvertex 0 0\n", "line 4: \"\" isn't a number"},
      {"e.stl", "solid\nfacet\nvertex 0 0 0\nendfacet\n", "line 4: a facet has three corners"},
      {"a.gltf", "{}", "isn't a glTF file"},
      {"b.gltf", R"({"asset":{},"nodes":[{"children":[0]}],"scenes":[{"nodes":[0]}]})",
       "two places of its tree"},
      {"c.gltf", R"({"asset":{},"nodes":[{"mesh":3}]})", "has no entry 3 in its meshes"},
      {"d.gltf", R"({"asset":{},"nodes":[{"scale":[1,"a",1]}]})", "isn't a valid glTF file"},
      {"e.glb", glb.substr(0, glb.size() - 9), "is truncated"},
      {"f.glb", replaced(glb, "5123", "5125"), "past the end of its buffer view"},
      {"a.fbx", "", "isn't of a known kind"},
  };
  for (const Case& c : cases) {
    const std::string message = MessageOf(folder.Write(c.name, c.bytes));
    EXPECT_THAT(message, HasSubstr(c.message)) << c.name;
    EXPECT_THAT(message, HasSubstr(std::string(c.name) + "\" ")) << "must name the file";
  }
  EXPECT_THAT(MessageOf(folder.Path() / "none.obj"), HasSubstr("none.obj\" doesn't exist"));
  std::filesystem::create_directory(folder.Path() / "folder.obj");
  EXPECT_THAT(MessageOf(folder.Path() / "folder.obj"), HasSubstr("isn't a regular file"));
}

// Cut and damaged files either load into something whole or say why not.
TEST(MeshFiles, DamagedFilesNeverDoHarm) {
  const TempFolder folder;
  Document document;
  auto& object = document.Create<PolygonObject>(kMeshObject, "object", nullptr);
  const Geometry box = MakeBox({});
  const std::pair<const char*, std::string> files[] = {
      {"a.obj", ToObj(box)},
      {"a.stl", ToBinaryStl(box)},
      {"b.stl", ToAsciiStl(box)},
      {"a.ply", ToBinaryPly(box, true)},
      {"b.ply", ToAsciiPly(box)},
      {"a.glb", ToGlb(box, R"([{"mesh":0,"matrix":[2,0,0,0, 0,2,0,0, 0,0,2,0, 0,9,0,1]}])")}};
  int loaded = 0, refused = 0;
  const auto attempt = [&](const char* name, const std::string& bytes) {
    try {
      object.SetGeometry(LoadMesh(folder.Write(name, bytes)));  // which checks every index
      ++loaded;
    } catch (const MeshFileError&) {
      ++refused;
    }
  };
  std::mt19937 random(7);
  for (const auto& [name, bytes] : files) {
    attempt(name, bytes);
    for (size_t cut = 0; cut < bytes.size(); cut += 1 + bytes.size() / 100)
      attempt(name, bytes.substr(0, cut));
    for (int i = 0; i < 300; ++i) {
      std::string damaged = bytes;
      for (u32 n = 1 + random() % 4; n > 0; --n)
        damaged[random() % damaged.size()] =
            random() % 2 ? static_cast<char>(random()) : "0919-/ .eE\n\"[]{},"[random() % 17];
      attempt(name, damaged);
    }
  }
  EXPECT_GT(loaded, 100);
  EXPECT_GT(refused, 500);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
