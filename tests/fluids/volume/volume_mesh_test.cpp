#include "fluids/volume/volume_mesh.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numbers>

#include "fluids/mesh/mesh_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kMeshCell = 0.05;

struct BallRig : MeshRig {
  explicit BallRig(double radius = 50) : MeshRig(host::MakeIcosphere(4, radius), kMeshCell) {
    AddVolume();
  }
};

// ---- placement -------------------------------------------------------------------------------

TEST(VolumeMeshPlacement, SnapsThePaddedBoxToTheCellsOfTheWorld) {
  MeshRig rig(host::MakeBox({.size = {100, 52, 98}}), kMeshCell);
  rig.AddVolume();
  rig.Place({-31, 17, 400});
  rig.Frame(0);
  const VolumeMesh& volume = rig.GetVolume();
  ASSERT_TRUE(volume.Has(FLAG_ACTIVE));
  const GridLayout& layout = volume.GetGrid()->mLayout;
  EXPECT_EQ(volume.GetGrid()->Dims(), layout.dims + (VecInt3D{1, 1, 1}));
  EXPECT_EQ(layout.dims, volume.mCells);
  const double h = layout.cellSize;
  Vec3d low{1e9, 1e9, 1e9}, high{-1e9, -1e9, -1e9};
  rig.GetMesh().mMesh.ExpandBounds(low, high);
  for (int a = 0; a < 3; ++a) {
    EXPECT_NEAR(layout.simOrigin[a], volume.mBoxMin[a], 1e-9);
    EXPECT_NEAR(layout.simMax[a], volume.mBoxMax[a], 1e-9);
    EXPECT_NEAR(layout.simOrigin[a] / h, std::round(layout.simOrigin[a] / h), 1e-6);
    // Three cells of padding, and less than one more for the snap.
    const double below = (low[a] - layout.simOrigin[a]) / h;
    const double above = (layout.simMax[a] - high[a]) / h;
    EXPECT_TRUE(below > 3 - 1e-6 && below < 4 + 1e-6) << below;
    EXPECT_TRUE(above > 3 - 1e-6 && above < 4 + 1e-6) << above;
  }
  EXPECT_VEC(layout.worldOrigin, layout.simOrigin * 100.0, 1e-4);

  // Only with affects_bounds does the box widen the domain.
  EXPECT_FALSE(volume.Has(FLAG_AFFECTS_BOUNDS));
  rig.volumeNode->Set(1001, i32{1});
  rig.Frame(1);
  EXPECT_TRUE(volume.Has(FLAG_AFFECTS_BOUNDS));
  Vec3d min{1, 1, 1}, max{0, 0, 0};
  rig.GetVolume().ExpandBounds(min, max);
  EXPECT_EQ(min, Min(volume.mBoxMin, (Vec3d{1, 1, 1})));
  EXPECT_EQ(max, Max(volume.mBoxMax, (Vec3d{0, 0, 0})));
}

TEST(VolumeMeshPlacement, RefusesBoxesThatNoGridHolds) {
  struct Case {
    Vec3d scale;
    double padding;
    bool works;
  };
  for (const Case& c : {Case{{1, 1, 1}, 3, true},
                        {{1, 0, 1}, 3, true},
                        {{1, 0, 1}, 0, true},
                        {{0, 0, 0}, 0, true},
                        {{1e4, 1e4, 1e4}, 3, false},
                        {{1e200, 1, 1}, 3, false},
                        {{1e308, 1e308, 1e308}, 3, false}}) {
    MeshRig rig(host::MakeBox({}), kMeshCell);
    rig.AddVolume();
    rig.Place({}, {}, c.scale);
    rig.volumeNode->Set(1008, static_cast<i32>(c.padding));
    for (i32 frame = 0; frame < 3; ++frame) rig.Frame(frame);
    EXPECT_EQ(rig.GetVolume().Has(FLAG_ACTIVE), c.works) << c.scale.x << " " << c.scale.y;
    EXPECT_EQ(rig.GetVolume().HasGridData(), c.works);
  }
}

