// `sulva convert`, and what other commands make of files that it writes.
#include <gtest/gtest.h>

#include <algorithm>

#include "cache/grid_cache_file.h"
#include "run_folder.h"

namespace MELDO_GLOBAL::app {
namespace {

constexpr const char* kDrops =
    "x,y,z,vx,vy,vz,id,radius,mine\n"
    "0,10,0,1,0,0,4,2,0.5\n"
    "20,10,0,0,2,0,5,3,0.25\n";

/// The numbers of a table of comma-separated text.
std::vector<std::vector<double>> RowsOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::string line, cell;
  std::getline(file, line);
  std::vector<std::vector<double>> rows;
  while (std::getline(file, line)) {
    std::istringstream cells(line);
    std::vector<double>& row = rows.emplace_back();
    while (std::getline(cells, cell, ',')) row.push_back(std::stod(cell));
  }
  return rows;
}

/// The samples of every grid in a cache's frame.
std::vector<std::vector<double>> SamplesOf(const std::filesystem::path& path) {
  HyperFile file;
  GridCacheHeader header;
  std::string problem;
  EXPECT_TRUE(file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) << file.Error();
  EXPECT_TRUE(ReadGridCacheHeader(file, header, problem)) << problem;
  std::vector<std::vector<double>> all;
  for (std::size_t chunk = 0; chunk < header.chunks.size(); ++chunk) {
    i32 id, level;
    EXPECT_TRUE(file.ReadChunkStart(id, level));
    while (!file.AtEnd()) {
      PackedBlock block;
      EXPECT_TRUE(ReadBlock(file, block));
      EXPECT_TRUE(Unpack(block, std::span(all.emplace_back(block.size / sizeof(double))), 1));
    }
    EXPECT_TRUE(file.ReadChunkEnd());
  }
  return all;
}

/// Which kind of samples a cache has of each object.
std::map<std::string, i32> KindsOf(const std::filesystem::path& path) {
  HyperFile file;
  GridCacheHeader header;
  std::string problem;
  EXPECT_TRUE(file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) << file.Error();
  EXPECT_TRUE(ReadGridCacheHeader(file, header, problem)) << problem;
  std::map<std::string, i32> kinds;
  for (std::size_t chunk = 0; chunk < header.chunks.size(); ++chunk)
    kinds[header.origin.objects[chunk].name] = header.grids[header.chunks[chunk]].kind;
  return kinds;
}

}  // namespace

TEST(Convert, WritesAFileForEachFrame) {
  const RunFolder folder("convert");
  for (const char* name : {"in.0001.csv", "in.0002.csv", "in.0003.csv"}) folder.Write(name, kDrops);
  ASSERT_EQ(folder.Run({"convert", "in.####.csv", "out.##.bgeo.gz", "--frames", "2:3"}), 0)
      << folder.Errors();
  EXPECT_EQ(folder.Answers(), "out.02.bgeo.gz: 2 particles\nout.03.bgeo.gz: 2 particles\n");
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "out.01.bgeo.gz"));
  ASSERT_EQ(folder.Run({"info", "out.03.bgeo.gz"}), 0);
  EXPECT_NE(folder.Answers().find("2 particles as bgeo"), std::string::npos) << folder.Answers();
  EXPECT_NE(folder.Answers().find("  mine: float, from 0.25 to 0.5\n"), std::string::npos)
      << folder.Answers();
  ASSERT_EQ(folder.Run({"convert", "out.03.bgeo.gz", "back.csv"}), 0);
  EXPECT_EQ(ReadAll(folder.Path() / "back.csv"), kDrops);
  ASSERT_EQ(folder.Run({"convert", "back.csv", "back.xyz"}), 0);
  EXPECT_EQ(folder.Errors(),
            "warning: back.xyz: the format has no place for velocity, id, radius, mine\n");
}

