#include <fmt/format.h>
#include <openvdb/io/Archive.h>
#include <openvdb/io/GridDescriptor.h>
#include <openvdb/openvdb.h>

#include <fstream>
#include <new>
#include <stdexcept>

#include "exchange/vdb_archive.h"
#include "host/atomic_file.h"
#include "io/vdb_info.h"

namespace MELDO_GLOBAL::app {

namespace {

std::string OriginOf(const openvdb::GridBase& grid) {
  std::string text;
  for (const auto& [key, format] : {std::pair{"unit", "values in {}"},
                                    {"frame", "frame {}"},
                                    {"time", "{} s"},
                                    {"fps", "{} frames a second"},
                                    {"version", "sulva {}"},
                                    {"fingerprint", "simulation {}"}}) {
    const openvdb::Metadata::ConstPtr meta = grid[key];
    if (!meta) return {};
    text += (text.empty() ? "" : ", ") + fmt::format(fmt::runtime(format), meta->str());
  }
  return text;
}

VdbGridInfo InfoOf(const openvdb::GridBase& grid) {
  VdbGridInfo info;
  info.name = grid.getName();
  info.type = grid.valueType();
  info.kind = openvdb::GridBase::gridClassToString(grid.getGridClass());
  info.voxelSize = grid.voxelSize()[0];
  const auto low = grid.getMetadata<openvdb::Vec3IMetadata>("file_bbox_min");
  const auto high = grid.getMetadata<openvdb::Vec3IMetadata>("file_bbox_max");
  if (low && high) {
    const openvdb::Vec3i a = low->value(), b = high->value();
    info.min = {a[0], a[1], a[2]};
    info.max = {b[0], b[1], b[2]};
    info.hasBox = true;
  }
  if (const auto count = grid.getMetadata<openvdb::Int64Metadata>("file_voxel_count"))
    info.voxels = count->value();
  info.origin = OriginOf(grid);
  return info;
}

/// The parts of the library's reader that tell where the grids of a file lie.
struct Index : openvdb::io::Archive {
  using Archive::inputHasGridOffsets;
  using Archive::readGridCount;
  using Archive::readHeader;
  using Archive::setFormatVersion;
};

/// Throws `std::ios_base::failure` when a file was cut. The library never asks whether a read
/// succeeded: it would go on with whatever its variables held. A stream that throws stops it at the
/// first missing byte; the grids themselves, where that would leak, aren't read here.
void ExpectWhole(const std::filesystem::path& path) {
  std::ifstream bytes(path, std::ios::binary);
  bytes.exceptions(std::ios::failbit | std::ios::badbit | std::ios::eofbit);
  const auto size = static_cast<openvdb::Int64>(std::filesystem::file_size(path));
  Index index;
  index.readHeader(bytes);
  if (index.fileVersion() < openvdb::OPENVDB_FILE_VERSION_ROOTNODE_MAP)
    throw std::length_error("no version of the format");
  index.setFormatVersion(bytes);
  openvdb::MetaMap().readMeta(bytes);
  if (!index.inputHasGridOffsets()) return;
  for (openvdb::Int32 left = Index::readGridCount(bytes); left > 0; --left) {
    openvdb::io::GridDescriptor grid;
    grid.read(bytes);
    if (grid.getEndPos() > size) throw std::ios_base::failure("cut");
    grid.seekToEnd(bytes);
  }
}

/// Passes over a text; its length is held against the bytes that are left.
void SkipText(exchange::ByteSource& bytes) {
  const u32 length = bytes.Number<u32>();
  bytes.Expect(length, 1, "letters of a text");
  bytes.Skip(length);
}
void SkipMetadata(exchange::ByteSource& bytes) {
  const i32 entries = bytes.Number<i32>();
  bytes.Expect(entries, 3 * sizeof(u32), "metadata");
  // Of each a name, a type and a value.
  for (i32 i = 0; i < entries; ++i)
    for (int text = 0; text < 3; ++text) SkipText(bytes);
}

/// The library takes memory by the lengths of texts that it has read: none is longer than the file.
void ExpectLengths(exchange::ByteSource& bytes) {
  // Magic number, versions of the format and of the library, whether offsets stand there,
  // identifier.
  constexpr u64 kMagic = 8, kLibrary = 2 * sizeof(u32), kIdentifier = 36;
  bytes.Skip(kMagic);
  const u32 version = bytes.Number<u32>();
  bytes.Skip(kLibrary);
  const bool hasOffsets = bytes.Number<u8>() != 0;
  bytes.Skip(kIdentifier);
  SkipMetadata(bytes);
  if (!hasOffsets || version < openvdb::OPENVDB_FILE_VERSION_NODE_MASK_COMPRESSION) return;
  for (i32 left = bytes.Number<i32>(); left > 0; --left) {
    // Name, type and the grid that it shares its tree with.
    for (int text = 0; text < 3; ++text) SkipText(bytes);
    const i64 start = bytes.Number<i64>();
    bytes.Number<i64>();
    const i64 end = bytes.Number<i64>();
    const auto goTo = [&](i64 place) {
      if (place < static_cast<i64>(bytes.Position())) exchange::Damaged("its offsets are damaged");
      bytes.Skip(static_cast<u64>(place) - bytes.Position());
    };
    goTo(start);
    bytes.Skip(sizeof(u32));  // how its values are packed
    SkipMetadata(bytes);
    goTo(end);
  }
}

/// Nothing of a file reaches the library whose content isn't what it was written with, as our own
/// files tell.
void ExpectOwnContent(const std::filesystem::path& path) {
  exchange::ByteSource bytes(path);
  ExpectLengths(bytes);
  bytes.Rewind();
  if (exchange::StateOfArchive(bytes) == exchange::ArchiveState::Damaged)
    exchange::Damaged("it is damaged: its content isn't what it was written with");
}

}  // namespace

std::vector<VdbGridInfo> ReadVdbInfo(const std::filesystem::path& path) {
  const auto fail = [&](const std::string& why) {
    throw host::FileError("cannot read " + path.string() + ": " + why);
  };
  try {
    openvdb::initialize();
    ExpectOwnContent(path);
    ExpectWhole(path);
    openvdb::io::File file(path.string());
    file.open(false);
    std::vector<VdbGridInfo> infos;
    const openvdb::GridPtrVecPtr grids = file.readAllGridMetadata();
    for (const auto& grid : *grids) infos.push_back(InfoOf(*grid));
    return infos;
  } catch (const std::ios_base::failure&) {
    fail("it ends too early");
  } catch (const host::FileError& error) {
    fail(error.what());
  } catch (const std::bad_alloc&) {
    fail("it is damaged");
  } catch (const std::length_error&) {
    fail("it is damaged");
  } catch (const std::exception& error) {
    fail(error.what());
  }
  return {};
}

}  // namespace MELDO_GLOBAL::app
