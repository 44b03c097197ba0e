// The typed stream that caches and checkpoints are written in.
#pragma once
#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::host {
class FileParts;
class PartFile;
}  // namespace MELDO_GLOBAL::host

namespace MELDO_GLOBAL {

/// A checksum of 64 bits, taken piece by piece. A change of any one byte changes it.
///
/// Four lanes of words, each a multiplicative hash with a rotation, so that high bits reach low
/// ones too (after Fowler, Noll, Vo: FNV-1a). Every step is one to one in the word and in the lane.
class Checksum {
 public:
  static constexpr std::size_t kStep = 32;
  /// Every piece but the last has a multiple of `kStep` bytes.
  void Add(std::string_view bytes);
  u64 Value() const;

 private:
  u64 mLanes[4] = {1, 2, 3, 4};
  u64 mCount = 0;
  std::string mRest;  ///< less than a step
};
u64 ChecksumOf(std::string_view bytes);

/// A file that was written, as a list of them tells it.
struct WrittenFile {
  std::filesystem::path path;
  u64 bytes = 0;
  u64 sum = 0;  ///< `ChecksumOf` its bytes
};

/// Names a kind of file: four characters.
constexpr u32 IdentOf(const char (&text)[5]) {
  u32 ident = 0;
  for (int i = 3; i >= 0; --i) ident = ident << 8 | static_cast<u8>(text[i]);
  return ident;
}
inline constexpr u32 kCacheIdent = IdentOf("zlsv");

/// A file of typed items. Every item starts with a byte that tells its type, and blocks and chunks
/// tell their length, so that a reader that is out of step notices.
///
/// The file: a header of 32 bytes (8 of magic, the ident, the format's version, a mark of the byte
/// order, 4 of zero, the length of the body), the body of items, a checksum of all before it.
/// What is written goes on into a file beside, so that little of it stands in memory; `Close` gives
/// that its name, whole or not at all. Opening reads the file and checks header, length and
/// checksum. No operation throws: those that fail answer false, and `Error` tells the first reason;
/// what is written behind a failure is dropped.
class HyperFile {
 public:
  enum class Mode {
    kRead = 1,
    kWrite = 2,
    kReadParts = 3,  ///< reads, with no more than a block in memory at a time
  };
  /// What is wrong with a file that was opened or read.
  enum class Fault : u8 {
    kNone,
    kUnreadable,  ///< the system gives no access to it, or no memory for it
    kForeign,     ///< it is of another kind, version or byte order, and may be whole
    kDamaged,
  };
  static constexpr u32 kVersion = 1;

  HyperFile();
  ~HyperFile();
  HyperFile(HyperFile&&) noexcept;
  HyperFile& operator=(HyperFile&&) noexcept;

  bool Open(u32 ident, const std::filesystem::path& path, Mode mode);
  /// Reads what stands in memory; `name` stands for the file in messages.
  bool OpenMemory(u32 ident, std::string bytes, std::string name = "memory");
  /// Starts a file that `TakeBytes` gives back instead of `Close`.
  void StartMemory(u32 ident);
  /// Ends a file that is written, which is then whole beside its place; false where that fails.
  bool Seal();
  /// Ends a file that is written and puts it in its place; false where that fails.
  bool Close();
  /// The whole file, header and checksum included, and an empty stream.
  std::string TakeBytes();
  /// Why something failed: a sentence that names the file; empty without a failure.
  const std::string& Error() const { return mError; }
  Fault FaultFound() const { return mFault; }
  /// The file's path, or what stands for it.
  const std::string& Name() const { return mName; }
  /// The size of the file that was opened or written, bytes.
  std::size_t Size() const { return mParts ? mSize : mGone + mBytes.size(); }
  /// The checksum of the whole file that was opened or written, its own checksum included.
  u64 Sum() const { return mSum; }

  void WriteLong(i32 value) { Put(kLong, &value, sizeof value); }
  void WriteLLong(i64 value) { Put(kLLong, &value, sizeof value); }
  void WriteWord(i16 value) { Put(kWord, &value, sizeof value); }
  void WriteUWord(u16 value) { Put(kUWord, &value, sizeof value); }
  void WriteBool(bool value);
  void WriteSReal(f32 value) { Put(kSReal, &value, sizeof value); }
  void WriteReal(double value) { Put(kReal, &value, sizeof value); }
  void WriteLReal(double value) { Put(kLReal, &value, sizeof value); }
  void WriteVector(const Vec3d& value);
  void WriteText(std::string_view text);
  void WriteMemory(const void* data, std::size_t bytes);
  /// Items that another stream wrote.
  void WriteItems(std::string_view items) { Append(items.data(), items.size()); }
  void WriteChunkStart(i32 id, i32 level);
  void WriteChunkEnd();

