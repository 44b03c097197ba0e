#include "cache/hyper_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "host/atomic_file.h"
#include "host/file_reader.h"

namespace MELDO_GLOBAL {

namespace fs = std::filesystem;

namespace {

// The first byte is no text, the line ends show a transfer that took the file for text.
constexpr char kMagic[8] = {'\x89', 'S', 'V', 'H', 'F', '\r', '\n', '\x1a'};
constexpr u32 kByteOrder = 0x01020304;
constexpr std::size_t kHeader = 32, kTrailer = 8, kBodyLengthAt = 24;
constexpr u64 kPrime = 0x9e3779b97f4a7c15ull;
// What is gathered before it is written, and read back at once.
constexpr std::size_t kGathered = std::size_t{1} << 20;
// What is summed at once while a file is read: it is in the processor's caches still.
constexpr std::size_t kSummed = std::size_t{1} << 16;

template <class T>
T Load(const char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

}  // namespace

void Checksum::Add(std::string_view bytes) {
  std::size_t at = 0;
  for (; at + kStep <= bytes.size(); at += kStep)
    for (int i = 0; i < 4; ++i)
      mLanes[i] = std::rotl(mLanes[i] ^ Load<u64>(bytes.data() + at + 8 * i), 29) * kPrime;
  mCount += bytes.size();
  mRest = bytes.substr(at);
}

u64 Checksum::Value() const {
  u64 hash = mCount;
  for (const u64 lane : mLanes) hash = std::rotl(hash ^ lane, 31) * kPrime;
  for (const char byte : mRest) hash = std::rotl(hash ^ static_cast<u8>(byte), 29) * kPrime;
  return hash ^ hash >> 32;
}

u64 ChecksumOf(std::string_view bytes) {
  Checksum sum;
  sum.Add(bytes);
  return sum.Value();
}

HyperFile::HyperFile() = default;
HyperFile::~HyperFile() = default;
HyperFile::HyperFile(HyperFile&&) noexcept = default;
HyperFile& HyperFile::operator=(HyperFile&&) noexcept = default;

// ---- the file -----------------------------------------------------------------------------------

bool HyperFile::Open(u32 ident, const fs::path& path, Mode mode) {
  mPath = path;
  mName = path.string();
  mError.clear();
  mFault = Fault::kNone;
  if (mode == Mode::kReadParts) return OpenParts(ident);
  if (mode == Mode::kWrite) {
    Start(ident);
    Try([&] { mPart = std::make_unique<host::PartFile>(path); });
    return mError.empty();
  }
  std::string bytes;
  Checksum sum;
  std::size_t summed = 0;
  try {
    bytes = host::ReadFileBy(path, [&](std::string_view there) {
      // The last bytes of a file don't count for its sum.
      for (; summed + kSummed + kTrailer <= there.size(); summed += kSummed)
        sum.Add(there.substr(summed, kSummed));
    });
  } catch (const host::FileError& error) {
    mError = error.what();
    mFault = Fault::kUnreadable;
    return false;
  } catch (const std::bad_alloc&) {
    return Fail("there is no memory for it", Fault::kUnreadable);
  }
  return Begin(ident, std::move(bytes), sum, summed);
}

bool HyperFile::OpenMemory(u32 ident, std::string bytes, std::string name) {
  mName = std::move(name);
  return Begin(ident, std::move(bytes), {}, 0);
}

void HyperFile::Reset() {
  mBytes = {};
  mGone = mSize = 0;
  mPart.reset();
  mParts.reset();
  mError.clear();
  mFault = Fault::kNone;
  mChunks.clear();
  mWriting = false;
  mAt = mEnd = 0;
}

bool HyperFile::Begin(u32 ident, std::string bytes, const Checksum& sum, std::size_t summed) {
  Reset();
  mBytes = std::move(bytes);
  return CheckFrame(ident, sum, summed);
}

bool HyperFile::OpenParts(u32 ident) {
  Reset();
  Try([&] { mParts = std::make_unique<host::FileParts>(mPath); });
  if (!mParts) {
    mFault = Fault::kUnreadable;
    return false;
  }
  mSize = static_cast<std::size_t>(mParts->Size());
  return CheckFrame(ident, {}, 0);
}

const char* HyperFile::Look(std::size_t at, std::size_t bytes) {
  if (at >= mGone && at - mGone <= mBytes.size() && bytes <= mBytes.size() - (at - mGone))
    return mBytes.data() + (at - mGone);
  if (!mParts) return Fail("it ends too early"), nullptr;
  const std::size_t wanted = std::min(std::max(bytes, kGathered), mSize - at);
  // What a large block took isn't kept for small ones.
  if (mBytes.capacity() > 2 * std::max(wanted, kGathered)) mBytes = std::string();
  try {
    mBytes.resize(wanted);
    mParts->Read(at, mBytes);
  } catch (const host::FileError& error) {
    mBytes.clear();
    mError = error.what();
    mFault = Fault::kUnreadable;
    return nullptr;
  }
  mGone = at;
  return mBytes.data();
}

bool HyperFile::CheckHeader(u32 ident) {
  const auto shown = [](const char* text) {
    std::string out;
    for (int i = 0; i < 4; ++i) out += text[i] >= ' ' && text[i] < 127 ? text[i] : '?';
    return out;
  };
  if (Size() == 0) return Fail("it is empty");
  const char* data = Look(0, std::min(Size(), kHeader));
  if (!data) return false;
  if (Size() < sizeof kMagic || std::memcmp(data, kMagic, sizeof kMagic) != 0)
    return Fail("it is no file of this system, or its start is damaged");
  if (Size() < kHeader + kTrailer) return Fail("it is cut short");
  if (Load<u32>(data + 16) != kByteOrder) {
    return Load<u32>(data + 16) == 0x04030201
               ? Fail("it was written on a machine of another byte order", Fault::kForeign)
               : Fail("its header is damaged");
  }
  if (const u32 version = Load<u32>(data + 12); version != kVersion)
    return Fail(fmt::format("its format has version {}, expected {}", version, kVersion),
                Fault::kForeign);
  if (Load<u32>(data + 8) != ident)
    return Fail(fmt::format("it holds '{}', not '{}'", shown(data + 8),
                            shown(reinterpret_cast<const char*>(&ident))),
                Fault::kForeign);
  const u64 body = Load<u64>(data + kBodyLengthAt);
  const u64 there = Size() - kHeader - kTrailer;
  if (body > there)
    return Fail(fmt::format("it is cut short: {} of {} bytes are there", Size(),
                            body + kHeader + kTrailer));
  if (body < there) return Fail("it is longer than it says");
  return true;
}

bool HyperFile::CheckFrame(u32 ident, Checksum sum, std::size_t summed) {
  if (!CheckHeader(ident)) return false;
  const std::size_t checked = Size() - kTrailer;
  // Both sums have all but a last piece in common.
  const std::size_t common = checked / Checksum::kStep * Checksum::kStep;
  for (std::size_t piece; summed < common; summed += piece) {
    piece = mParts ? std::min(kGathered, common - summed) : common - summed;
    const char* data = Look(summed, piece);
    if (!data) return false;
    sum.Add({data, piece});
  }
  const char* last = Look(common, Size() - common);
  if (!last) return false;
  Checksum whole = sum;
  sum.Add({last, checked - common});
  if (Load<u64>(last + (checked - common)) != sum.Value())
    return Fail("it is damaged: its checksum doesn't fit");
  whole.Add({last, Size() - common});
  mSum = whole.Value();
  mAt = kHeader;
  mEnd = checked;
  return true;
}

void HyperFile::StartMemory(u32 ident) {
  mError.clear();
  Start(ident);
}

void HyperFile::Start(u32 ident) {
  mPart.reset();
  mParts.reset();
  mGone = 0;
  mBytes.assign(kMagic, sizeof kMagic);
  const u32 words[4] = {ident, kVersion, kByteOrder, 0};
  mBytes.append(reinterpret_cast<const char*>(words), sizeof words);
  mBytes.append(8, '\0');
  mChunks.clear();
  mWriting = true;
}

void HyperFile::Finish() {
  while (!mChunks.empty()) WriteChunkEnd();
  Patch(kBodyLengthAt, Size() - kHeader);
  Checksum before;
  std::string last = AddWritten(before);
  Checksum whole = before;
  before.Add(last);
  const u64 sum = before.Value();
  Append(&sum, sizeof sum);
  last.append(reinterpret_cast<const char*>(&sum), sizeof sum);
  whole.Add(last);
  mSum = whole.Value();
  mWriting = false;
}

bool HyperFile::Seal() {
  if (!mWriting) return mError.empty();
  Finish();
  Flush();
  if (!mError.empty()) mPart.reset();
  return mError.empty();
}

bool HyperFile::Close() {
  if (Seal() && mPart) Try([&] { mPart->Commit(); });
  mPart.reset();
  return mError.empty();
}

std::string HyperFile::TakeBytes() {
  if (mWriting) Finish();
  return std::exchange(mBytes, {});
}

bool HyperFile::Fail(std::string_view what, Fault fault) {
  if (mError.empty()) {
    mError = fmt::format("{}: {}", mName, what);
    mFault = fault;
  }
  mAt = mEnd;
  return false;
}

std::string FrameBody(u32 ident, std::string_view body) {
  HyperFile file;
  file.StartMemory(ident);
  file.WriteItems(body);
  return file.TakeBytes();
}

// ---- writing ------------------------------------------------------------------------------------

template <class Work>
void HyperFile::Try(Work&& work) {
  try {
    if (mError.empty()) work();
  } catch (const host::FileError& error) {
    mError = error.what();
  }
}

void HyperFile::Flush() {
  if (mPart) Try([&] { mPart->Append(mBytes); });
  mGone += mBytes.size();
  mBytes.clear();
}

void HyperFile::Append(const void* data, std::size_t bytes) {
  if (!mError.empty()) return;
  const std::string_view added(static_cast<const char*>(data), bytes);
  if (mPart && mBytes.size() + bytes > kGathered) {
    Flush();
    if (bytes > kGathered) {
      Try([&] { mPart->Append(added); });
      mGone += bytes;
      return;
    }
  }
  mBytes.append(added);
}

void HyperFile::Patch(std::size_t at, u64 value) {
  if (!mError.empty()) return;
  const std::string_view bytes(reinterpret_cast<const char*>(&value), sizeof value);
  if (at >= mGone) {
    bytes.copy(mBytes.data() + (at - mGone), bytes.size());
  } else {
    Try([&] { mPart->Patch(at, bytes); });
  }
}

// Lengths are patched, so that the sum can't be taken while the bytes pass by.
std::string HyperFile::AddWritten(Checksum& sum) {
  if (!mPart) return mBytes;
  Flush();
  std::string piece;
  Try([&] {
    for (std::size_t at = 0; at < mGone; at += piece.size()) {
      sum.Add(piece);
      piece.resize(std::min(kGathered, mGone - at));
      mPart->Read(at, piece);
    }
  });
  return piece;
}

void HyperFile::Put(Tag tag, const void* data, std::size_t bytes) {
  Append(&tag, 1);
  Append(data, bytes);
}

void HyperFile::PutCounted(Tag tag, const void* data, std::size_t bytes) {
  const u64 length = bytes;
  Put(tag, &length, sizeof length);
  Append(data, bytes);
}

void HyperFile::WriteBool(bool value) {
  const u8 byte = value;
  Put(kBool, &byte, 1);
}

void HyperFile::WriteVector(const Vec3d& value) {
  const double v[3] = {value.x, value.y, value.z};
  Put(kVector, v, sizeof v);
}

void HyperFile::WriteText(std::string_view text) { PutCounted(kText, text.data(), text.size()); }

void HyperFile::WriteMemory(const void* data, std::size_t bytes) {
  PutCounted(kMemory, data, bytes);
}

void HyperFile::WriteChunkStart(i32 id, i32 level) {
  char head[16] = {};
  std::memcpy(head, &id, 4);
  std::memcpy(head + 4, &level, 4);
  Put(kChunkStart, head, sizeof head);
  mChunks.push_back(Size() - sizeof(u64));
}

void HyperFile::WriteChunkEnd() {
  if (mChunks.empty()) return;
  const Tag end = kChunkEnd;
  Append(&end, 1);
  Patch(mChunks.back(), Size() - mChunks.back() - sizeof(u64));
  mChunks.pop_back();
}

// ---- reading ------------------------------------------------------------------------------------

const char* HyperFile::NameOf(u8 tag) {
  constexpr const char* names[] = {"nothing known",
                                   "a whole number",
                                   "a word",
                                   "an unsigned word",
                                   "a truth value",
                                   "a short real",
                                   "a real",
                                   "a long real",
                                   "a vector",
                                   "a block",
                                   "a chunk",
                                   "the end of a chunk",
                                   "a long whole number",
                                   "a text"};
  return tag < std::size(names) ? names[tag] : names[0];
}

void HyperFile::Rewind() {
  mChunks.clear();
  mAt = mError.empty() && mEnd > 0 ? kHeader : mEnd;
}

std::size_t HyperFile::Limit() const { return mChunks.empty() ? mEnd : mChunks.back() - 1; }

bool HyperFile::IsAtLong() {
  const char* tag = mError.empty() && !AtEnd() ? Look(mAt, 1) : nullptr;
  return tag && static_cast<u8>(*tag) == kLong;
}

bool HyperFile::GetTag(Tag tag) {
  if (mAt >= Limit()) {
    return Fail(fmt::format("it ends at byte {} where {} was expected", mAt, NameOf(tag)));
  }
  const char* data = Look(mAt, 1);
  if (!data) return false;
  const u8 found = static_cast<u8>(*data);
  if (found != tag)
    return Fail(
        fmt::format("at byte {} stands {} where {} was expected", mAt, NameOf(found), NameOf(tag)));
  ++mAt;
  return true;
}

bool HyperFile::Get(Tag tag, void* data, std::size_t bytes) {
  if (!mError.empty() || !GetTag(tag)) return false;
  if (bytes > Limit() - mAt) return Fail("it ends inside of an item");
  const char* from = Look(mAt, bytes);
  if (!from) return false;
  std::memcpy(data, from, bytes);
  mAt += bytes;
  return true;
}

bool HyperFile::GetLength(u64& length) {
  if (sizeof length > Limit() - mAt) return Fail("it ends inside of an item");
  const char* data = Look(mAt, sizeof length);
  if (!data) return false;
  length = Load<u64>(data);
  mAt += sizeof length;
  if (length > Limit() - mAt) return Fail("the length of an item is damaged");
  return true;
}

bool HyperFile::GetBlockLength(u64& length) {
  return mError.empty() && GetTag(kMemory) && GetLength(length);
}

bool HyperFile::ReadBool(bool& value) {
  u8 byte = 0;
  if (!Get(kBool, &byte, 1)) return false;
  value = byte != 0;
  return true;
}

bool HyperFile::ReadVector(Vec3d& value) {
  double v[3];
  if (!Get(kVector, v, sizeof v)) return false;
  value = {v[0], v[1], v[2]};
  return true;
}

bool HyperFile::ReadText(std::string& text) {
  u64 length = 0;
  if (!mError.empty() || !GetTag(kText) || !GetLength(length)) return false;
  const char* data = Look(mAt, length);
  if (!data) return false;
  text.assign(data, length);
  mAt += length;
  return true;
}

bool HyperFile::ReadMemory(std::span<const std::byte>& block) {
  u64 length = 0;
  if (!GetBlockLength(length)) return false;
  const char* data = Look(mAt, length);
  if (!data) return false;
  block = {reinterpret_cast<const std::byte*>(data), length};
  mAt += length;
  return true;
}

bool HyperFile::IsAtMemory(std::size_t bytes) {
  const std::size_t start = mAt;
  u64 length = 0;
  if (!GetBlockLength(length)) return false;
  mAt = start;
  return length == bytes || Fail("a block has another size than was expected");
}

bool HyperFile::ReadMemoryTo(std::span<std::byte> target) {
  u64 length = 0;
  if (!IsAtMemory(target.size()) || !GetBlockLength(length)) return false;
  char* to = reinterpret_cast<char*>(target.data());
  if (mParts)
    Try([&] { mParts->Read(mAt, {to, target.size()}); });
  else if (length > 0)
    std::memcpy(to, mBytes.data() + mAt, length);
  mAt += length;
  return mError.empty();
}

bool HyperFile::SkipMemory() {
  u64 length = 0;
  if (!GetBlockLength(length)) return false;
  mAt += length;
  return true;
}

bool HyperFile::ReadChunkStart(i32& id, i32& level) {
  u64 length = 0;
  if (!mError.empty() || !GetTag(kChunkStart)) return false;
  if (2 * sizeof(i32) > Limit() - mAt) return Fail("it ends inside of an item");
  const char* data = Look(mAt, 2 * sizeof(i32));
  if (!data) return false;
  id = Load<i32>(data);
  level = Load<i32>(data + 4);
  mAt += 8;
  if (!GetLength(length)) return false;
  const std::size_t end = mAt + length;
  const char* last = length < 1 ? nullptr : Look(end - 1, 1);
  if (!last || static_cast<u8>(*last) != kChunkEnd) return Fail("a chunk has no end");
  mChunks.push_back(end);
  return true;
}

bool HyperFile::SkipToEndChunk() {
  if (!mError.empty() || mChunks.empty()) return false;
  mAt = Limit();
  return true;
}

bool HyperFile::ReadChunkEnd() {
  if (!mError.empty()) return false;
  if (mChunks.empty() || mAt != Limit()) return Fail("a chunk holds more than was expected");
  mAt = mChunks.back();
  mChunks.pop_back();
  return true;
}

}  // namespace MELDO_GLOBAL
