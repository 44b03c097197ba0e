// Points of the volume library, in blocks of voxels: numbers of 32 bits, or of 64 where those that
// are there need them.
#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>
#include <openvdb/points/PointConversion.h>

#include <algorithm>
#include <cmath>
#include <istream>
#include <memory>
#include <set>
#include <sstream>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/vdb_archive.h"

namespace MELDO_GLOBAL::exchange {

namespace {

namespace points = openvdb::points;

/// Rows of a column as values of the library.
template <class T>
std::vector<T> ValuesOf(const ParticleColumn& column, i64 count) {
  std::vector<T> values(static_cast<std::size_t>(count));
  // By way of a double whole numbers would lose digits.
  std::visit(
      [&](const auto& list) {
        for (std::size_t i = 0; i < values.size(); ++i) {
          if constexpr (openvdb::VecTraits<T>::IsVec) {
            for (std::size_t a = 0; a < 3; ++a)
              values[i][static_cast<int>(a)] = static_cast<typename T::ValueType>(list[3 * i + a]);
          } else {
            values[i] = static_cast<T>(list[i]);
          }
        }
      },
      column.values);
  return values;
}

/// Calls f with a value of the type that a column has in the file.
template <class F>
void WithAttributeType(const ParticleColumn& column, F&& f) {
  const bool isWhole = column.Type() == ValueType::I32 || column.Type() == ValueType::I64;
  const bool isShort = CountMisfits(column, Stored::F32) == 0;
  if (column.components == 3)
    isShort ? f(openvdb::Vec3f()) : f(openvdb::Vec3d());
  else if (isWhole)
    NeedsWide(column) ? f(openvdb::Int64()) : f(openvdb::Int32());
  else
    isShort ? f(float()) : f(double());
}

/// Adds attributes to points that lie in their voxels already.
class AttributeWriter {
 public:
  AttributeWriter(points::PointDataTree& tree, const openvdb::tools::PointIndexTree& index,
                  i64 count)
      : mTree(tree), mIndex(index), mCount(count) {}

  void Add(const std::string& name, const ParticleColumn& column) {
    WithAttributeType(column,
                      [&](auto zero) { Populate(name, ValuesOf<decltype(zero)>(column, mCount)); });
  }

 private:
  template <class T>
  void Populate(const std::string& name, const std::vector<T>& values) {
    points::appendAttribute(mTree, name, points::TypedAttributeArray<T>::attributeType());
    points::populateAttribute(mTree, mIndex, name, points::PointAttributeVector<T>(values));
  }

  points::PointDataTree& mTree;
  const openvdb::tools::PointIndexTree& mIndex;
  i64 mCount;
};

/// How wide the middle of all particles is, four fifths of them, in the direction in which it is
/// widest. A few that are far off don't count.
double MiddleOf(const ParticleTable& table, const ParticleColumn& position) {
  constexpr i64 kMostAsked = 10000;
  const i64 stride = std::max<i64>(1, table.Count() / kMostAsked);
  double widest = 0;
  for (int a = 0; a < 3; ++a) {
    std::vector<double> places;
    for (i64 i = 0; i < table.Count(); i += stride) places.push_back(position.At(i, a));
    std::sort(places.begin(), places.end());
    const std::size_t rim = places.size() / 10;
    if (!places.empty()) widest = std::max(widest, places[places.size() - 1 - rim] - places[rim]);
  }
  return widest;
}

/// Voxels with some eight particles, where nobody says how far they stand apart; large enough for
/// the library to count them to the farthest one.
double VoxelFor(const ParticleTable& table, const ParticleColumn& position) {
  constexpr double kMostVoxels = 0x1p30;
  double voxel = table.spacing, farthest = 0;
  for (i64 i = 0; i < 3 * table.Count(); ++i)
    farthest = std::max(farthest, std::abs(position.At(i / 3, static_cast<int>(i % 3))));
  if (!(voxel > 0)) {
    const double middle = MiddleOf(table, position);
    const double blocks = std::cbrt(std::max(1.0, static_cast<double>(table.Count()) / 8));
    voxel = middle > 0 ? middle / blocks : 1.0;
  }
  return std::max(voxel, farthest / kMostVoxels);
}

constexpr const char* kColumnsOfNone = "columns";

/// The names of the attributes of all columns, each different from the others.
std::vector<std::string> AttributeNames(const ParticleTable& table) {
  // The places have the first, and what all readers look for keeps the second.
  std::set<std::string> taken = {"P", "v"};
  std::vector<std::string> names;
  for (const ParticleColumn& column : table.Columns()) {
    const bool isKnown = column.name == "position" || column.name == "velocity";
    names.push_back(isKnown ? (column.name == "velocity" ? "v" : "P")
                            : FreeName(taken, PlainName(column.name)));
  }
  return names;
}

/// Points have attributes by the blocks that they are in: without any the file tells which columns
/// there would be.
void DescribeColumns(openvdb::GridBase& grid, const ParticleTable& table) {
  std::string text;
  const std::vector<std::string> names = AttributeNames(table);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    if (column.name != "position" && (column.components == 1 || column.components == 3))
      WithAttributeType(column, [&](auto zero) {
        text += names[i] + " " + openvdb::typeNameAsString<decltype(zero)>() + " ";
      });
  }
  grid.insertMeta(kColumnsOfNone, openvdb::StringMetadata(text));
}

openvdb::GridBase::Ptr MakePointGrid(WriteJob& job) {
  const ParticleTable& table = job.table;
  const ParticleColumn& position = table.Columns()[PositionColumn(table)];
  const auto transform = openvdb::math::Transform::createLinearTransform(VoxelFor(table, position));
  const std::vector<openvdb::Vec3d> places = ValuesOf<openvdb::Vec3d>(position, table.Count());
  const points::PointAttributeVector<openvdb::Vec3d> wrapper(places);
  const auto index =
      openvdb::tools::createPointIndexGrid<openvdb::tools::PointIndexGrid>(wrapper, *transform);
  const auto grid = points::createPointDataGrid<points::NullCodec, points::PointDataGrid>(
      *index, wrapper, *transform);
  if (places.empty()) DescribeColumns(*grid, table);
  AttributeWriter writer(grid->tree(), index->tree(), table.Count());
  const std::vector<std::string> names = AttributeNames(table);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    if (&column == &position) continue;
    if (column.components != 1 && column.components != 3)
      job.report.lost.push_back(column.name);
    else if (!places.empty())
      writer.Add(names[i], column);
  }
  return grid;
}