  bool ReadLong(i32& value) { return Get(kLong, &value, sizeof value); }
  bool ReadLLong(i64& value) { return Get(kLLong, &value, sizeof value); }
  bool ReadWord(i16& value) { return Get(kWord, &value, sizeof value); }
  bool ReadUWord(u16& value) { return Get(kUWord, &value, sizeof value); }
  bool ReadBool(bool& value);
  bool ReadSReal(f32& value) { return Get(kSReal, &value, sizeof value); }
  bool ReadReal(double& value) { return Get(kReal, &value, sizeof value); }
  bool ReadLReal(double& value) { return Get(kLReal, &value, sizeof value); }
  bool ReadVector(Vec3d& value);
  bool ReadText(std::string& text);
  /// The block stands in the stream itself: until that is closed, of one that is read by parts
  /// until the next item is read.
  bool ReadMemory(std::span<const std::byte>& block);
  /// Whether the next block has as many bytes; an error where it has others.
  bool IsAtMemory(std::size_t bytes);
  /// Reads the next block, of just as many bytes, to where they go.
  bool ReadMemoryTo(std::span<std::byte> target);
  /// Passes over the next block.
  bool SkipMemory();
  /// Enters the next chunk. Reading can't leave a chunk but by `ReadChunkEnd`.
  bool ReadChunkStart(i32& id, i32& level);
  /// Leaves what is left of the chunk unread.
  bool SkipToEndChunk();
  bool ReadChunkEnd();
  /// Back to the first item.
  void Rewind();
  /// Whether a `WriteLong` is next.
  bool IsAtLong();
  /// Nothing is left to read in this chunk, or outside of chunks in the file.
  bool AtEnd() const { return mAt >= Limit(); }

 private:
  enum Tag : u8 {
    kLong = 1,
    kWord,
    kUWord,
    kBool,
    kSReal,
    kReal,
    kLReal,
    kVector,
    kMemory,
    kChunkStart,
    kChunkEnd,
    kLLong,
    kText,
  };
  static const char* NameOf(u8 tag);

  void Start(u32 ident);
  void Append(const void* data, std::size_t bytes);
  /// A length that is known later than the place where it stands.
  void Patch(std::size_t at, u64 value);
  /// Moves what is gathered into the file beside.
  void Flush();
  /// Runs what may throw a FileError.
  template <class Work>
  void Try(Work&& work);
  /// Adds to the sum what was written, but for a last piece of it, which it answers.
  std::string AddWritten(Checksum& sum);
  void Put(Tag tag, const void* data, std::size_t bytes);
  void PutCounted(Tag tag, const void* data, std::size_t bytes);
  bool Get(Tag tag, void* data, std::size_t bytes);
  bool GetTag(Tag tag);
  /// The length that stands here, at most what is left.
  bool GetLength(u64& length);
  bool GetBlockLength(u64& length);
  /// That many bytes of the file from `at` on; null, with an error, where they can't be read.
  const char* Look(std::size_t at, std::size_t bytes);
  void Reset();
  bool OpenParts(u32 ident);
  /// `sum` is that of the first `summed` bytes, at most all but the trailer.
  bool CheckFrame(u32 ident, Checksum sum, std::size_t summed);
  bool CheckHeader(u32 ident);
  /// Takes what stands in memory.
  bool Begin(u32 ident, std::string bytes, const Checksum& sum, std::size_t summed);
  bool Fail(std::string_view what, Fault fault = Fault::kDamaged);
  /// Where the readable part ends: of the chunk, without its end mark, or of the body.
  std::size_t Limit() const;
  void Finish();

  std::filesystem::path mPath;
  std::string mName;
  std::unique_ptr<host::PartFile> mPart;    ///< of a file that is written, until it has its name
  std::unique_ptr<host::FileParts> mParts;  ///< the file that is read by parts
  std::size_t mSize = 0;                    ///< of that
  /// Bytes before those that `mBytes` holds: they are in `mPart` or `mParts`.
  std::size_t mGone = 0;
  std::string mBytes;
  u64 mSum = 0;
  std::size_t mAt = 0;   ///< of the next item to read
  std::size_t mEnd = 0;  ///< of the body that is read
  /// Open chunks: of one that is written where its length stands, of one that is read its end.
  std::vector<std::size_t> mChunks;
  bool mWriting = false;
  std::string mError;
  Fault mFault = Fault::kNone;
};

/// A whole file round items that are there as bytes: a header and checksum that fit.
std::string FrameBody(u32 ident, std::string_view body);

}  // namespace MELDO_GLOBAL
