#include "exchange/byte_source.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>

#include "host/file_error.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::size_t kBuffer = 1 << 16, kMostPeeked = 4096;
/// No packed byte of this method becomes more than so many.
constexpr u64 kMostUnpacked = 1032;
constexpr std::string_view kGzip = "\x1f\x8b";

/// Whether bytes begin like a zlib stream of the usual window and without a dictionary.
bool IsZlib(std::string_view head) {
  constexpr int kMethod = 0x78, kDictionary = 0x20, kCheck = 31;
  if (head.size() < 2) return false;
  const int first = static_cast<u8>(head[0]), second = static_cast<u8>(head[1]);
  return first == kMethod && (second & kDictionary) == 0 && (first * 256 + second) % kCheck == 0;
}

}  // namespace

class ByteFeed {
 public:
  virtual ~ByteFeed() = default;
  /// As many bytes as there are at once, at most `size`; 0 at the end.
  virtual std::size_t Pull(char* to, std::size_t size) = 0;
  virtual u64 MostLeft() const = 0;
  /// Whether it went on by so many bytes; if not, they have to be read.
  virtual bool Leap(u64) { return false; }
  virtual void Rewind() = 0;
};

namespace {

class FileFeed : public ByteFeed {
 public:
  explicit FileFeed(const std::filesystem::path& path)
      : mFile(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat facts {};
    if (mFile < 0) throw host::FileError(errno == ENOENT ? "no such file" : "no right to read it");
    if (::fstat(mFile, &facts) != 0 || !S_ISREG(facts.st_mode)) {
      ::close(mFile);
      throw host::FileError(S_ISDIR(facts.st_mode) ? "it is a folder" : "it is no plain file");
    }
    mSize = static_cast<u64>(facts.st_size);
  }
  ~FileFeed() override { ::close(mFile); }
  FileFeed(const FileFeed&) = delete;
  FileFeed& operator=(const FileFeed&) = delete;

  std::size_t Pull(char* to, std::size_t size) override {
    const ssize_t got = ::pread(mFile, to, size, static_cast<off_t>(mAt));
    if (got < 0) throw host::FileError("it can't be read");
    mAt += static_cast<u64>(got);
    return static_cast<std::size_t>(got);
  }
  u64 MostLeft() const override { return mSize - std::min(mAt, mSize); }
  bool Leap(u64 size) override {
    if (size > MostLeft()) return false;
    mAt += size;
    return true;
  }
  void Rewind() override { mAt = 0; }

 private:
  int mFile;
  u64 mSize = 0, mAt = 0;
};

class MemoryFeed : public ByteFeed {
 public:
  explicit MemoryFeed(std::string_view bytes) : mBytes(bytes) {}
  std::size_t Pull(char* to, std::size_t size) override {
    const std::size_t count = mBytes.copy(to, size, mAt);
    mAt += count;
    return count;
  }
  u64 MostLeft() const override { return mBytes.size() - mAt; }
  void Rewind() override { mAt = 0; }

 private:
  std::string_view mBytes;
  std::size_t mAt = 0;
};

/// Unpacks zlib streams or members of gzip.
class InflateFeed : public ByteFeed {
 public:
  InflateFeed(std::unique_ptr<ByteFeed> own, std::string_view head)
      : mOwn(std::move(own)), mInput(head) {
    Start();
  }
  explicit InflateFeed(ByteSource& packed) : mPacked(&packed) { Start(); }
  ~InflateFeed() override { inflateEnd(&mStream); }
  InflateFeed(const InflateFeed&) = delete;
  InflateFeed& operator=(const InflateFeed&) = delete;

  std::size_t Pull(char* to, std::size_t size) override {
    mStream.next_out = reinterpret_cast<Bytef*>(to);
    mStream.avail_out = static_cast<uInt>(size);
    while (mStream.avail_out == size && !mIsDone) {
      if (mStream.avail_in == 0 && !Refill()) Damaged("it ends too early");
      const int result = inflate(&mStream, Z_NO_FLUSH);
      if (result == Z_STREAM_END) {
        mIsDone = true;
        // A file may be several members of gzip, one behind the other.
        if (mOwn && HasNextHead()) mIsDone = inflateReset(&mStream) != Z_OK;
      } else if (result != Z_OK) {
        Damaged("what it has packed is damaged");
      }
    }
    return size - mStream.avail_out;
  }
  u64 MostLeft() const override {
    const u64 packed = mStream.avail_in + (mOwn ? mOwn->MostLeft() : mPacked->MostLeft());
    return mIsDone ? 0 : packed * kMostUnpacked + kBuffer;
  }
  void Rewind() override {
    if (!mOwn) Damaged("it can't be read twice");
    mOwn->Rewind();
    mStream.avail_in = 0;
    mIsDone = inflateReset(&mStream) != Z_OK;
  }