TEST(VolumeMeshLinks, WithoutAMeshNothingIsInside) {
  BallRig rig;
  rig.volumeNode->Set(1003, host::Link{});
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  EXPECT_FALSE(volume.Has(FLAG_ACTIVE));
  EXPECT_STREQ(volume.mInactiveReason, "it has no mesh; name one under 'mesh'");
  const Vec3d p{};
  Vec3d moved = p, cell, normal;
  SurfaceRecord record;
  EXPECT_EQ(volume.DistanceAtWorld(p), 0.0);
  EXPECT_FALSE(volume.IsInBounds(p));
  EXPECT_FALSE(volume.IsInsideWorld(p, 1e9f));
  EXPECT_FALSE(volume.PushOut(moved, true, 0.1));
  EXPECT_FALSE(volume.PushOutGrid(moved, cell, normal, 0.1));
  EXPECT_FALSE(volume.ClosestSurface(p, record, 0));
  EXPECT_EQ(volume.GradientAtWorld(p), Vec3d{});
  EXPECT_EQ(volume.TriangleNormalAt(0), (Vec3d{0, 1, 0}));

  rig.volumeNode->Set(1003, host::Link{rig.meshNode->Id()});
  rig.Frame(1);
  EXPECT_TRUE(volume.Has(FLAG_ACTIVE) && volume.IsInsideWorld(p));
  rig.object->SetGeometry({});
  rig.Frame(2);
  EXPECT_FALSE(volume.Has(FLAG_ACTIVE) || volume.HasGridData());
  EXPECT_STREQ(volume.mInactiveReason, "its mesh has no polygons");
}

// ---- when it is measured ---------------------------------------------------------------------

TEST(VolumeMeshDirt, MeasuresAgainOnlyWhatChanged) {
  BallRig rig;
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  // A value that only a new measurement would overwrite.
  auto isMeasured = [&, last = i32{0}](auto&& change) mutable {
    (*volume.GetGrid())[0] = 12345;
    change();
    rig.Frame(++last);
    return (*volume.GetGrid())[0] != 12345;
  };
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(isMeasured([] {})) << i;
  EXPECT_TRUE(isMeasured([&] { rig.Place({1, 0, 0}); }));
  EXPECT_FALSE(isMeasured([] {})) << "the mesh settles, its surface is the same";
  EXPECT_TRUE(isMeasured([&] { rig.object->SetGeometry(host::MakeIcosphere(3, 40)); }));
  EXPECT_TRUE(isMeasured([&] { rig.volumeNode->Set(1008, i32{5}); }));
  EXPECT_TRUE(isMeasured([&] { rig.volumeNode->Set(1006, 0.5); }));
  EXPECT_TRUE(isMeasured([&] { rig.volumeNode->Set(1007, i32{1}); }));
  EXPECT_FALSE(isMeasured([&] { rig.volumeNode->Set(1010, i32{1}); }));
  EXPECT_TRUE(isMeasured([&] { rig.server->Set(1002, 0.04); }));
  EXPECT_TRUE(isMeasured([&] { rig.server->Set(1000, 50.0); }));
  EXPECT_FALSE(isMeasured([] {}));
}

TEST(VolumeMeshDirt, FollowsAMovingMeshInTheMemoryThatItHas) {
  BallRig rig;
  rig.Frame(0);
  const double* data = rig.GetVolume().GetGrid()->mData;
  for (i32 frame = 1; frame < 6; ++frame) {
    rig.Place({100.0 * kMeshCell * frame, 0, -200.0 * kMeshCell * frame});
    rig.Frame(frame);
    const Vec3d centre{kMeshCell * frame, 0, -2 * kMeshCell * frame};
    EXPECT_NEAR(rig.GetVolume().DistanceAtWorld(centre + Vec3d{0.45, 0, 0}), -0.05, 2e-3);
    EXPECT_EQ(rig.GetVolume().GetGrid()->mData, data) << "whole cells: the size is the same";
  }
}

