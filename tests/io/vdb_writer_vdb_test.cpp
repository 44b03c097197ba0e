#include <gtest/gtest.h>
#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetMeasure.h>

#include <fstream>

#include "io/vdb_writer.h"
#include "scene/command_files.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

/// Reads a file from the disk as other tools do.
openvdb::GridPtrVecPtr ReadBack(const std::string& bytes, const std::string& name) {
  const std::string path = testing::TempDir() + name;
  WriteFileAtomically(path, bytes);
  openvdb::io::File file(path);
  file.open();
  EXPECT_TRUE(file.hasBloscCompression());
  openvdb::GridPtrVecPtr grids = file.getGrids();
  file.close();
  return grids;
}

/// A grid of `kind` with its lower corner at cell `first`.
EGrid<double> MakeGrid(const VecInt3D& cells, const VecInt3D& first, f32 h, i32 kind) {
  GridLayout layout;
  const Vec3d host = ToReal(cells) * (100.0 * h);
  layout.Set(cells, host, h, ToReal(first) * (100.0 * h));
  return EGrid<double>(layout, kind);
}

Field FieldWith(Field::Kind kind, std::initializer_list<const EGrid<double>*> grids) {
  Field field;
  field.kind = kind;
  std::copy(grids.begin(), grids.end(), field.grids.begin());
  return field;
}

}  // namespace

TEST(VdbWriter, ScalarsKeepGlobalIndicesAndMetres) {
  const f32 h = 0.05f;
  EGrid<double> grid = MakeGrid({20, 11, 9}, {-13, 2, 5}, h, kCentre);
  for (i32 i = 0; i < grid.mCount; ++i) grid[i] = i % 3 == 0 ? 0.0 : 0.001 * i;
  const std::string bytes = EncodeVdb({{"density", FieldWith(Field::Kind::Scalar, {&grid})}});
  const auto grids = ReadBack(bytes, "scalar.vdb");
  ASSERT_EQ(grids->size(), 1u);
  const auto out = openvdb::gridPtrCast<openvdb::FloatGrid>(grids->front());
  ASSERT_TRUE(out);
  EXPECT_EQ(out->getName(), "density");
  EXPECT_EQ(out->getGridClass(), openvdb::GRID_FOG_VOLUME);
  EXPECT_EQ(out->background(), 0.0f);
  auto access = out->getConstAccessor();
  std::size_t active = 0;
  for (i32 z = 0; z < 9; ++z)
    for (i32 y = 0; y < 11; ++y)
      for (i32 x = 0; x < 20; ++x) {
        const openvdb::Coord c(x - 13, y + 2, z + 5);
        ASSERT_EQ(access.getValue(c), static_cast<float>(grid(x, y, z)));
        ASSERT_EQ(access.isValueOn(c), grid(x, y, z) != 0);
        active += grid(x, y, z) != 0;
      }
  EXPECT_EQ(out->activeVoxelCount(), active);
  const openvdb::Vec3d at = out->indexToWorld(openvdb::Coord(-13, 2, 5));
  const Vec3d expected = grid.PositionOf(0, 0, 0);
  EXPECT_NEAR(at.x(), expected.x, 1e-7);
  EXPECT_NEAR(at.y(), expected.y, 1e-7);
  EXPECT_NEAR(at.z(), expected.z, 1e-7);
}

TEST(VdbWriter, VolumesTellTheirOriginAndUnits) {
  const EGrid<double> grid = MakeGrid({8, 8, 8}, {0, 0, 0}, 0.1f, kCentre);
  Field field = FieldWith(Field::Kind::Scalar, {&grid});
  field.unit = "K";
  const auto grids =
      ReadBack(EncodeVdb({{"heat", field}}, {"1.2.3", -3, 0.25, 24, 0xabcdef}), "origin.vdb");
  const openvdb::GridBase& read = *grids->front();
  EXPECT_EQ(read.metaValue<std::string>("unit"), "K");
  EXPECT_EQ(read.metaValue<std::string>("length_unit"), "m");
  EXPECT_EQ(read.metaValue<openvdb::Int32>("frame"), -3);
  EXPECT_EQ(read.metaValue<double>("time"), 0.25);
  EXPECT_EQ(read.metaValue<double>("fps"), 24);
  EXPECT_EQ(read.metaValue<std::string>("version"), "1.2.3");
  EXPECT_EQ(read.metaValue<std::string>("fingerprint"), "0000000000abcdef");
}

