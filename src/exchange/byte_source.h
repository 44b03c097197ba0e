// The bytes of a file from front to back, unpacked where they are packed.
#pragma once
#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::exchange {

/// Where a source has its bytes from.
class ByteFeed;

/// Hands out bytes from front to back, from a small buffer. What comes wrapped by gzip or
/// as a zlib stream is unwrapped, whatever its name. All of it throws host::FileError, with a
/// clause that goes on behind the name of the file ("it ends too early").
class ByteSource {
 public:
  /// Of a plain file; one that isn't there or isn't plain is refused.
  explicit ByteSource(const std::filesystem::path& path);
  /// Of bytes that outlive the source.
  explicit ByteSource(std::string_view bytes);
  /// What a zlib stream inside of `packed` holds, from where that stands; `packed` outlives it.
  static ByteSource Unpacked(ByteSource& packed);
  ByteSource(ByteSource&&) noexcept;
  ~ByteSource();

  /// Exactly as many bytes, or a FileError.
  void Read(void* to, std::size_t size);
  /// As many bytes as there are, at most `size`.
  std::size_t ReadUpTo(void* to, std::size_t size);
  void Skip(u64 size);
  std::string Text(std::size_t size);
  template <class T>
  T Number(std::endian order = std::endian::little) {
    char bytes[sizeof(T)];
    Read(bytes, sizeof bytes);
    if (order != std::endian::native) std::reverse(bytes, bytes + sizeof bytes);
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }
  /// The next byte, or -1 behind the last.
  int Get() {
    if (mNext == mEnd && !Fill()) return -1;
    return static_cast<u8>(mBuffer[mNext++]);
  }
  /// The same without taking it.
  int Next() { return AtEnd() ? -1 : static_cast<u8>(mBuffer[mNext]); }
  /// Up to so many bytes (at most 4096) without taking them.
  std::string_view Peek(std::size_t size);
  bool AtEnd() { return mNext == mEnd && !Fill(); }
  /// Back to the first byte.
  void Rewind();

  u64 Position() const { return mPassed + mNext; }
  /// At most so many bytes are left: exactly, unless they are packed.
  u64 MostLeft() const;
  bool IsPacked() const { return mIsPacked; }
  /// Refuses a count of things, each of so many bytes at the least, for which there aren't enough
  /// bytes left, of which the last one may lack some; who takes memory by a count asks here before.
  void Expect(i64 count, std::size_t bytesEach, std::string_view things, u64 lacking = 0) const;

 private:
  explicit ByteSource(std::unique_ptr<ByteFeed> feed);
  bool Fill();
  void Unwrap();

  std::unique_ptr<ByteFeed> mFeed;
  std::vector<char> mBuffer;
  std::size_t mNext = 0, mEnd = 0;
  u64 mPassed = 0;  ///< bytes before the buffer
  bool mIsPacked = false;
};

/// The clause about a file that isn't as it should be.
[[noreturn]] void Damaged(std::string_view what);

}  // namespace MELDO_GLOBAL::exchange
