#include <fmt/format.h>
#include <openvdb/io/Archive.h>
#include <openvdb/openvdb.h>

#include <cstring>
#include <sstream>

#include "io/vdb_archive.h"

namespace MELDO_GLOBAL::app {

namespace {

/// An archive that writes to any seekable stream.
class MemoryArchive : public openvdb::io::Archive {
 public:
  MemoryArchive() {
    setCompression(
        openvdb::io::COMPRESS_ACTIVE_MASK |
        (hasBloscCompression() ? openvdb::io::COMPRESS_BLOSC : openvdb::io::COMPRESS_ZIP));
  }
  using Archive::write;
  void WriteTo(std::ostream& out, const openvdb::GridCPtrVec& grids) const {
    write(out, grids, /*seekable=*/true);
  }
};

/// 64-bit FNV-1a over words, from a start of choice.
u64 HashWords(const std::string& bytes, u64 hash) {
  std::size_t at = 0;
  for (; at + 8 <= bytes.size(); at += 8) {
    u64 word;
    std::memcpy(&word, bytes.data() + at, 8);
    hash = (hash ^ word) * 0x100000001b3ull;
    hash ^= hash >> 29;
  }
  for (; at < bytes.size(); ++at) hash = (hash ^ static_cast<u8>(bytes[at])) * 0x100000001b3ull;
  return hash;
}

/// The identifier stands behind magic number, three version words and a flag, as 36 characters.
constexpr std::size_t kIdOffset = 8 + 3 * 4 + 1, kIdLength = 36;

void ReplaceIdentifier(std::string& bytes) {
  bytes.replace(kIdOffset, kIdLength, std::string(kIdLength, '0'));
  const u64 words[2] = {HashWords(bytes, 0xcbf29ce484222325ull),
                        HashWords(bytes, 0x9e3779b97f4a7c15ull)};
  u8 id[16];
  std::memcpy(id, words, 16);
  id[6] = (id[6] & 0x0f) | 0x80;  // version 8: made by an application's own rule
  id[8] = (id[8] & 0x3f) | 0x80;
  std::string text;
  for (int i = 0; i < 16; ++i) {
    constexpr char digits[] = "0123456789abcdef";
    text += digits[id[i] >> 4];
    text += digits[id[i] & 15];
    if (i == 3 || i == 5 || i == 7 || i == 9) text += '-';
  }
  bytes.replace(kIdOffset, kIdLength, text);
}

}  // namespace

void Describe(openvdb::GridBase& grid, const char* unit, const ExportOrigin& origin) {
  grid.setCreator("Sulva");
  grid.insertMeta("version", openvdb::StringMetadata(origin.version));
  grid.insertMeta("fingerprint",
                  openvdb::StringMetadata(fmt::format("{:016x}", origin.simulation)));
  grid.insertMeta("frame", openvdb::Int32Metadata(origin.frame));
  if (origin.seconds) grid.insertMeta("time", openvdb::DoubleMetadata(*origin.seconds));
  grid.insertMeta("fps", openvdb::DoubleMetadata(origin.fps));
  grid.insertMeta("unit", openvdb::StringMetadata(unit));
  grid.insertMeta("length_unit", openvdb::StringMetadata("m"));
}

std::string EncodeArchive(const openvdb::GridCPtrVec& grids) {
  std::ostringstream out(std::ios::binary);
  MemoryArchive().WriteTo(out, grids);
  std::string bytes = std::move(out).str();
  ReplaceIdentifier(bytes);
  return bytes;
}

}  // namespace MELDO_GLOBAL::app
