// Lossless compression of blocks of numbers.
#pragma once
#include <cstddef>
#include <span>

#include "host/types.h"

namespace MELDO_GLOBAL {

enum class Codec : u8 {
  kFast = 0,   ///< lz4
  kSmall = 1,  ///< zstd
};

/// How a block is packed. Bytes of the same place in each element stand together before they are
/// compressed, since those of neighbours are alike.
struct Packing {
  Codec codec = Codec::kFast;
  i32 level = 9;    ///< 1 to 9
  i32 element = 8;  ///< bytes of an element, at most 255
  i32 threads = 1;  ///< the result doesn't depend on them
};

/// The most bytes that `Compress` may need for a source of `bytes` bytes.
std::size_t CompressBound(std::size_t bytes);

/// Packs `source` into `target`, which has room for `CompressBound` bytes, in pieces of a fixed
/// size. The packed size, or 0 on failure.
std::size_t Compress(std::span<const std::byte> source, std::span<std::byte> target,
                     const Packing& packing);

/// The size of what was packed; false when `packed` is no packed block.
bool UnpackedSize(std::span<const std::byte> packed, std::size_t& size);

/// Unpacks into `target`, which has exactly the size of what was packed; false, with anything in
/// `target`, when `packed` isn't whole or doesn't fit. Reads nothing outside of `packed`.
bool Decompress(std::span<const std::byte> packed, std::span<std::byte> target, i32 threads = 1);

}  // namespace MELDO_GLOBAL
