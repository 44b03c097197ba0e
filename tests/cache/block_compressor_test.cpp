#include "cache/block_compressor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "grids/random_stream.h"

namespace MELDO_GLOBAL {
namespace {

std::vector<double> Smooth(std::size_t count) {
  std::vector<double> values(count);
  for (std::size_t i = 0; i < count; ++i)
    values[i] = i % 3000 < 2000 ? 0 : std::sin(static_cast<double>(i) * 1e-3);
  return values;
}

std::vector<double> Noise(std::size_t count) {
  RandomStream stream;
  std::vector<double> values(count);
  for (double& v : values) v = stream.NextUnit() * stream.NextUnit();
  return values;
}

std::vector<std::byte> Packed(const std::vector<double>& values, const Packing& packing = {}) {
  const auto bytes = std::as_bytes(std::span(values));
  std::vector<std::byte> packed(CompressBound(bytes.size()));
  packed.resize(Compress(bytes, packed, packing));
  return packed;
}

TEST(BlockCompressor, EverySizeAndCodecComesBack) {
  // Around the size of a piece, which is 131072 doubles.
  for (const std::size_t count : {0u, 1u, 5000u, 131071u, 131072u, 131073u, 400000u})
    for (const Codec codec : {Codec::kFast, Codec::kSmall})
      for (const auto& values : {Smooth(count), Noise(count)}) {
        const auto packed = Packed(values, {codec, 3, 8, 2});
        std::size_t size = 0;
        ASSERT_TRUE(UnpackedSize(packed, size));
        ASSERT_EQ(size, count * 8);
        std::vector<double> back(count, -1);
        ASSERT_TRUE(Decompress(packed, std::as_writable_bytes(std::span(back)), 2));
        ASSERT_TRUE(size == 0 || std::memcmp(back.data(), values.data(), size) == 0) << count;
      }
  EXPECT_LT(Packed(Smooth(400000)).size() * 3, 400000u * 8);
  EXPECT_LT(Packed(Noise(400000)).size(), 400000u * 8 + 1000);
}

TEST(BlockCompressor, ResultDoesNotDependOnThreads) {
  const auto values = Noise(500000);
  EXPECT_EQ(Packed(values, {Codec::kFast, 9, 8, 1}), Packed(values, {Codec::kFast, 9, 8, 5}));
}

TEST(BlockCompressor, DamageIsRefusedOrHarmless) {
  const auto values = Smooth(3000);
  const auto whole = Packed(values);
  std::vector<double> back(values.size());
  const auto unpack = [&](std::span<const std::byte> packed) {
    return Decompress(packed, std::as_writable_bytes(std::span(back)));
  };
  for (std::size_t length = 0; length < whole.size(); ++length)
    EXPECT_FALSE(unpack(std::span(whole).first(length))) << length;
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (const int change : {1, 0x80, 0xff}) {
      auto damaged = whole;
      damaged[at] ^= static_cast<std::byte>(change);
      unpack(damaged);  // false, or other samples; the sanitizers watch
    }
  EXPECT_FALSE(Decompress(whole, std::as_writable_bytes(std::span(back)).first(23992)));
}

}  // namespace
}  // namespace MELDO_GLOBAL