TEST(VolumeMesh, IsTheSameWithOneThreadAndTwo) {
  std::vector<double> values[2];
  for (const i32 threads : {1, 2}) {
    host::SetThreadCount(threads);
    BallRig rig(60);
    rig.Place({3, 5, 7}, {10, 20, 30}, {1, 1.3, 0.7});
    rig.Frame(0);
    const EGrid<double>& g = *rig.GetVolume().GetGrid();
    values[threads - 1].assign(g.mData, g.mData + g.mCount);
  }
  host::SetThreadCount(0);
  ASSERT_EQ(values[0].size(), values[1].size());
  EXPECT_EQ(std::memcmp(values[0].data(), values[1].data(), 8 * values[0].size()), 0);
}

// ---- content ---------------------------------------------------------------------------------

double Total(const EGrid<float>& grid) {
  double sum = 0;
  for (i32 i = 0; i < grid.mCount; ++i) sum += grid[i];
  return sum;
}
constexpr double BallVolume(double r) { return 4.0 / 3.0 * std::numbers::pi * r * r * r; }

TEST(VolumeContent, CellFractionsAndVoxelsHaveTheVolumeOfABall) {
  BallRig rig;
  rig.Place({3, -4, 7});
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  const double cube = kMeshCell * kMeshCell * kMeshCell;
  for (const FractionMethod method : {FractionMethod::Tetrahedra, FractionMethod::Sampled}) {
    const Grid_VolumeFractions* fractions = volume.GetFractions(kFractionCell, method);
    ASSERT_NE(fractions, nullptr);
    const double tolerance = method == FractionMethod::Sampled ? 0.02 : 0.01;
    EXPECT_NEAR(Total(*fractions->GetRead(0, 0)) * cube / BallVolume(0.5), 1, tolerance);
  }
  EXPECT_NEAR(volume.VoxelVolume() / BallVolume(0.5), 1, 0.015);
}

TEST(VolumeContent, FacesAcrossABallHaveItsCrossSection) {
  BallRig rig;
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  const Grid_VolumeFractions* fractions = volume.GetFractions(kFractionFaces);
  ASSERT_NE(fractions, nullptr);
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<float>& faces = *fractions->GetRead(axis, 1);
    // The nodes lie on multiples of the cell size: the middle layer runs through the centre.
    CellBox box{{0, 0, 0}, faces.Dims()};
    box.min[axis] = static_cast<i32>(std::lround(-volume.mBoxMin[axis] / kMeshCell));
    box.max[axis] = box.min[axis] + 1;
    double area = 0;
    ForEachCell(box, [&](i32 x, i32 y, i32 z) { area += faces(x, y, z); });
    EXPECT_NEAR(area * kMeshCell * kMeshCell, std::numbers::pi * 0.25, 0.005) << axis;
  }
}

TEST(VolumeContent, IsMeasuredOnDemandAndAnewWhenTheGridChanged) {
  BallRig rig;
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  const auto sum = [&] { return Total(*volume.GetFractions(kFractionCell)->GetRead(0, 0)); };
  const double first = sum();
  rig.Frame(1);
  volume.GetFractions(kFractionCell)->GetWrite(0, 0)->Fill(0.0f);
  EXPECT_EQ(sum(), 0) << "not measured again for the same grid";
  rig.Place({0, 0, 0}, {}, {0.5, 0.5, 0.5});
  rig.Frame(2);
  EXPECT_NEAR(sum() / first, 0.125, 0.01);
  rig.volumeNode->Set(1007, i32{1});
  rig.Frame(3);
  const double cells = volume.GetGrid()->mLayout.count;
  EXPECT_NEAR((cells - sum()) / first, 0.125, 0.01) << "inverted: all but the ball";
  rig.volumeNode->Set(1003, host::Link{});
  rig.Frame(4);
  EXPECT_EQ(volume.GetFractions(kFractionCell), nullptr);
  EXPECT_EQ(volume.VoxelVolume(), 0);
}

