#include "render/exr_file.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfIO.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfStringAttribute.h>

#include <algorithm>
#include <array>

#include "host/exit_codes.h"

namespace MELDO_GLOBAL::app {

namespace {

/// A file in memory.
class MemoryStream : public Imf::OStream {
 public:
  MemoryStream() : OStream("picture") {}
  void write(const char bytes[], int count) override {
    const std::size_t end = mPosition + static_cast<std::size_t>(count);
    if (end > mBytes.size()) mBytes.resize(end);
    std::copy(bytes, bytes + count, mBytes.begin() + static_cast<std::ptrdiff_t>(mPosition));
    mPosition = end;
  }
  uint64_t tellp() override { return mPosition; }
  void seekp(uint64_t position) override { mPosition = position; }
  std::string Take() { return std::move(mBytes); }

 private:
  std::string mBytes;
  std::size_t mPosition = 0;
};

using Pixel = RenderedPicture::Pixel;

struct Channel {
  const char* name;
  float (*value)(const Pixel&);
};

constexpr std::array<Channel, 13> kHalfChannels = {{
    {"R", [](const Pixel& p) { return p.colour.x; }},
    {"G", [](const Pixel& p) { return p.colour.y; }},
    {"B", [](const Pixel& p) { return p.colour.z; }},
    {"A", [](const Pixel& p) { return p.alpha; }},
    {"scattering.R", [](const Pixel& p) { return p.scattering.x; }},
    {"scattering.G", [](const Pixel& p) { return p.scattering.y; }},
    {"scattering.B", [](const Pixel& p) { return p.scattering.z; }},
    {"emission.R", [](const Pixel& p) { return p.emission.x; }},
    {"emission.G", [](const Pixel& p) { return p.emission.y; }},
    {"emission.B", [](const Pixel& p) { return p.emission.z; }},
    {"transmittance.R", [](const Pixel& p) { return p.transmittance.x; }},
    {"transmittance.G", [](const Pixel& p) { return p.transmittance.y; }},
    {"transmittance.B", [](const Pixel& p) { return p.transmittance.z; }},
}};
constexpr const char* kDepth = "depth.Z";
constexpr float kLargestHalf = HALF_MAX;

}  // namespace

std::string EncodeExr(const RenderedPicture& picture, const FileTexts& texts) {
  const std::size_t count = picture.pixels.size();
  const auto width = static_cast<std::size_t>(picture.width);
  std::vector<half> halves(kHalfChannels.size() * count);
  std::vector<float> depths(count);
  Imf::Header header(picture.width, picture.height);
  header.compression() = Imf::ZIP_COMPRESSION;
  for (const auto& [key, text] : texts) header.insert(key, Imf::StringAttribute(text));
  Imf::FrameBuffer buffer;
  for (std::size_t c = 0; c < kHalfChannels.size(); ++c) {
    half* plane = halves.data() + c * count;
    for (std::size_t i = 0; i < count; ++i)
      plane[i] = std::clamp(kHalfChannels[c].value(picture.pixels[i]), -kLargestHalf, kLargestHalf);
    header.channels().insert(kHalfChannels[c].name, Imf::Channel(Imf::HALF));
    buffer.insert(kHalfChannels[c].name, Imf::Slice(Imf::HALF, reinterpret_cast<char*>(plane),
                                                    sizeof(half), sizeof(half) * width));
  }
  for (std::size_t i = 0; i < count; ++i) depths[i] = picture.pixels[i].depth;
  header.channels().insert(kDepth, Imf::Channel(Imf::FLOAT));
  buffer.insert(kDepth, Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(depths.data()),
                                   sizeof(float), sizeof(float) * width));
  try {
    MemoryStream stream;
    {
      Imf::OutputFile file(stream, header, 0);
      file.setFrameBuffer(buffer);
      file.writePixels(picture.height);
    }
    return stream.Take();
  } catch (const std::exception& error) {
    throw CommandError(kExitFile, std::string("cannot encode an OpenEXR picture: ") + error.what());
  }
}

}  // namespace MELDO_GLOBAL::app