void WriteVdbPoints(WriteJob& job) {
  try {
    openvdb::initialize();
    const openvdb::GridBase::Ptr grid = MakePointGrid(job);
    grid->setName("points");
    std::vector<Remark> remarks = job.table.remarks;
    std::erase_if(remarks, [](const Remark& remark) { return remark.first == "comment"; });
    Describe(*grid, remarks);
    job.sink.Append(EncodeArchive({grid}));
  } catch (const openvdb::Exception& error) {
    Damaged(std::string("cannot make a point file: ") + error.what());
  }
}

// ---- reading ------------------------------------------------------------------------------------

/// Values of an attribute in one block, whatever their type there.
template <class Stored, class Value>
void CopyAttribute(const points::AttributeArray& array, std::vector<Value>& to, std::size_t row,
                   int components) {
  const points::AttributeHandle<Stored> handle(array);
  for (openvdb::Index i = 0; i < array.size(); ++i) {
    const Stored value = handle.get(i);
    Value* at = to.data() + (row + i) * components;
    if constexpr (openvdb::VecTraits<Stored>::IsVec) {
      for (int a = 0; a < 3; ++a) at[a] = static_cast<Value>(value[a]);
    } else {
      *at = static_cast<Value>(value);
    }
  }
}

struct VdbAttribute {
  std::size_t position;  ///< in the blocks
  std::size_t column;
  std::string type;
};

template <class Stored>
void CopyFor(const points::AttributeArray& array, ParticleColumn& column, std::size_t row) {
  std::visit([&](auto& list) { CopyAttribute<Stored>(array, list, row, column.components); },
             column.values);
}

void CopyByType(const std::string& type, const points::AttributeArray& array,
                ParticleColumn& column, std::size_t row) {
  if (type == "float") CopyFor<float>(array, column, row);
  if (type == "double") CopyFor<double>(array, column, row);
  if (type == "int32") CopyFor<i32>(array, column, row);
  if (type == "int64") CopyFor<openvdb::Int64>(array, column, row);
  if (type == "vec3s") CopyFor<openvdb::Vec3s>(array, column, row);
  if (type == "vec3d") CopyFor<openvdb::Vec3d>(array, column, row);
}

/// The column for values of a type of the library; false for a type that none takes.
bool AddColumnFor(ParticleTable& table, const std::string& name, const std::string& type) {
  const bool isVector = type.starts_with("vec3");
  ValueType own = ValueType::F32;
  if (type == "double" || type == "vec3d")
    own = ValueType::F64;
  else if (type == "int32")
    own = ValueType::I32;
  else if (type == "int64")
    own = ValueType::I64;
  else if (type != "float" && type != "vec3s")
    return false;
  AddFromFile(table, name, own, isVector ? 3 : 1);
  return true;
}

void CopyPositions(const points::PointDataGrid& grid,
                   const points::PointDataTree::LeafNodeType& leaf, f64* to) {
  const points::AttributeHandle<openvdb::Vec3f> handle(leaf.constAttributeArray("P"));
  for (auto i = leaf.beginIndexOn(); i; ++i) {
    const openvdb::Vec3d place =
        grid.transform().indexToWorld(handle.get(*i) + i.getCoord().asVec3d());
    for (int a = 0; a < 3; ++a) to[3 * *i + a] = place[a];
  }
}