TEST(Convert, SaysWhatDoesntFit) {
  const RunFolder folder("convert_refused");
  folder.Write("in.csv", kDrops);
  folder.Write("in.txt", "words");
  folder.Write("bad.prt", "\xc0PRT\r\n\x1a\n and no more");
  folder.Write("tent.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  const auto refused = [&](std::vector<std::string> words, int code, const std::string& text) {
    words.insert(words.begin(), "convert");
    EXPECT_EQ(folder.Run(words), code) << words[1] << " " << words[2];
    EXPECT_NE(folder.Errors().find(text), std::string::npos) << folder.Errors();
  };
  refused({"in.csv", "out.bgoe"}, 2, "can't be written as 'bgoe'");
  refused({"in.csv", "out.bgoe"}, 2, "did you mean 'bgeo'?");
  refused({"in.csv", "out.prt.gz"}, 5, "the format prt isn't wrapped by gzip");
  refused({"in.csv", "in.csv"}, 2, "OUT is the same file as IN");
  refused({"tent.obj", "out.prt"}, 2, "holds a mesh, which can't be written as 'prt'");
  refused({"in.txt", "out.prt"}, 5, "it is of no known format of particles, meshes or volumes");
  refused({"none.prt", "out.csv"}, 5, "cannot read none.prt: no such file");
  refused({"bad.prt", "out.csv"}, 5, "cannot read bad.prt: it ends too early");
  refused({"in.####.csv", "out.####.prt"}, 5, "there is no file in.####.csv");
  folder.Write("cut.bgeo.gz", std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03 cut", 14));
  refused({"cut.bgeo.gz", "out.prt"}, 5, "cannot read cut.bgeo.gz: ");
  refused({"in.####.csv", "out.prt"}, 2, "OUT has none");
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "out.prt"));
  ASSERT_EQ(folder.Run({"convert", "in.csv", "points.rib"}), 0);
  refused({"points.rib", "out.csv"}, 5, "particles can be written as rib, but not read");
}

TEST(Convert, CarriesMeshesAndTellsThemFromPoints) {
  const RunFolder folder("convert_meshes");
  folder.Write("tent.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  folder.Write("in.csv", kDrops);
  for (const char* suffix : {"ply", "stl", "glb"}) {
    const std::string name = std::string("tent.") + suffix;
    ASSERT_EQ(folder.Run({"convert", "tent.obj", name}), 0) << folder.Errors();
    EXPECT_EQ(folder.Answers(), name + ": 3 points, 1 polygons\n");
    ASSERT_EQ(folder.Run({"convert", name, "back.obj"}), 0) << folder.Errors();
    EXPECT_NE(ReadAll(folder.Path() / "back.obj").find("\nv 0 1 0\n"), std::string::npos);
  }
  ASSERT_EQ(folder.Run({"convert", "in.csv", "points.ply"}), 0);
  ASSERT_EQ(folder.Run({"convert", "points.ply", "points.vdb"}), 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"convert", "points.vdb", "points.prt"}), 0) << folder.Errors();
  EXPECT_EQ(folder.Answers(), "points.prt: 2 particles\n");
}

TEST(Convert, SaysWhatBecomesOfMeshesAndNumbers) {
  const RunFolder folder("convert_said");
  folder.Write("roof.obj",
               "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 1\nvn 0 0 1\nvn 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\n"
               "f 1/1/1 2/2/1 3/3/1\nf 2/2/2 4/1/2 3/3/2\n");
  ASSERT_EQ(folder.Run({"convert", "roof.obj", "roof.stl"}), 0);
  EXPECT_EQ(folder.Errors(),
            "warning: roof.stl: the format has no place for texture coordinates\n");
  ASSERT_EQ(folder.Run({"convert", "roof.obj", "roof.ply"}), 0);
  EXPECT_EQ(folder.Errors(),
            "warning: roof.ply: at 2 points polygons have normals of their own; the mean of them "
            "is kept\n");
  EXPECT_EQ(ReadAll(folder.Path() / "roof.ply").find("metres"), std::string::npos)
      << "nobody knows the unit";
  folder.Write("odd.csv", "x,y,z,id,mass\n0,0,0,1,1e39\nnan,0,0,2,1\n1,1,1,99999999999,1\n");
  ASSERT_EQ(folder.Run({"convert", "odd.csv", "odd.bgeo"}), 0);
  EXPECT_EQ(folder.Answers(), "odd.bgeo: 2 particles\n");
  EXPECT_EQ(folder.Errors(),
            "warning: odd.bgeo: 1 number of 'id' doesn't fit into 32 bits and becomes the nearest "
            "that does\n"
            "warning: odd.bgeo: 1 number of 'mass' doesn't fit into single precision and becomes "
            "infinite\n"
            "warning: odd.bgeo: 1 particle at no finite place is left out\n");
}

