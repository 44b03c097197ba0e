#include <openvdb/openvdb.h>
#include <openvdb/points/PointConversion.h>

#include "host/exit_codes.h"
#include "io/point_table.h"
#include "io/points_writer.h"
#include "io/vdb_archive.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

namespace points = openvdb::points;

/// The values of a table column by column.
struct ColumnsOut {
  std::vector<std::vector<double>> numbers;
  std::vector<i32> ids;
  std::size_t at = 0;
  void Number(double value) { numbers[at++].push_back(value); }
  void Whole(i32 value) { ids.push_back(value); }
  void Byte(u8 value) { Number(value); }
  void EndRow() { at = 0; }
};

using Vectors = std::vector<openvdb::Vec3f>;

Vectors VectorsOf(const ColumnsOut& columns, std::size_t first) {
  Vectors vectors(columns.ids.size());
  for (std::size_t i = 0; i < vectors.size(); ++i)
    for (int a = 0; a < 3; ++a) vectors[i][a] = static_cast<float>(columns.numbers[first + a][i]);
  return vectors;
}

/// Adds attributes to points that lie in their voxels already.
class AttributeWriter {
 public:
  AttributeWriter(points::PointDataTree& tree, const openvdb::tools::PointIndexTree& index)
      : mTree(tree), mIndex(index) {}

  template <class T>
  void Add(const std::string& name, const std::vector<T>& values) {
    points::appendAttribute(mTree, name, points::TypedAttributeArray<T>::attributeType());
    points::populateAttribute(mTree, mIndex, name, points::PointAttributeVector<T>(values));
  }
  void AddNumbers(const std::string& name, const std::vector<double>& values) {
    Add<float>(name, {values.begin(), values.end()});
  }

 private:
  points::PointDataTree& mTree;
  const openvdb::tools::PointIndexTree& mIndex;
};

openvdb::GridBase::Ptr MakeGrid(const PointTable& table, double voxel) {
  ColumnsOut columns;
  std::size_t count = 6;
  table.ForEachColumn([&](const std::string&, bool) { ++count; });
  columns.numbers.resize(count);
  table.Write(columns);
  const auto transform = openvdb::math::Transform::createLinearTransform(voxel);
  std::vector<openvdb::Vec3d> positions(columns.ids.size());
  for (std::size_t i = 0; i < positions.size(); ++i)
    for (int a = 0; a < 3; ++a) positions[i][a] = columns.numbers[a][i];
  const points::PointAttributeVector<openvdb::Vec3d> wrapper(positions);
  const auto index =
      openvdb::tools::createPointIndexGrid<openvdb::tools::PointIndexGrid>(wrapper, *transform);
  const auto grid = points::createPointDataGrid<points::NullCodec, points::PointDataGrid>(
      *index, wrapper, *transform);
  if (columns.ids.empty()) return grid;
  AttributeWriter writer(grid->tree(), index->tree());
  writer.Add("v", VectorsOf(columns, 3));
  writer.Add("id", columns.ids);
  std::size_t at = 6;
  if (table.TellsKinds()) writer.AddNumbers("kind", columns.numbers[at++]);
  for (const PointProperty& property : table.Properties()) {
    if (property.components == 3) {
      writer.Add(property.name, VectorsOf(columns, at));
      at += 3;
    } else {
      writer.AddNumbers(property.name, columns.numbers[at++]);
    }
  }
  return grid;
}

}  // namespace

std::string EncodePointsVdb(const ParticleSet& particles, u32 kinds, double voxel,
                            const ExportOrigin& origin) {
  try {
    openvdb::initialize();
    const openvdb::GridBase::Ptr grid = MakeGrid(PointTable(particles, kinds), voxel);
    grid->setName("points");
    Describe(*grid, "m", origin);
    return EncodeArchive({grid});
  } catch (const openvdb::Exception& error) {
    throw CommandError(kExitFile, std::string("cannot make a point file: ") + error.what());
  }
}

}  // namespace MELDO_GLOBAL::app
