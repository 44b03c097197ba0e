#include "fluids/mesh/topology.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fluids/volume/voxel_fixture.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A fan of two triangles round vertex 1, a third sheet on the edge 1-2, and a loose vertex 5.
TriMeshSTL Sheets() {
  TriMeshSTL mesh;
  mesh.GetVertices().assign(6, {});
  mesh.GetTriangles() = {{0, 1, 2}, {2, 1, 3}, {4, 1, 2}};
  return mesh;
}

TEST(Topology, NamesTrianglesRingsAndEdges) {
  Topology topology;
  topology.Build(Sheets());
  ASSERT_EQ(topology.GetVertexCount(), 6);
  EXPECT_THAT(topology.Triangles(1), ElementsAre(0, 1, 2));
  EXPECT_THAT(topology.Triangles(3), ElementsAre(1));
  EXPECT_THAT(topology.Ring(1), ElementsAre(2, 0, 3, 4));
  EXPECT_THAT(topology.Ring(0), ElementsAre(1, 2));
  EXPECT_THAT(topology.EdgeTriangles(1, 0), ElementsAre(0, 1, 2)) << "three sheets meet";
  EXPECT_THAT(topology.EdgeTriangles(1, 1), ElementsAre(0));
  EXPECT_THAT(topology.EdgeTriangles(2, 2), ElementsAre(1));
  EXPECT_THAT(topology.Ring(5), IsEmpty());
  EXPECT_THAT(topology.Triangles(5), IsEmpty());
  topology.Clear();
  EXPECT_EQ(topology.GetVertexCount(), 0);
}

TEST(Topology, CountsACornerThatIsNamedTwiceOnce) {
  TriMeshSTL mesh;
  mesh.GetVertices().assign(2, {});
  mesh.GetTriangles() = {{0, 1, 0}, {1, 1, 1}};
  Topology topology;
  topology.Build(mesh);
  EXPECT_THAT(topology.Triangles(0), ElementsAre(0));
  EXPECT_THAT(topology.Triangles(1), ElementsAre(0, 1));
  EXPECT_THAT(topology.Ring(0), ElementsAre(1));
  EXPECT_THAT(topology.Ring(1), ElementsAre(0));
  EXPECT_THAT(topology.EdgeTriangles(1, 0), ElementsAre(0));
}

/// Round every vertex of a closed surface stand as many neighbours as triangles, two at each edge,
/// and neighbours see each other.
TEST(Topology, OfAClosedSurface) {
  const TriMeshSTL mesh = MeshOf(host::MakeTorus({.segments = 12}));
  Topology topology;
  topology.Build(mesh);
  for (i32 v = 0; v < mesh.GetVertexCount(); ++v) {
    const auto ring = topology.Ring(v);
    EXPECT_EQ(ring.size(), topology.Triangles(v).size());
    for (std::size_t slot = 0; slot < ring.size(); ++slot) {
      EXPECT_EQ(topology.EdgeTriangles(v, static_cast<i32>(slot)).size(), 2u);
      EXPECT_THAT(topology.Ring(ring[slot]), testing::Contains(v));
    }
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
