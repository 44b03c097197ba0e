#include "io/mesh_writer.h"

#include <gtest/gtest.h>

#include "host/mesh_files.h"
#include "host/shapes.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::app {
namespace {

/// What our readers make of the file.
host::Geometry ReadBack(const MeshTable& mesh, const std::string& suffix) {
  const host::TempFolder folder;
  return host::LoadMesh(folder.Write("mesh" + suffix, EncodeMesh(mesh, suffix)));
}

MeshTable Box() {
  host::Document document;
  auto& object = document.Create<host::PolygonObject>(host::kMeshObject, "box", nullptr);
  object.SetGeometry(host::MakeBox({.size = {100, 200, 300}}));
  object.SetPlacement({50, 0, 0}, {0, 90, 0}, {1, 1, 2});
  return TableOf(object, Vec3d{0.01, 0.01, 0.01});
}

TEST(MeshTable, StandsWhereItsObjectDoes) {
  const MeshTable box = Box();
  // The z axis, 300 long and stretched, lies along x.
  Vec3d low = box.points.front(), high = low;
  for (const Vec3d& p : box.points) low = Min(low, p), high = Max(high, p);
  EXPECT_LT(Length(low - Vec3d{-2.5, -1, -0.5}), 1e-12);
  EXPECT_LT(Length(high - Vec3d{3.5, 1, 0.5}), 1e-12);
  const MeshMeasure measure = Measure(box);
  EXPECT_NEAR(measure.volume, 12, 1e-12);
  EXPECT_NEAR(measure.area, 2 * (6 * 2 + 6 * 1 + 2 * 1), 1e-12);
  EXPECT_EQ(CountOpenEdges(box), 0);
  // A file with a point for every corner is as closed.
  MeshTable split;
  for (const host::Polygon& p : box.polygons) {
    const i32 first = static_cast<i32>(split.points.size());
    for (const i32 point : {p.a, p.b, p.c, p.d}) split.points.push_back(box.points[point]);
    split.polygons.push_back({first, first + 1, first + 2, first + 3});
  }
  EXPECT_EQ(CountOpenEdges(split), 0);
  split.polygons.pop_back();
  EXPECT_EQ(CountOpenEdges(split), 4);
  MeshTable open = box;
  open.polygons.pop_back();
  std::swap(open.polygons[0].b, open.polygons[0].d);
  EXPECT_EQ(CountOpenEdges(open), 7) << "round the hole, and round what is turned: one is both";
  for (std::size_t i = 0; i < box.points.size(); ++i)
    EXPECT_GT(Dot(box.normals[i], box.points[i] - Vec3d{0.5, 0, 0}), 0.5);
}

TEST(MeshWriter, FilesReadBack) {
  MeshTable box = Box();
  box.polygons.push_back({0, 1, 2, 2});
  for (const std::string suffix : {".ply", ".obj"}) {
    const host::Geometry read = ReadBack(box, suffix);
    EXPECT_EQ(read.points, box.points) << suffix;
    EXPECT_EQ(read.polygons, box.polygons) << suffix;
    ASSERT_EQ(read.normals.size(), box.polygons.size()) << suffix;
    EXPECT_LT(Length(read.normals[0][1] - box.normals[box.polygons[0].b]), 1e-12) << suffix;
  }
  for (const std::string suffix : {".stl", ".glb"}) {
    const host::Geometry read = ReadBack(box, suffix);
    EXPECT_EQ(read.points.size(), box.points.size()) << suffix;
    EXPECT_EQ(read.polygons.size(), 13u) << suffix;
    const host::Polygon &first = box.polygons[0], &same = read.polygons[0];
    EXPECT_LT(Length(read.points[same.b] - box.points[first.b]), 1e-6) << suffix;
  }
  box.velocities.assign(box.points.size(), Vec3d{1, 2, 3});
  EXPECT_NE(EncodeMesh(box, ".ply").find("property double vz"), std::string::npos);
  EXPECT_NE(EncodeMesh(box, ".glb").find("\"VELOCITY\""), std::string::npos);
  const std::size_t before = EncodeMesh(box, ".ply").size();
  box.colours.assign(box.points.size(), Vec3d{1, 0, 2});
  const std::string ply = EncodeMesh(box, ".ply");
  EXPECT_EQ(ply.size(), before + 3 * box.points.size() + 60);
  EXPECT_NE(ply.find("\xFF" + std::string(1, '\0') + "\xFF"), std::string::npos)
      << "as a screen wants it";
  const std::string glb = EncodeMesh(box, ".glb");
  EXPECT_NE(glb.find("\"_VELOCITY\":2"), std::string::npos) << "the same numbers once more";
  EXPECT_NE(glb.find("\"COLOR_0\""), std::string::npos);
  MeshTable shaded = box;
  shaded.colours.assign(box.points.size(), Vec3d{1, 0, 1});
  EXPECT_EQ(glb, EncodeMesh(shaded, ".glb")) << "no more than white";
  EXPECT_EQ(ReadBack(box, ".ply").points, box.points);
}

TEST(MeshWriter, AMeshWithoutPolygonsIsAFileToo) {
  const MeshTable none;
  EXPECT_NE(EncodeMesh(none, ".ply").find("element vertex 0"), std::string::npos);
  EXPECT_EQ(EncodeMesh(none, ".stl").size(), 84u);
  EXPECT_EQ(EncodeMesh(none, ".glb").size() % 4, 0u);
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
