// Blocks of numbers in a typed stream.
#pragma once
#include <functional>
#include <span>
#include <type_traits>

#include "cache/hyper_file.h"

namespace MELDO_GLOBAL {

/// How the blocks of a file are packed: 0 leaves them as they are, 1 packs them fast, 2 small.
struct BlockPacking {
  i32 compression = 0;
  i32 threads = 1;  ///< the bytes don't depend on them
};

/// Writes numbers of `element` bytes each, at most 255: whether they are packed, then the bytes.
void WriteBlock(HyperFile& file, std::span<const std::byte> bytes, i32 element,
                const BlockPacking& packing);
template <class T>
void WriteBlock(HyperFile& file, std::span<const T> values, const BlockPacking& packing) {
  static_assert(std::is_trivially_copyable_v<T>);
  WriteBlock(file, std::as_bytes(values), sizeof(T), packing);
}

/// A block as it stands in a file.
struct PackedBlock {
  bool isPacked = false;
  std::span<const std::byte> bytes;
  std::size_t size = 0;  ///< that it says to have unpacked, bytes

  /// Whether it says to hold `count` values.
  template <class T>
  bool Holds(std::size_t count) const {
    return size % sizeof(T) == 0 && size / sizeof(T) == count;
  }
};
/// Nothing is allocated for what a block says to hold.
bool ReadBlock(HyperFile& file, PackedBlock& block);
/// Looks at the blocks of a thing before memory is taken for it.
class BlockFinder {
 public:
  /// The next block, which has to say that it holds `count` values; false for any other.
  template <class T>
  bool Find(HyperFile& file, PackedBlock& block, std::size_t count) {
    if (!ReadBlock(file, block) || !block.Holds<T>(count)) return false;
    bytes += static_cast<double>(block.size);
    return true;
  }

  double bytes = 0;  ///< of all that was found, unpacked
};

/// Reads the next block, which has to be of `size` bytes when it is unpacked, to where `makeRoom`
/// says: that is asked when the block is known to have them.
bool ReadBlockTo(HyperFile& file, std::size_t size, i32 threads,
                 const std::function<std::span<std::byte>()>& makeRoom);
bool SkipBlock(HyperFile& file);

/// Whether all numbers are finite.
bool AreFinite(std::span<const Vec3d> values, i32 threads);

/// Fills `target` from a block of the same size; false, with anything in it, when it can't.
bool Unpack(const PackedBlock& block, std::span<std::byte> target, i32 threads);
template <class T>
bool Unpack(const PackedBlock& block, std::span<T> values, i32 threads) {
  static_assert(std::is_trivially_copyable_v<T>);
  return Unpack(block, std::as_writable_bytes(values), threads);
}

}  // namespace MELDO_GLOBAL