TEST(VolumeContent, OfAShellIsItsSkin) {
  BallRig rig;
  rig.volumeNode->Set(1006, 0.4);
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  const double inner = 0.5 - 0.4 * volume.mMaximumDistance;
  const double wanted = BallVolume(0.5) - BallVolume(inner);
  const double cube = kMeshCell * kMeshCell * kMeshCell;
  EXPECT_NEAR(Total(*volume.GetFractions(kFractionCell)->GetRead(0, 0)) * cube / wanted, 1, 0.02);
  EXPECT_NEAR(volume.VoxelVolume() / wanted, 1, 0.03);
  // Deepest in the middle of the skin, with a surface on either side.
  EXPECT_NEAR(volume.DistanceAtWorld({(0.5 + inner) / 2, 0, 0}), (inner - 0.5) / 2, 0.01);
  EXPECT_NEAR(volume.DistanceAtWorld({0, inner, 0}), 0, 0.01);
  EXPECT_GT(volume.DistanceAtWorld({0, 0, 0}), 0.2);
  Vec3d p{0, 0, inner + 0.03};
  ASSERT_TRUE(volume.PushOut(p, true, 0));
  EXPECT_NEAR(p.z, inner, 0.01) << "out of the skin to its nearer side";
}

TEST(VolumeContent, OfAnInvertedVolumeIsWhatTheMeshLeavesFree) {
  BallRig rig;
  rig.volumeNode->Set(1007, i32{1});
  rig.Frame(0);
  const VolumeMesh& volume = rig.GetVolume();
  EXPECT_FALSE(volume.IsInsideWorld({0.1, 0, 0}));
  EXPECT_TRUE(volume.IsInsideWorld({0, 0.6, 0}));
  EXPECT_NEAR(volume.DistanceAtWorld({0, 0.56, 0}), -0.06, 3e-3);
  EXPECT_NEAR(volume.DistanceAtWorld({0, 0, 0.3}), 0.2, 3e-3);
  Vec3d p{0, 0.56, 0};
  ASSERT_TRUE(volume.PushOut(p, true, 0));
  EXPECT_VEC(p, (Vec3d{0, 0.5, 0}), 3e-3);
  SurfaceRecord record;
  ASSERT_TRUE(volume.ClosestSurface({0.57, 0, 0}, record, 0));
  EXPECT_VEC(record.normal, (Vec3d{-1, 0, 0}), 0.02);
}

// ---- point operations ------------------------------------------------------------------------

TEST(VolumePoints, DistancesInThreeFramesAgree) {
  BallRig rig;
  rig.Place({-40, 0, 25});
  rig.Frame(0);
  const VolumeMesh& volume = rig.GetVolume();
  const GridLayout& layout = volume.GetGrid()->mLayout;
  const Vec3d centre{-0.4, 0, 0.25};
  for (const Vec3d& off : {Vec3d{0.3, 0, 0}, {0, 0.52, 0.1}, {0.2, -0.2, 0.3}}) {
    const Vec3d p = centre + off;
    const double d = volume.DistanceAtWorld(p);
    EXPECT_NEAR(d, Length(off) - 0.5, 3e-3);
    EXPECT_NEAR(volume.DistanceAtRelative(p - layout.simOrigin), d, 1e-12);
    EXPECT_NEAR(volume.DistanceAtGrid(layout.ToCells(p)), d, 1e-12);
    EXPECT_VEC(volume.GradientAtWorld(p), Normalised(off), 0.05);
    EXPECT_VEC(volume.GradientAtRelative(p - layout.simOrigin), volume.GradientAtWorld(p), 1e-9);
    EXPECT_EQ(volume.IsInsideWorld(p), d < 0);
    EXPECT_TRUE(volume.IsInsideWorld(p, static_cast<f32>(d + 0.01)));
    EXPECT_FALSE(volume.IsInsideWorld(p, static_cast<f32>(d - 0.01)));
    EXPECT_NEAR(volume.DepthWorld(p), std::abs(d) / volume.mMaximumDistance, 1e-12);
  }
  EXPECT_NEAR(volume.mMaximumDistance, 0.5, kMeshCell);
  EXPECT_TRUE(volume.IsInBounds(volume.mBoxMin));
  EXPECT_FALSE(volume.IsInBounds(volume.mBoxMax));
}