TEST(Convert, LetsNoChangedVolumeFileReachTheLibrary) {
  const RunFolder folder("convert_flipped");
  folder.Write("in.csv", kDrops);
  ASSERT_EQ(folder.Run({"convert", "in.csv", "a.vdb"}), 0) << folder.Errors();
  const std::string whole = ReadAll(folder.Path() / "a.vdb");
  // Among these are the lengths of texts, which the library takes memory by.
  for (std::size_t at = 61; at < 340; at += 9)
    for (const char* command : {"info", "convert"}) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
      folder.Write("b.vdb", damaged);
      std::vector<std::string> words = {command, "b.vdb"};
      if (words[0] == "convert") words.push_back("out.csv");
      EXPECT_EQ(folder.Run(words), 5) << at;
      EXPECT_NE(folder.Errors().find("cannot read b.vdb: it"), std::string::npos)
          << at << folder.Errors();
    }
}

TEST(Convert, TakesVolumesFromCachesAndBack) {
  const RunFolder folder("convert_volumes");
  folder.Write("scene.json", RecordedSmoke(2));
  ASSERT_EQ(folder.Run({"run", "scene.json", "--out", "out", "--quiet"}), 0) << folder.Errors();
  std::string recorded;
  for (const auto& [name, bytes] : folder.Files("out"))
    if (name.ends_with("00002.cache")) recorded = "out/" + name;
  ASSERT_FALSE(recorded.empty());
  ASSERT_EQ(folder.Run({"convert", recorded, "a.vdb"}), 0) << folder.Errors();
  EXPECT_EQ(folder.Answers(), "a.vdb: 4 volumes: smoke, heat, gas, block volume\n");
  ASSERT_EQ(folder.Run({"convert", "a.vdb", "b.cache"}), 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"convert", "b.cache", "c.vdb"}), 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"convert", "c.vdb", "d.cache"}), 0) << folder.Errors();
  // A cache node asks for the kind that it has recorded.
  EXPECT_EQ(KindsOf(folder.Path() / "b.cache"), KindsOf(folder.Path() / recorded));
  // What is left out beyond active voxels stays so, and single precision is kept.
  const auto once = SamplesOf(folder.Path() / "b.cache"),
             twice = SamplesOf(folder.Path() / "d.cache");
  EXPECT_EQ(once, twice);
  EXPECT_EQ(once.size(), 6u);
  const auto sum = [](const std::vector<double>& values) {
    double total = 0;
    for (const double value : values) total += value;
    return total;
  };
  const auto first = SamplesOf(folder.Path() / recorded);
  ASSERT_EQ(first.size(), 6u);
  // Volume files have their grids by name: block volume, three of the gas, heat, smoke.
  EXPECT_NEAR(sum(once[5]), sum(first[0]), 1e-5 * sum(first[0]));
  EXPECT_NEAR(sum(once[4]), sum(first[1]), 1e-5 * sum(first[1]));
  EXPECT_GT(sum(first[0]), 1);
}

