#include "cache/state_file.h"

#include <cstring>
#include <memory>

#include "cache/block_compressor.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr std::size_t kWorthPacking = 4096;
}  // namespace

void StateWriter::BeginPart(u64 id) {
  mFile.WriteChunkStart(0, 0);
  mFile.WriteLLong(static_cast<i64>(id));
}

void StateWriter::Block(void* data, std::size_t bytes, i32 element) {
  if (bytes < kWorthPacking) return mFile.WriteMemory(data, bytes);
  const std::size_t room = CompressBound(bytes);
  const auto packed = std::make_unique_for_overwrite<std::byte[]>(room);
  Packing packing;
  packing.level = 1;
  packing.element = element;
  packing.threads = mThreads;
  const std::size_t size =
      Compress({static_cast<const std::byte*>(data), bytes}, {packed.get(), room}, packing);
  if (size == 0) return Fail("a block can't be packed");
  mFile.WriteMemory(packed.get(), size);
}

void StateReader::BeginPart(u64 id) {
  i32 chunk, level;
  i64 stored = 0;
  if (!IsGood()) return;
  if (!mFile.ReadChunkStart(chunk, level) || !mFile.ReadLLong(stored))
    return FailAsFile("a part is missing");
  if (stored != static_cast<i64>(id)) Fail("a part belongs to another node");
}

void StateReader::EndPart() {
  if (IsGood() && !mFile.ReadChunkEnd()) FailAsFile("a part has no end");
}

void StateReader::Block(void* data, std::size_t bytes, i32) {
  std::span<const std::byte> block;
  if (!IsGood()) return;
  if (!mFile.ReadMemory(block)) return FailAsFile("a value is missing");
  if (bytes < kWorthPacking) {
    if (block.size() != bytes) return Fail("a value has another size");
    std::memcpy(data, block.data(), bytes);
  } else if (!Decompress(block, {static_cast<std::byte*>(data), bytes}, mThreads)) {
    Fail("a block can't be unpacked");
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
