#include "cache/block_compressor.h"

#include <blosc.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
constexpr std::size_t kPieceRoom = kPiece + BLOSC_MAX_OVERHEAD;

// A packed block: the size of the source, then for each piece its packed size and its bytes.
constexpr std::size_t kHead = sizeof(u64);

i32 PiecesOf(std::size_t bytes) { return static_cast<i32>((bytes + kPiece - 1) / kPiece); }

std::size_t PieceSize(std::size_t bytes, i32 piece) {
  return std::min(kPiece, bytes - static_cast<std::size_t>(piece) * kPiece);
}

template <class T>
T Load(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

}  // namespace

std::size_t CompressBound(std::size_t bytes) {
  return kHead + static_cast<std::size_t>(PiecesOf(bytes)) * (sizeof(u32) + BLOSC_MAX_OVERHEAD) +
         bytes;
}

std::size_t Compress(std::span<const std::byte> source, std::span<std::byte> target,
                     const Packing& packing) {
  if (target.size() < CompressBound(source.size())) return 0;
  const i32 pieces = PiecesOf(source.size());
  const bool isSmall = packing.codec == Codec::kSmall;
  const char* codec = isSmall ? "zstd" : "lz4";
  // Bytes of one place in their elements stand together over a whole piece: zstd passes over those
  // that are noise and finds more in the others than in the library's smaller blocks.
  const std::size_t block = isSmall ? kPiece : 0;
  // Each piece is packed at the place that it can't outgrow, then all move together.
  const auto place = [&](i32 piece) {
    return target.data() + kHead + sizeof(u32) +
           static_cast<std::size_t>(piece) * (sizeof(u32) + kPieceRoom);
  };
  std::vector<int> sizes(pieces);
  ForEachBlock(pieces, packing.threads, [&](i32 piece) {
    const std::size_t bytes = PieceSize(source.size(), piece);
    sizes[piece] = blosc_compress_ctx(packing.level, BLOSC_SHUFFLE, packing.element, bytes,
                                      source.data() + piece * kPiece, place(piece),
                                      bytes + BLOSC_MAX_OVERHEAD, codec, block, 1);
  });
  const u64 whole = source.size();
  std::memcpy(target.data(), &whole, sizeof whole);
  std::size_t at = kHead;
  for (i32 piece = 0; piece < pieces; ++piece) {
    if (sizes[piece] <= 0) return 0;
    const u32 size = static_cast<u32>(sizes[piece]);
    std::memmove(target.data() + at + sizeof size, place(piece), size);
    std::memcpy(target.data() + at, &size, sizeof size);
    at += sizeof size + size;
  }
  return at;
}

bool UnpackedSize(std::span<const std::byte> packed, std::size_t& size) {
  if (packed.size() < kHead) return false;
  const u64 whole = Load<u64>(packed.data());
  // Every piece takes its size and a header: a source that can't be there isn't believed.
  if (whole / kPiece > packed.size() / (sizeof(u32) + BLOSC_MIN_HEADER_LENGTH)) return false;
  size = static_cast<std::size_t>(whole);
  return true;
}

bool Decompress(std::span<const std::byte> packed, std::span<std::byte> target, i32 threads) {
  std::size_t whole = 0;
  if (!UnpackedSize(packed, whole) || whole != target.size()) return false;
  const i32 pieces = PiecesOf(whole);
  std::vector<std::span<const std::byte>> found(pieces);
  std::size_t at = kHead;
  for (auto& piece : found) {
    if (packed.size() - at < sizeof(u32)) return false;
    const u32 size = Load<u32>(packed.data() + at);
    at += sizeof size;
    if (size > packed.size() - at) return false;
    piece = packed.subspan(at, size);
    at += size;
  }
  if (at != packed.size()) return false;
  std::atomic<bool> good{true};
  ForEachBlock(pieces, threads, [&](i32 piece) {
    const std::size_t bytes = PieceSize(whole, piece);
    std::size_t says = 0;
    if (blosc_cbuffer_validate(found[piece].data(), found[piece].size(), &says) != 0 ||
        says != bytes ||
        blosc_decompress_ctx(found[piece].data(), target.data() + piece * kPiece, bytes, 1) !=
            static_cast<int>(bytes))
      good = false;
  });
  return good;
}

}  // namespace MELDO_GLOBAL
