#include <fmt/format.h>
#include <openvdb/io/Archive.h>
#include <openvdb/openvdb.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "exchange/vdb_archive.h"

namespace MELDO_GLOBAL::exchange {

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

constexpr u64 kHashStarts[2] = {0xcbf29ce484222325ull, 0x9e3779b97f4a7c15ull};

/// The identifier that two hashes make.
std::string IdentifierOf(const u64 (&words)[2]) {
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
  return text;
}

void ReplaceIdentifier(std::string& bytes) {
  bytes.replace(kIdOffset, kIdLength, std::string(kIdLength, '0'));
  const u64 words[2] = {HashWords(bytes, kHashStarts[0]), HashWords(bytes, kHashStarts[1])};
  bytes.replace(kIdOffset, kIdLength, IdentifierOf(words));
}

}  // namespace

void Describe(openvdb::GridBase& grid, const std::vector<Remark>& remarks) {
  grid.setCreator("Sulva");
  for (const auto& [key, value] : remarks) {
    if (const auto* text = std::get_if<std::string>(&value))
      grid.insertMeta(key, openvdb::StringMetadata(*text));
    if (const auto* whole = std::get_if<i32>(&value))
      grid.insertMeta(key, openvdb::Int32Metadata(*whole));
    if (const auto* real = std::get_if<double>(&value))
      grid.insertMeta(key, openvdb::DoubleMetadata(*real));
  }
}

std::string EncodeArchive(const openvdb::GridCPtrVec& grids) {
  std::ostringstream out(std::ios::binary);
  MemoryArchive().WriteTo(out, grids);
  std::string bytes = std::move(out).str();
  ReplaceIdentifier(bytes);
  return bytes;
}

ArchiveState StateOfArchive(ByteSource& source) {
  constexpr std::size_t kVersionDigit = 14, kBlock = 1 << 20;
  std::string block(kBlock, '\0');
  block.resize(source.ReadUpTo(block.data(), kBlock));
  if (block.size() < kIdOffset + kIdLength) return ArchiveState::Damaged;
  const std::string id = block.substr(kIdOffset, kIdLength);
  u64 words[2] = {kHashStarts[0], kHashStarts[1]};
  block.replace(kIdOffset, kIdLength, std::string(kIdLength, '0'));
  const bool isOwn = id[kVersionDigit] == '8';
  while (isOwn && !block.empty()) {
    for (u64& word : words) word = HashWords(block, word);
    block.resize(source.ReadUpTo(block.data(), block.size()));
  }
  source.Rewind();
  if (!isOwn) return ArchiveState::Foreign;
  return id == IdentifierOf(words) ? ArchiveState::Whole : ArchiveState::Damaged;
}

}  // namespace MELDO_GLOBAL::exchange