TEST(VdbWriter, VelocityIsStaggeredWithItsHighFaces) {
  const VecInt3D cells{5, 4, 3};
  EGrid<double> u = MakeGrid(cells, {0, 0, -1}, 0.1f, kFaceX);
  EGrid<double> v = MakeGrid(cells, {0, 0, -1}, 0.1f, kFaceY);
  EGrid<double> w = MakeGrid(cells, {0, 0, -1}, 0.1f, kFaceZ);
  for (i32 i = 0; i < u.mCount; ++i) u[i] = 1 + i;
  for (i32 i = 0; i < v.mCount; ++i) v[i] = 1000 + i;
  for (i32 i = 0; i < w.mCount; ++i) w[i] = 2000 + i;
  const auto grids = ReadBack(EncodeVdb({{"vel", FieldWith(Field::Kind::Velocity, {&u, &v, &w})}}),
                              "velocity.vdb");
  const auto out = openvdb::gridPtrCast<openvdb::Vec3SGrid>(grids->front());
  ASSERT_TRUE(out);
  EXPECT_EQ(out->getGridClass(), openvdb::GRID_STAGGERED);
  EXPECT_EQ(out->getVectorType(), openvdb::VEC_CONTRAVARIANT_RELATIVE);
  auto access = out->getConstAccessor();
  EXPECT_EQ(access.getValue({2, 1, 1}),
            openvdb::Vec3s(static_cast<float>(u(2, 1, 2)), static_cast<float>(v(2, 1, 2)),
                           static_cast<float>(w(2, 1, 2))));
  EXPECT_EQ(access.getValue({5, 3, 1}), openvdb::Vec3s(static_cast<float>(u(5, 3, 2)), 0, 0));
  EXPECT_EQ(access.getValue({4, 4, 1})[1], static_cast<float>(v(4, 4, 2)));
  EXPECT_EQ(access.getValue({0, 0, 2})[2], static_cast<float>(w(0, 0, 3)));
  // The low x face of a voxel stands half a cell below its centre.
  const openvdb::Vec3d centre = out->indexToWorld(openvdb::Coord(2, 1, 1));
  EXPECT_NEAR(centre.x() - 0.05, u.PositionOf(2, 1, 2).x, 1e-7);
  EXPECT_NEAR(centre.y(), u.PositionOf(2, 1, 2).y, 1e-7);
}

TEST(VdbWriter, LevelSetsAreExactInTheBandAndSignedEverywhere) {
  const f32 h = 0.04f;
  EGrid<double> grid = MakeGrid({40, 40, 40}, {-20, -20, -20}, h, kNode);
  const double radius = 0.6;
  const auto distance = [&](const Vec3d& p) { return Length(p) - radius; };
  for (i32 z = 0; z <= 40; ++z)
    for (i32 y = 0; y <= 40; ++y)
      for (i32 x = 0; x <= 40; ++x) grid(x, y, z) = distance(grid.PositionOf(x, y, z));
  const Field field = FieldWith(Field::Kind::LevelSet, {&grid});
  const auto grids = ReadBack(EncodeVdb({{"ball", field}}), "level_set.vdb");
  const auto out = openvdb::gridPtrCast<openvdb::FloatGrid>(grids->front());
  ASSERT_TRUE(out);
  EXPECT_EQ(out->getGridClass(), openvdb::GRID_LEVEL_SET);
  EXPECT_FLOAT_EQ(out->background(), 3 * h);
  auto access = out->getConstAccessor();
  for (i32 z = -25; z <= 25; ++z)
    for (i32 y = -25; y <= 25; ++y)
      for (i32 x = -25; x <= 25; ++x) {
        const openvdb::Vec3d at = out->indexToWorld(openvdb::Coord(x, y, z));
        const double d = distance({at.x(), at.y(), at.z()});
        const double limited = std::clamp(d, -3.0 * h, 3.0 * h);
        ASSERT_NEAR(access.getValue({x, y, z}), limited, 1e-6) << x << ' ' << y << ' ' << z;
      }
  // OpenVDB's own measure agrees, which it does only for a sound narrow band.
  EXPECT_NEAR(openvdb::tools::levelSetVolume(*out), 4.0 / 3 * M_PI * std::pow(radius, 3), 0.005);

  for (i32 i = 0; i < grid.mCount; ++i) grid[i] = -grid[i];
  const auto inverted = openvdb::gridPtrCast<openvdb::FloatGrid>(
      ReadBack(EncodeVdb({{"hole", field}}), "inverted.vdb")->front());
  EXPECT_LT(inverted->getConstAccessor().getValue({1000, 0, 0}), 0);
  EXPECT_GT(inverted->getConstAccessor().getValue({0, 0, 0}), 0);
}