 private:
  void Start() {
    constexpr int kWindow = 15, kEitherHead = 32;
    if (inflateInit2(&mStream, kWindow + kEitherHead) != Z_OK) throw std::bad_alloc();
    mStream.next_in = reinterpret_cast<Bytef*>(mInput.data());
    mStream.avail_in = static_cast<uInt>(mInput.size());
  }
  /// Whether another member begins here; its head may lie across the end of the input.
  bool HasNextHead() {
    if (mStream.avail_in < kGzip.size()) {
      const std::string kept(reinterpret_cast<const char*>(mStream.next_in), mStream.avail_in);
      mInput.resize(kBuffer);
      std::size_t count = kept.copy(mInput.data(), kept.size());
      while (count < kGzip.size()) {
        const std::size_t got = mOwn->Pull(mInput.data() + count, mInput.size() - count);
        if (got == 0) break;
        count += got;
      }
      mStream.next_in = reinterpret_cast<Bytef*>(mInput.data());
      mStream.avail_in = static_cast<uInt>(count);
    }
    return std::string_view(reinterpret_cast<const char*>(mStream.next_in), mStream.avail_in)
        .starts_with(kGzip);
  }
  bool Refill() {
    mInput.resize(kBuffer);
    std::size_t count = 0;
    if (mOwn) {
      count = mOwn->Pull(mInput.data(), mInput.size());
    } else {
      count = mPacked->ReadUpTo(mInput.data(), mInput.size());
    }
    mStream.next_in = reinterpret_cast<Bytef*>(mInput.data());
    mStream.avail_in = static_cast<uInt>(count);
    return count > 0;
  }

  std::unique_ptr<ByteFeed> mOwn;
  ByteSource* mPacked = nullptr;
  std::string mInput;
  z_stream mStream{};
  bool mIsDone = false;
};

}  // namespace

void Damaged(std::string_view what) { throw host::FileError(std::string(what)); }

ByteSource::ByteSource(std::unique_ptr<ByteFeed> feed) : mFeed(std::move(feed)), mBuffer(kBuffer) {}
ByteSource::ByteSource(const std::filesystem::path& path)
    : ByteSource(std::make_unique<FileFeed>(path)) {
  Unwrap();
}
ByteSource::ByteSource(std::string_view bytes) : ByteSource(std::make_unique<MemoryFeed>(bytes)) {
  Unwrap();
}
ByteSource::ByteSource(ByteSource&&) noexcept = default;
ByteSource::~ByteSource() = default;

ByteSource ByteSource::Unpacked(ByteSource& packed) {
  ByteSource source(std::make_unique<InflateFeed>(packed));
  source.mIsPacked = true;
  return source;
}

void ByteSource::Unwrap() {
  const std::string_view head = Peek(kGzip.size());
  if (!head.starts_with(kGzip) && !IsZlib(head)) return;
  mFeed = std::make_unique<InflateFeed>(std::move(mFeed), std::string_view(mBuffer.data(), mEnd));
  mNext = mEnd = 0;
  mIsPacked = true;
}

bool ByteSource::Fill() {
  mPassed += mEnd;
  mNext = 0;
  mEnd = mFeed->Pull(mBuffer.data(), mBuffer.size());
  return mEnd > 0;
}

std::size_t ByteSource::ReadUpTo(void* to, std::size_t size) {
  char* out = static_cast<char*>(to);
  std::size_t done = 0;
  while (done < size && (mNext < mEnd || Fill())) {
    const std::size_t count = std::min(size - done, mEnd - mNext);
    std::memcpy(out + done, mBuffer.data() + mNext, count);
    mNext += count;
    done += count;
  }
  return done;
}

void ByteSource::Read(void* to, std::size_t size) {
  if (ReadUpTo(to, size) < size) Damaged("it ends too early");
}

void ByteSource::Skip(u64 size) {
  const u64 here = std::min<u64>(size, mEnd - mNext);
  mNext += static_cast<std::size_t>(here);
  size -= here;
  if (size > 0 && mFeed->Leap(size)) {
    mPassed += size;
    return;
  }
  while (size > 0) {
    if (!Fill()) Damaged("it ends too early");
    mNext = static_cast<std::size_t>(std::min<u64>(size, mEnd));
    size -= mNext;
  }
}

std::string ByteSource::Text(std::size_t size) {
  if (size > MostLeft()) Damaged("it ends too early");
  std::string text(size, '\0');
  Read(text.data(), size);
  return text;
}

std::string_view ByteSource::Peek(std::size_t size) {
  size = std::min(size, kMostPeeked);
  if (mEnd - mNext < size) {
    std::memmove(mBuffer.data(), mBuffer.data() + mNext, mEnd - mNext);
    mPassed += mNext;
    mEnd -= mNext;
    mNext = 0;
    while (mEnd < size) {
      const std::size_t got = mFeed->Pull(mBuffer.data() + mEnd, mBuffer.size() - mEnd);
      if (got == 0) break;
      mEnd += got;
    }
  }
  return {mBuffer.data() + mNext, std::min(size, mEnd - mNext)};
}

void ByteSource::Rewind() {
  mFeed->Rewind();
  mNext = mEnd = 0;
  mPassed = 0;
}

u64 ByteSource::MostLeft() const { return mEnd - mNext + mFeed->MostLeft(); }

void ByteSource::Expect(i64 count, std::size_t bytesEach, std::string_view things,
                        u64 lacking) const {
  if (count < 0) Damaged(fmt::format("it says to hold {} {}", count, things));
  const u64 most = (MostLeft() + lacking) / std::max<std::size_t>(bytesEach, 1);
  if (static_cast<u64>(count) > most)
    Damaged(
        fmt::format("it says to hold {} {}, but has bytes for {} at most", count, things, most));
}

}  // namespace MELDO_GLOBAL::exchange
