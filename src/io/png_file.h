// Pictures as PNG files.
#pragma once
#include <string>
#include <vector>

#include "host/types.h"
#include "io/export_origin.h"

namespace MELDO_GLOBAL::app {

/// An 8-bit picture, rows from top to bottom, three bytes a pixel.
struct Picture {
  i32 width = 0;
  i32 height = 0;
  std::vector<u8> rgb;
};

/// The bytes of a PNG file with texts; equal pictures and texts give equal bytes. Throws
/// CommandError (kExitMemory) where the encoder runs out of memory.
std::string EncodePng(const Picture& picture, const FileTexts& texts = {});

}  // namespace MELDO_GLOBAL::app
