// Pictures with layers as OpenEXR files.
#pragma once
#include <string>

#include "io/export_origin.h"
#include "render/picture_renderer.h"

namespace MELDO_GLOBAL::app {

/// The bytes of an OpenEXR file. RGBA in half precision: linear light without the sky, multiplied
/// by alpha. Layers `scattering`, `emission` and `transmittance` (half RGB) of the media, and
/// `depth` (float Z); the texts as attributes. Equal pictures and texts give equal bytes. Throws
/// CommandError (kExitFile) where the encoder fails.
std::string EncodeExr(const RenderedPicture& picture, const FileTexts& texts = {});

}  // namespace MELDO_GLOBAL::app
