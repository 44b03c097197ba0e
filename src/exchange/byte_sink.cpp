#include "exchange/byte_sink.h"

#include <zlib.h>

#include <algorithm>
#include <new>

#include "host/file_error.h"

namespace MELDO_GLOBAL::exchange {

namespace {
constexpr std::size_t kSinkBuffer = 1 << 16;
}

struct ByteSink::Packer {
  z_stream stream{};
  std::string out = std::string(kSinkBuffer, '\0');
  explicit Packer(Wrapping wrapping) {
    // Numbers hardly pack any smaller with more effort.
    constexpr int kEffort = 1, kWindow = 15, kGzipHead = 16, kMemory = 8;
    const int window = wrapping == Wrapping::Gzip ? kWindow + kGzipHead : kWindow;
    if (deflateInit2(&stream, kEffort, Z_DEFLATED, window, kMemory, Z_DEFAULT_STRATEGY) != Z_OK)
      throw std::bad_alloc();
  }
  ~Packer() { deflateEnd(&stream); }
  Packer(const Packer&) = delete;
  Packer& operator=(const Packer&) = delete;
};

ByteSink::ByteSink(host::PartFile& file, Wrapping wrapping) : mFile(&file) { Start(wrapping); }
ByteSink::ByteSink(std::string& bytes, Wrapping wrapping) : mBytes(&bytes) { Start(wrapping); }
ByteSink::ByteSink(ByteSink& outer, Wrapping wrapping) : mOuter(&outer) { Start(wrapping); }
ByteSink::~ByteSink() = default;

void ByteSink::Start(Wrapping wrapping) {
  mBuffer.reserve(kSinkBuffer);
  if (wrapping != Wrapping::None) mPacker = std::make_unique<Packer>(wrapping);
}

void ByteSink::HandOn(std::string_view bytes) {
  if (mFile) mFile->Append(bytes);
  if (mBytes) mBytes->append(bytes);
  if (mOuter) mOuter->Append(bytes);
}

void ByteSink::Flush() {
  if (!mPacker) {
    HandOn(mBuffer);
  } else {
    z_stream& stream = mPacker->stream;
    stream.next_in = reinterpret_cast<Bytef*>(mBuffer.data());
    stream.avail_in = static_cast<uInt>(mBuffer.size());
    while (stream.avail_in > 0) {
      stream.next_out = reinterpret_cast<Bytef*>(mPacker->out.data());
      stream.avail_out = static_cast<uInt>(mPacker->out.size());
      deflate(&stream, Z_NO_FLUSH);
      HandOn({mPacker->out.data(), mPacker->out.size() - stream.avail_out});
    }
  }
  mBuffer.clear();
}

void ByteSink::Append(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t count = std::min(bytes.size(), kSinkBuffer - mBuffer.size());
    mBuffer.append(bytes.substr(0, count));
    bytes.remove_prefix(count);
    if (mBuffer.size() == kSinkBuffer) Flush();
  }
}

void ByteSink::Field(std::string_view text, std::size_t length) {
  std::string field(text.substr(0, length));
  field.resize(length, '\0');
  Append(field);
}

void ByteSink::Finish() {
  Flush();
  if (!mPacker) return;
  z_stream& stream = mPacker->stream;
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(mPacker->out.data());
    stream.avail_out = static_cast<uInt>(mPacker->out.size());
    result = deflate(&stream, Z_FINISH);
    HandOn({mPacker->out.data(), mPacker->out.size() - stream.avail_out});
  }
  if (result != Z_STREAM_END) throw host::FileError("it can't be packed");
}

}  // namespace MELDO_GLOBAL::exchange
