// Any bytes as a typed stream, with and without the checksum that fits them.
#include <cstring>

#include "cache/hyper_file.h"

using namespace MELDO_GLOBAL;

namespace {

/// Reads items of every kind in an order that the bytes choose.
void ReadAll(HyperFile& file, std::string_view choices) {
  for (const char choice : choices) {
    i32 n = 0, level = 0;
    i64 wide = 0;
    i16 word = 0;
    u16 unsignedWord = 0;
    bool truth = false;
    f32 small = 0;
    double real = 0;
    Vec3d vector;
    std::string text;
    std::span<const std::byte> block;
    bool good = true;
    switch (choice & 15) {
      case 0: good = file.ReadLong(n); break;
      case 1: good = file.ReadLLong(wide); break;
      case 2: good = file.ReadWord(word); break;
      case 3: good = file.ReadUWord(unsignedWord); break;
      case 4: good = file.ReadBool(truth); break;
      case 5: good = file.ReadSReal(small); break;
      case 6: good = file.ReadReal(real); break;
      case 7: good = file.ReadLReal(real); break;
      case 8: good = file.ReadVector(vector); break;
      case 9: good = file.ReadText(text); break;
      case 10: good = file.ReadMemory(block); break;
      case 11: good = file.ReadChunkStart(n, level); break;
      case 12: good = file.SkipToEndChunk(); break;
      case 13: good = file.ReadChunkEnd(); break;
      case 14: file.Rewind(); break;
      default: good = !file.AtEnd();
    }
    // Touch every byte of a block, so that one that reaches out of the stream is seen.
    volatile unsigned sum = 0;
    for (const std::byte byte : block) sum = sum + static_cast<unsigned>(byte);
    if (!good && file.Error().empty() && choice == 0) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  HyperFile file;
  file.OpenMemory(kCacheIdent, bytes);
  if (size < 8) return 0;
  const std::string_view choices = std::string_view(bytes).substr(0, 8);
  HyperFile framed;
  if (framed.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, bytes.substr(8))))
    ReadAll(framed, choices);
  return 0;
}