TEST(ParticlesObject, SaysWhatItsFileLacks) {
  const RunFolder folder("short_rows");
  folder.Write("p.xyz", "0 0 0\n1 0 0\n2 0\n");
  folder.Write("s.json", R"({ "sulva": 1,
  "objects": [ { "type": "particles", "name": "drops", "file": "p.xyz" } ],
  "nodes": [ { "type": "server", "name": "scene", "children": [
    { "type": "particlegroup", "name": "group" } ] } ] })");
  EXPECT_EQ(folder.Run({"check", "s.json"}), 0) << folder.Errors();
  EXPECT_NE(folder.Errors().find("p.xyz: 1 rows are shorter than the first and left out"),
            std::string::npos)
      << folder.Errors();
}

TEST(ParticlesObject, FeedsAnEmitterFrameByFrame) {
  const RunFolder folder("particles_object");
  folder.Write("drops.0000.csv", kDrops);
  folder.Write("drops.0001.csv", kDrops);
  folder.Write("drops.0002.csv", "x,y,z,radius\n50,0,0,1\n");
  ASSERT_EQ(folder.Run({"convert", "drops.####.csv", "drops.####.bgeo"}), 0) << folder.Errors();
  folder.Write("scene.json", R"({ "sulva": 1, "range": [0, 2],
  "objects": [ { "type": "particles", "name": "drops", "file": "drops.####.bgeo", "position": [0, 0, 100] } ],
  "nodes": [ { "type": "server", "name": "scene", "children": [
    { "type": "particlegroup", "name": "group" },
    { "type": "property_scalar", "name": "size", "parameters": { "property": "radius", "value": 1 } },
    { "type": "property_vector", "name": "speed", "parameters": { "property": "velocity" } },
    { "type": "particlemesh_emission_setting", "name": "rate" },
    { "type": "particlemeshemitter", "name": "born", "parameters": { "group": "group", "kind": "passive",
      "source": "drops", "emit_from": "points", "every_point": true, "spacing": 0, "settings": "rate",
      "point_properties": ["size", "speed"] } } ] } ],
  "exports": [ { "format": "points", "file": "####.csv", "particles": "group", "kinds": ["passive"] },
               { "format": "points", "file": "####.bgeo.gz", "particles": "group" } ] })");
  ASSERT_EQ(folder.Run({"run", "scene.json", "--out", "out", "--quiet"}), 0) << folder.Errors();
  // The first step stands in frame 1, and 100 host units are a metre.
  const auto one = RowsOf(folder.Path() / "out/0001.csv");
  ASSERT_EQ(one.size(), 2u);
  const std::vector<double> first = {0, 0.1, 1, 0.01, 0, 0, 0, 0.02};
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_NEAR(one[0][i], first[i], 1e-7) << i;
  const auto two = RowsOf(folder.Path() / "out/0002.csv");
  ASSERT_EQ(two.size(), 3u);
  EXPECT_NEAR(two[2][0], 0.5, 1e-7);
  EXPECT_NEAR(two[2][7], 0.01, 1e-7);
  EXPECT_TRUE(ReadAll(folder.Path() / "out/0002.bgeo.gz").starts_with("\x1f\x8b"));
  ASSERT_EQ(folder.Run({"info", "out/0002.bgeo.gz"}), 0) << folder.Errors();
  EXPECT_NE(folder.Answers().find("3 particles as bgeo"), std::string::npos) << folder.Answers();
  std::filesystem::remove(folder.Path() / "drops.0001.bgeo");
  EXPECT_EQ(folder.Run({"run", "scene.json", "--out", "hole", "--quiet"}), 5);
  EXPECT_NE(folder.Errors().find("drops.0001.bgeo\" is missing"), std::string::npos)
      << folder.Errors();
  std::string fewer = ReadAll(folder.Path() / "scene.json");
  fewer.replace(fewer.find("drops.####"), 10, "drops.##");
  folder.Write("fewer.json", fewer);
  EXPECT_EQ(folder.Run({"check", "fewer.json"}), 3);
  EXPECT_NE(folder.Errors().find("; did you mean 'drops.####.bgeo'?"), std::string::npos)
      << folder.Errors();
}

}  // namespace MELDO_GLOBAL::app