TEST(VdbWriter, LevelSetOfSeveralGridsIsTheirUnion) {
  const f32 h = 0.1f;
  const auto ball = [&](const VecInt3D& first, const Vec3d& centre, double sign) {
    EGrid<double> grid = MakeGrid({13, 13, 13}, first, h, kNode);
    for (i32 z = 0; z <= 13; ++z)
      for (i32 y = 0; y <= 13; ++y)
        for (i32 x = 0; x <= 13; ++x)
          grid(x, y, z) = sign * (Length(grid.PositionOf(x, y, z) - centre) - 0.35);
    return grid;
  };
  const Vec3d at[] = {{0, 0, 0}, {0.4, 0.1, 0}, {3, 0, 0}};
  const EGrid<double> near = ball({-7, -6, -6}, at[0], 1), beside = ball({-2, -5, -7}, at[1], 1),
                      far = ball({24, -6, -6}, at[2], 1), room = ball({-6, -6, -6}, at[0], -1);
  const auto read = [&](std::vector<const EGrid<double>*> parts) {
    Field field = FieldWith(Field::Kind::LevelSet, {parts.front()});
    field.others.assign(parts.begin() + 1, parts.end());
    return openvdb::gridPtrCast<openvdb::FloatGrid>(
        ReadBack(EncodeVdb({{"parts", field}}), "union.vdb")->front());
  };
  const auto expect = [&](const openvdb::FloatGrid& grid, auto&& distance) {
    auto access = grid.getConstAccessor();
    for (i32 z = -12; z <= 12; ++z)
      for (i32 y = -12; y <= 12; ++y)
        for (i32 x = -12; x <= 40; ++x) {
          const Vec3d p{x * h, y * h, z * h};
          ASSERT_NEAR(access.getValue({x, y, z}), std::clamp(distance(p), -3.0 * h, 3.0 * h), 1e-6)
              << x << ' ' << y << ' ' << z;
        }
  };
  const auto to = [&](const Vec3d& p, int i) { return Length(p - at[i]) - 0.35; };
  const auto three = read({&near, &beside, &far});
  expect(*three, [&](const Vec3d& p) { return std::min({to(p, 0), to(p, 1), to(p, 2)}); });
  EXPECT_GT(three->background(), 0);
  // A room with a ball in it: all is solid but what lies in the room beside the ball.
  const auto inside = read({&room, &beside});
  expect(*inside, [&](const Vec3d& p) { return std::min(-to(p, 0), to(p, 1)); });
  EXPECT_LT(inside->background(), 0);
}

TEST(VdbWriter, EqualFieldsAreEqualFilesAndOthersDiffer) {
  EGrid<double> grid = MakeGrid({8, 8, 8}, {0, 0, 0}, 0.1f, kCentre);
  grid(3, 4, 5) = 0.5;
  const Field field = FieldWith(Field::Kind::Scalar, {&grid});
  const std::string first = EncodeVdb({{"a", field}, {"b", field}});
  EXPECT_EQ(first, EncodeVdb({{"a", field}, {"b", field}}));
  grid(3, 4, 5) = 0.25;
  const std::string other = EncodeVdb({{"a", field}, {"b", field}});
  EXPECT_NE(first, other);
  // Readers tell files apart by the identifier in the header.
  openvdb::io::File a(testing::TempDir() + "a.vdb"), b(testing::TempDir() + "b.vdb");
  WriteFileAtomically(a.filename(), first);
  WriteFileAtomically(b.filename(), other);
  a.open();
  b.open();
  EXPECT_NE(a.getUniqueTag(), b.getUniqueTag());
  EXPECT_EQ(a.getUniqueTag().size(), 36u);
}

TEST(VdbWriter, FieldWithoutGridIsAnEmptyVolume) {
  Field field;
  field.cellSize = 0.2f;
  const auto grids = ReadBack(EncodeVdb({{"smoke", field}}), "empty.vdb");
  ASSERT_EQ(grids->size(), 1u);
  EXPECT_EQ(grids->front()->getName(), "smoke");
  EXPECT_TRUE(grids->front()->empty());
  EXPECT_NEAR(grids->front()->voxelSize().x(), 0.2f, 1e-12);
}