/// Which attributes the first block has, and columns for them.
std::vector<VdbAttribute> AddColumns(const points::AttributeSet& set, ParticleTable& table) {
  std::vector<VdbAttribute> attributes;
  for (const auto& [name, place] : set.descriptor().map()) {
    if (name == "P" || set.descriptor().hasGroup(name)) continue;
    const std::string type = set.getConst(place)->type().first;
    if (AddColumnFor(table, name, type))
      attributes.push_back({place, table.Columns().size() - 1, type});
    else
      table.warnings.push_back("the attribute '" + name + "' has a type that is left out");
  }
  return attributes;
}

/// What our own files say of where they come from.
void TakeRemarks(const points::PointDataGrid& grid, ParticleTable& table) {
  for (const char* key :
       {"version", "fingerprint", "frame", "time", "fps", "unit", "length_unit"}) {
    if (const auto text = grid.getMetadata<openvdb::StringMetadata>(key))
      table.remarks.emplace_back(key, text->value());
    if (const auto whole = grid.getMetadata<openvdb::Int32Metadata>(key))
      table.remarks.emplace_back(key, whole->value());
    if (const auto real = grid.getMetadata<openvdb::DoubleMetadata>(key))
      table.remarks.emplace_back(key, real->value());
  }
}

void AddColumnsOfNone(const points::PointDataGrid& grid, ParticleTable& table) {
  const auto columns = grid.getMetadata<openvdb::StringMetadata>(kColumnsOfNone);
  std::istringstream words(columns ? columns->value() : std::string());
  for (std::string name, type; words >> name >> type;) AddColumnFor(table, name, type);
}

void TakeGrid(const points::PointDataGrid& grid, ParticleTable& table) {
  i64 count = 0;
  auto leaf = grid.tree().cbeginLeaf();
  const points::AttributeSet* first = leaf ? &leaf->attributeSet() : nullptr;
  for (; leaf; ++leaf) {
    if (leaf->attributeSet().descriptor() != first->descriptor())
      Damaged("its blocks have different attributes");
    leaf->validateOffsets();
    count += leaf->attributeSet().size() > 0
                 ? static_cast<i64>(leaf->attributeSet().getConst(0)->size())
                 : 0;
  }
  table.SetCount(count);
  table.spacing = grid.voxelSize()[0];
  TakeRemarks(grid, table);
  auto& positions = std::get<std::vector<f64>>(table.Add("position", ValueType::F64, 3).values);
  if (!first) return AddColumnsOfNone(grid, table);
  // A further column may move the first one, but not its values.
  f64* places = positions.data();
  const std::vector<VdbAttribute> attributes = AddColumns(*first, table);
  std::size_t row = 0;
  for (leaf = grid.tree().cbeginLeaf(); leaf; ++leaf) {
    CopyPositions(grid, *leaf, places + 3 * row);
    for (const VdbAttribute& attribute : attributes)
      CopyByType(attribute.type, *leaf->attributeSet().getConst(attribute.position),
                 table.Columns()[attribute.column], row);
    row += leaf->attributeSet().getConst(0)->size();
  }
}

/// A source as a stream of the language, which the library reads.
class SourceBuffer : public std::streambuf {
 public:
  explicit SourceBuffer(ByteSource& source) : mSource(source) {}

 private:
  int_type underflow() override {
    const std::size_t count = mSource.ReadUpTo(mBlock, sizeof mBlock);
    setg(mBlock, mBlock, mBlock + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(mBlock[0]);
  }

  ByteSource& mSource;
  char mBlock[1 << 16];
};

void ReadGrids(ByteSource& source, ParticleTable& table) {
  openvdb::initialize();
  const auto buffer = std::make_unique<SourceBuffer>(source);
  std::istream bytes(buffer.get());
  // The library never asks whether a read succeeded.
  bytes.exceptions(std::ios::failbit | std::ios::badbit | std::ios::eofbit);
  openvdb::io::Stream stream(bytes, /*delayLoad=*/false);
  const openvdb::GridPtrVecPtr grids = stream.getGrids();
  const points::PointDataGrid* found = nullptr;
  for (const auto& grid : *grids)
    if (const auto* some = dynamic_cast<const points::PointDataGrid*>(grid.get())) {
      if (found) table.warnings.push_back("the grid '" + grid->getName() + "' is left out");
      if (!found) found = some;
    }
  if (!found) Damaged("it holds no points");
  TakeGrid(*found, table);
}

void ReadVdbPoints(ByteSource& source, ParticleTable& table) {
  if (StateOfArchive(source) == ArchiveState::Damaged)
    Damaged("it is damaged: its content isn't what it was written with");
  try {
    ReadGrids(source, table);
  } catch (const std::ios_base::failure&) {
    Damaged("it ends too early");
  } catch (const openvdb::Exception& error) {
    Damaged(error.what());
  }
}

}  // namespace

const ParticleFormat& VdbPointsFormat() {
  static const ParticleFormat format = {
      .name = "vdb",
      .extensions = {".vdb"},
      .begins = [](std::string_view head) { return head.starts_with(" BDV"); },
      .read = ReadVdbPoints,
      .write = WriteVdbPoints};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
