#include "cache/packed_block.h"

#include <algorithm>
#include <memory>

#include "cache/block_compressor.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL {

void WriteBlock(HyperFile& file, std::span<const std::byte> bytes, i32 element,
                const BlockPacking& packing) {
  if (packing.compression >= 1) {
    const std::size_t room = CompressBound(bytes.size());
    const auto packed = std::make_unique_for_overwrite<std::byte[]>(room);
    const bool isSmall = packing.compression >= 2;
    const std::size_t size = Compress(bytes, {packed.get(), room},
                                      {.codec = isSmall ? Codec::kSmall : Codec::kFast,
                                       .level = isSmall ? 1 : 9,
                                       .element = element,
                                       .threads = packing.threads});
    if (size > 0) {
      file.WriteBool(true);
      file.WriteMemory(packed.get(), size);
      return;
    }
  }
  file.WriteBool(false);
  file.WriteMemory(bytes.data(), bytes.size());
}

bool ReadBlock(HyperFile& file, PackedBlock& block) {
  if (!file.ReadBool(block.isPacked) || !file.ReadMemory(block.bytes)) return false;
  block.size = block.bytes.size();
  return !block.isPacked || UnpackedSize(block.bytes, block.size);
}

bool ReadBlockTo(HyperFile& file, std::size_t size, i32 threads,
                 const std::function<std::span<std::byte>()>& makeRoom) {
  bool isPacked = false;
  if (!file.ReadBool(isPacked)) return false;
  if (!isPacked) return file.IsAtMemory(size) && file.ReadMemoryTo(makeRoom());
  std::span<const std::byte> packed;
  std::size_t unpacked = 0;
  return file.ReadMemory(packed) && UnpackedSize(packed, unpacked) && unpacked == size &&
         Decompress(packed, makeRoom(), threads);
}

bool SkipBlock(HyperFile& file) {
  bool isPacked = false;
  return file.ReadBool(isPacked) && file.SkipMemory();
}

bool AreFinite(std::span<const Vec3d> values, i32 threads) {
  constexpr i64 kBlock = 1 << 16;
  const i64 count = static_cast<i64>(values.size());
  // A sum of zeros is 0, and what isn't finite times 0 isn't a number.
  const double sum = SumBlocks(count, kBlock, threads, [&](i64 first, i64 last) {
    double own = 0;
    for (i64 i = first; i < last; ++i) own += 0 * values[i].x + 0 * values[i].y + 0 * values[i].z;
    return own;
  });
  return sum == 0;
}

bool Unpack(const PackedBlock& block, std::span<std::byte> target, i32 threads) {
  if (block.size != target.size()) return false;
  if (block.isPacked) return Decompress(block.bytes, target, threads);
  // Memory that is new is slow to touch: workers share that.
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  ForEachBlock(static_cast<i32>((target.size() + kPiece - 1) / kPiece), threads, [&](i32 piece) {
    const std::size_t first = static_cast<std::size_t>(piece) * kPiece;
    const std::size_t bytes = std::min(kPiece, target.size() - first);
    std::copy_n(block.bytes.begin() + static_cast<std::ptrdiff_t>(first), bytes,
                target.begin() + static_cast<std::ptrdiff_t>(first));
  });
  return true;
}

}  // namespace MELDO_GLOBAL