TEST(VolumePoints, PushOutEndsShortOfTheSurface) {
  BallRig rig;
  rig.Frame(0);
  const VolumeMesh& volume = rig.GetVolume();
  const Vec3d inside{0.3, 0.1, -0.2}, outside{0.6, 0, 0};
  const double margin = 0.2;
  Vec3d world = inside, byGrid = inside, cell, normal;
  ASSERT_TRUE(volume.PushOut(world, true, margin));
  EXPECT_NEAR(Length(world), 0.5 - margin * kMeshCell, 3e-3);
  EXPECT_VEC(Normalised(world), Normalised(inside), 0.02);
  Vec3d relative = inside - volume.GetGrid()->mLayout.simOrigin;
  ASSERT_TRUE(volume.PushOut(relative, false, margin));
  EXPECT_VEC(relative + volume.GetGrid()->mLayout.simOrigin, world, 1e-12);
  ASSERT_TRUE(volume.PushOutGrid(byGrid, cell, normal, margin));
  EXPECT_VEC(byGrid, world, 1e-12);
  EXPECT_VEC(cell, volume.GetGrid()->mLayout.ToCells(world), 1e-4);
  EXPECT_VEC(normal, Normalised(inside), 0.02);
  Vec3d still = outside;
  EXPECT_FALSE(volume.PushOut(still, true, margin));
  EXPECT_EQ(still, outside);
}

TEST(VolumePoints, ClosestSurfaceLiesOnIt) {
  BallRig rig;
  rig.Frame(0);
  const VolumeMesh& volume = rig.GetVolume();
  SurfaceRecord record;
  ASSERT_TRUE(volume.ClosestSurface({0.4, 0, 0}, record, 0));
  EXPECT_VEC(record.point, (Vec3d{0.5, 0, 0}), 3e-3);
  EXPECT_VEC(record.normal, (Vec3d{1, 0, 0}), 0.02);
  EXPECT_FALSE(volume.ClosestSurface({0.55, 0, 0}, record, 0));
  EXPECT_EQ(record.point, (Vec3d{0.55, 0, 0}));
  EXPECT_EQ(record.normal, (Vec3d{0, 1, 0}));
  EXPECT_TRUE(volume.ClosestSurface({0.55, 0, 0}, record, 0.1)) << "the surface 0.1 further out";
  EXPECT_NEAR(Length(record.point), 0.6, 3e-3);

  const EGrid<double>& grid = *volume.GetGrid();
  const VecInt3D n = TruncateNudged(grid.ToSamples({0, 0.55, 0}));
  EXPECT_VEC(volume.TriangleNormalAt(grid.Index(n.x, n.y, n.z)), (Vec3d{0, 1, 0}), 0.2);
  EXPECT_EQ(volume.TriangleNormalAt(grid.mCount), (Vec3d{0, 1, 0}));
}

TEST(VolumePoints, InsideIsToldInSinglePrecision) {
  BallRig rig;
  rig.Frame(0);
  VolumeMesh& volume = rig.GetVolume();
  volume.GetGrid()->Fill(-1e-50);
  EXPECT_FALSE(volume.IsInsideWorld({0, 0, 0}));
  volume.GetGrid()->Fill(-1e-30);
  EXPECT_TRUE(volume.IsInsideWorld({0, 0, 0}));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
