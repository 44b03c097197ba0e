#include "io/png_file.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>

#include "host/exit_codes.h"

namespace MELDO_GLOBAL::app {

namespace {

void Append(png_structp png, png_bytep data, png_size_t length) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<char*>(data), length);
}

void Flush(png_structp) {}

/// Plain text where ASCII is enough, which every reader knows, else UTF-8. What is answered points
/// into the texts.
std::vector<png_text> TextChunks(const FileTexts& texts) {
  std::vector<png_text> chunks;
  for (const auto& [key, text] : texts) {
    const bool isAscii =
        std::all_of(text.begin(), text.end(), [](char c) { return static_cast<u8>(c) < 0x80; });
    png_text& chunk = chunks.emplace_back();
    chunk = {};
    chunk.compression = isAscii ? PNG_TEXT_COMPRESSION_NONE : PNG_ITXT_COMPRESSION_NONE;
    chunk.key = const_cast<char*>(key.c_str());
    chunk.text = const_cast<char*>(text.c_str());
    (isAscii ? chunk.text_length : chunk.itxt_length) = text.size();
  }
  return chunks;
}

/// The encoder's errors jump back here, so nothing with a destructor may stand in this frame.
bool Write(png_structp png, png_infop info, const Picture& picture,
           const std::vector<png_text>& texts, std::string& bytes) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_write_fn(png, &bytes, Append, Flush);
  png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width),
               static_cast<png_uint_32>(picture.height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_sRGB(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
  if (!texts.empty()) png_set_text(png, info, texts.data(), static_cast<int>(texts.size()));
  png_write_info(png, info);
  for (i32 y = 0; y < picture.height; ++y)
    png_write_row(png, picture.rgb.data() + std::size_t{3} * picture.width * y);
  png_write_end(png, info);
  return true;
}

}  // namespace

std::string EncodePng(const Picture& picture, const FileTexts& texts) {
  std::string bytes;
  const std::vector<png_text> chunks = TextChunks(texts);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  const bool written = info && Write(png, info, picture, chunks, bytes);
  png_destroy_write_struct(&png, &info);
  if (!written) throw CommandError(kExitMemory, "out of memory while writing a picture");
  return bytes;
}

}  // namespace MELDO_GLOBAL::app
