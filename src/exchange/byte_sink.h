// Bytes on their way into a file, packed where that is asked for.
#pragma once
#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/atomic_file.h"
#include "host/types.h"

namespace MELDO_GLOBAL::exchange {

/// How what goes into a sink is wrapped.
enum class Wrapping { None, Gzip, Zlib };

/// Takes bytes from front to back, by way of a small buffer. Throws host::FileError. Bytes that are
/// packed carry no date: equal bytes give equal files.
class ByteSink {
 public:
  /// Behind what the file or the text holds; both outlive the sink.
  explicit ByteSink(host::PartFile& file, Wrapping wrapping = Wrapping::None);
  explicit ByteSink(std::string& bytes, Wrapping wrapping = Wrapping::None);
  /// Packs what it takes into another sink, which takes nothing else meanwhile.
  ByteSink(ByteSink& outer, Wrapping wrapping);
  ~ByteSink();
  ByteSink(const ByteSink&) = delete;
  ByteSink& operator=(const ByteSink&) = delete;

  void Append(std::string_view bytes);
  template <class T>
  void Number(T value, std::endian order = std::endian::little) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    if (order != std::endian::native) std::reverse(bytes, bytes + sizeof value);
    Append({bytes, sizeof bytes});
  }
  /// A text in a field of fixed length, filled with zeros; what is longer is cut.
  void Field(std::string_view text, std::size_t length);
  /// Hands on what the buffer holds and ends what is packed; nothing may follow.
  void Finish();

 private:
  struct Packer;
  void Flush();
  void HandOn(std::string_view bytes);
  void Start(Wrapping wrapping);

  host::PartFile* mFile = nullptr;
  std::string* mBytes = nullptr;
  ByteSink* mOuter = nullptr;
  std::string mBuffer;
  std::unique_ptr<Packer> mPacker;
};

}  // namespace MELDO_GLOBAL::exchange
