#include "io/mesh_writer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/document.h"
#include "host/mesh_files.h"
#include "host/mesh_readers.h"
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

TEST(MeshWriter, WhatPointsAndCornersHaveReadsBack) {
  MeshTable box = Box();
  for (std::size_t i = 0; i < box.points.size(); ++i) {
    box.velocities.push_back({0.5 * static_cast<double>(i), -1, 2});
    box.colours.push_back({1, 0, host::LightOfSrgb(static_cast<double>(30 * i) / 255)});
  }
  // A seam: corners at one point have other coordinates in each polygon.
  for (std::size_t i = 0; i < box.polygons.size(); ++i) {
    const double u = static_cast<double>(i) / 8;
    box.uvs.push_back({Vec3d{u, 0, 0}, {u, 0.25, 0}, {0.5, 0.75, 0}, {0.5, 0, 0}});
  }
  for (const std::string suffix : {".ply", ".obj"}) {
    const host::Geometry read = ReadBack(box, suffix);
    EXPECT_EQ(read.points, box.points);
    EXPECT_EQ(read.uvs, box.uvs) << suffix;
    if (suffix == ".obj") continue;
    EXPECT_EQ(read.velocities, box.velocities);
    EXPECT_TRUE(EncodeMesh(box, ".ply") == EncodeMesh(
                                               [&] {
                                                 MeshTable again = box;
                                                 again.colours = read.colours;
                                                 return again;
                                               }(),
                                               ".ply"))
        << "colours are the same bytes again";
  }
  const host::Geometry read = ReadBack(box, ".glb");
  ASSERT_EQ(read.points.size(), box.points.size()) << "a seam doesn't open the surface";
  ASSERT_EQ(read.polygons.size(), 12u);
  const auto place = [&](i32 point) {
    const auto near = [&](const Vec3d& p) { return Length(p - read.points[point]) < 1e-5; };
    return std::find_if(box.points.begin(), box.points.end(), near) - box.points.begin();
  };
  for (i32 i = 0; i < 8; ++i) {
    EXPECT_LT(Length(read.velocities[i] - box.velocities[place(i)]), 1e-6);
    EXPECT_LT(Length(read.colours[i] - box.colours[place(i)]), 1e-6);
  }
  for (std::size_t i = 0; i < 12; ++i) EXPECT_LT(Length(read.uvs[i][0] - box.uvs[i / 2][0]), 1e-6);
  EXPECT_EQ(MissingFrom(".obj", box), (std::vector<std::string>{"velocities", "colours"}));
  EXPECT_EQ(MissingFrom(".stl", box).size(), 3u);
  EXPECT_TRUE(MissingFrom(".glb", box).empty());
}

TEST(MeshWriter, SeveralMeshesAreNamedOrJoined) {
  const MeshTable box = Box();
  MeshTable moving = box;
  moving.velocities.assign(box.points.size(), {1, 0, 0});
  const NamedMesh both[] = {{"calm", &box}, {"fast one", &moving}};
  const host::TempFolder folder;
  for (const std::string suffix : {".ply", ".obj", ".stl", ".glb"}) {
    const std::string bytes = EncodeMeshes(both, suffix);
    const host::Geometry read = host::LoadMesh(folder.Write("both" + suffix, bytes));
    const bool hasTriangles = suffix == ".stl" || suffix == ".glb";
    EXPECT_EQ(read.polygons.size(), hasTriangles ? 24u : 12u) << suffix;
    EXPECT_EQ(read.points.size(), suffix == ".stl" ? 8u : 16u) << suffix;
    if (suffix == ".ply" || suffix == ".glb") {
      EXPECT_EQ(read.velocities.front(), Vec3d()) << suffix;
      EXPECT_EQ(read.velocities.back(), (Vec3d{1, 0, 0})) << suffix;
    }
  }
  EXPECT_NE(EncodeMeshes(both, ".obj").find("\no fast one\n"), std::string::npos);
  EXPECT_NE(EncodeMeshes(both, ".glb").find("\"name\":\"fast one\""), std::string::npos);
}

TEST(MeshWriter, AMeshWithoutPolygonsIsAFileToo) {
  const MeshTable none;
  EXPECT_NE(EncodeMesh(none, ".ply").find("element vertex 0"), std::string::npos);
  EXPECT_EQ(EncodeMesh(none, ".stl").size(), 84u);
  EXPECT_EQ(EncodeMesh(none, ".glb").size() % 4, 0u);
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
