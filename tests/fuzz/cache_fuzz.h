// Any bytes as the body of a cache's file.
#pragma once
#include <string>

#include "cache/hyper_file.h"

namespace MELDO_GLOBAL {

/// Reads all that a file says to hold: its header by `readHeader`, then in each of its chunks calls
/// readChunk(file, header, chunk), then describes it. Stops the program where a header that can't
/// be read gives no reason.
template <class Header, class CountOf, class ReadChunk, class Describe>
void ReadAnyCache(const u8* data, std::size_t size,
                  bool (*readHeader)(HyperFile&, Header&, std::string&), CountOf&& countOf,
                  ReadChunk&& readChunk, Describe&& describe) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  HyperFile file;
  if (!file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, body))) __builtin_trap();
  Header header;
  std::string problem;
  if (!readHeader(file, header, problem)) {
    if (problem.empty()) __builtin_trap();
    return;
  }
  for (std::size_t chunk = 0; chunk < countOf(header); ++chunk) {
    i32 id, level;
    if (!file.ReadChunkStart(id, level)) break;
    readChunk(file, header, chunk);
    if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) break;
  }
  file.Rewind();
  describe(file);
}

}  // namespace MELDO_GLOBAL
