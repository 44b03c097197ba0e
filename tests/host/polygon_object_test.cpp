#include "host/polygon_object.h"

#include <gtest/gtest.h>

#include <climits>

#include "host/document.h"
#include "host/mesh_files.h"
#include "host/mesh_writers.h"
#include "host/shapes.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL::host {
namespace {

TEST(FrameFileName, PadsTheLastRun) {
  EXPECT_EQ(FrameFileName("smoke.####.vdb", 7), "smoke.0007.vdb");
  EXPECT_EQ(FrameFileName("smoke.####.vdb", 123456), "smoke.123456.vdb");
  EXPECT_EQ(FrameFileName("smoke.####.vdb", -7), "smoke.-0007.vdb");
  EXPECT_EQ(FrameFileName("#", INT_MIN), "-2147483648");
  EXPECT_EQ(FrameFileName("shot #2/a_###b", 5), "shot #2/a_005b");
  EXPECT_EQ(FrameFileName("still.obj", 5), "still.obj");
}

TEST(PolygonObject, CountersTellWhatChanged) {
  Document document;
  auto& object = document.Create<PolygonObject>(kMeshObject, "object", nullptr);
  Geometry g = MakeBox({});
  object.SetGeometry(g);
  EXPECT_EQ(object.PointDirty(), 1u);
  EXPECT_EQ(object.PolygonDirty(), 1u);
  u32 dirty = object.DirtyCount();
  object.SetGeometry(g);
  EXPECT_EQ(object.DirtyCount(), dirty);
  g.points[3].x += 1;
  object.SetGeometry(g);
  EXPECT_EQ(object.PointDirty(), 2u);
  EXPECT_EQ(object.PolygonDirty(), 1u);
  EXPECT_GT(object.DirtyCount(), dirty);
  g.uvs[0][0].x += 1;
  object.SetGeometry(g);
  EXPECT_EQ(object.PointDirty(), 2u);
  EXPECT_EQ(object.PolygonDirty(), 2u);

  for (const i32 wrong : {-1, 8}) {
    Geometry broken = g;
    broken.polygons[2].d = wrong;
    EXPECT_THROW(object.SetGeometry(broken), std::invalid_argument);
  }
  Geometry broken = g;
  broken.normals.resize(1);
  EXPECT_THROW(object.SetGeometry(broken), std::invalid_argument);
  EXPECT_EQ(object.GetGeometry(), g);
}

TEST(PolygonObject, FramesWithoutAFileKeepTheOneBeforeWhateverTheOrder) {
  const TempFolder folder;
  const auto write = [&](const char* name, double radius) {
    ShapeArguments a;
    a.radius = radius;
    folder.Write(name, ToObj(MakeSphere(a)));
  };
  write("s.0002.obj", 2);
  write("s.0004.obj", 4);
  write("s.00003.obj", 99);  // not the name of frame 3
  write("s.3.obj", 99);
  write("s.0003.obj.obj", 99);
  Document document;
  auto& object = document.Create<PolygonObject>(kMeshObject, "object", nullptr);
  object.SetFramePattern((folder.Path() / "s.####.obj").string(), true);
  object.SetTrack(1000, {{{0, 0.0}, {10, 1.0}}});
  const auto radius = [&](i32 frame) {
    document.SetFrame(frame);
    return object.GetGeometry().points.empty() ? 0 : -object.GetGeometry().points[0].y;
  };
  EXPECT_EQ(radius(0), 0);
  EXPECT_EQ(radius(2), 2);
  EXPECT_EQ(*object.Get(1000), Value(0.2));  // other tracks go on
  const u32 points = object.PointDirty();
  EXPECT_EQ(radius(3), 2);
  EXPECT_EQ(object.PointDirty(), points);
  EXPECT_EQ(radius(4), 4);
  EXPECT_EQ(radius(900), 4);
  EXPECT_EQ(radius(3), 2);  // as on the way up
  EXPECT_EQ(object.PolygonDirty(), 1u);
  folder.Write("s.0005.obj", "f 1 2 3\n");
  EXPECT_THROW(document.SetFrame(5), MeshFileError);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
