#include "host/image.h"

#include <OpenEXR/ImfArray.h>
#include <OpenEXR/ImfRgbaFile.h>
#include <png.h>

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::host {

namespace {

// Pixels: what is larger is taken for a broken header.
constexpr i64 kMost = i64{1} << 28;

[[noreturn]] void Fail(const std::filesystem::path& file, std::string_view why) {
  throw ImageFileError("image file \"" + file.string() + "\" " + std::string(why));
}

void SetSize(Image& image, i64 width, i64 height, const std::filesystem::path& file) {
  if (width < 1 || height < 1 || width * height > kMost)
    Fail(file, "has " + std::to_string(width) + " x " + std::to_string(height) +
                   " pixels, which is too large");
  image.width = static_cast<i32>(width);
  image.height = static_cast<i32>(height);
  image.pixels.resize(static_cast<std::size_t>(width * height));
}

Image LoadPng(const std::filesystem::path& file) {
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&header, file.c_str()))
    Fail(file, std::string("can't be read: ") + header.message);
  header.format = PNG_FORMAT_LINEAR_RGB;
  Image image;
  std::vector<u16> samples;
  try {
    SetSize(image, header.width, header.height, file);
    samples.resize(image.pixels.size() * 3);
  } catch (...) {
    png_image_free(&header);
    throw;
  }
  if (!png_image_finish_read(&header, nullptr, samples.data(), 0, nullptr))
    Fail(file, std::string("can't be read: ") + header.message);
  for (std::size_t i = 0; i < image.pixels.size(); ++i)
    for (i32 c = 0; c < 3; ++c)
      image.pixels[i][c] =
          static_cast<f32>(samples[3 * i + static_cast<std::size_t>(c)]) / 65535.0f;
  return image;
}

Image LoadExr(const std::filesystem::path& file) {
  try {
    Imf::RgbaInputFile input(file.c_str());
    const Imath::Box2i window = input.dataWindow();
    Image image;
    SetSize(image, i64{window.max.x} - window.min.x + 1, i64{window.max.y} - window.min.y + 1,
            file);
    std::vector<Imf::Rgba> row(static_cast<std::size_t>(image.width));
    for (i32 y = 0; y < image.height; ++y) {
      // Rows of a window that begins elsewhere are reached from a base before the buffer.
      input.setFrameBuffer(row.data() - window.min.x, 1, 0);
      input.readPixels(y + window.min.y);
      for (i32 x = 0; x < image.width; ++x)
        image.pixels[static_cast<std::size_t>(y) * image.width + x] = {row[x].r, row[x].g,
                                                                       row[x].b};
    }
    return image;
  } catch (const ImageFileError&) {
    throw;
  } catch (const std::exception& error) {
    Fail(file, std::string("can't be read: ") + error.what());
  }
}

}  // namespace

Image LoadImage(const std::filesystem::path& file) {
  std::string suffix = file.extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(file, ignored)) Fail(file, "doesn't exist");
  if (suffix == ".png") return LoadPng(file);
  if (suffix == ".exr") return LoadExr(file);
  Fail(file, "has an unknown format; expected .png or .exr");
}

Vec3d Image::At(double u, double v) const {
  if (IsEmpty() || !std::isfinite(u) || !std::isfinite(v)) return {};
  const double x = (u - std::floor(u)) * width - 0.5, y = (1 - (v - std::floor(v))) * height - 0.5;
  const double left = std::floor(x), top = std::floor(y);
  const auto pixel = [&](double px, double py) {
    const i32 i = (static_cast<i32>(px) % width + width) % width;
    const i32 j = (static_cast<i32>(py) % height + height) % height;
    const Vec3D<f32>& p = pixels[static_cast<std::size_t>(j) * width + i];
    return Vec3d{p.x, p.y, p.z};
  };
  const double fx = x - left, fy = y - top;
  const Vec3d upper = pixel(left, top) * (1 - fx) + pixel(left + 1, top) * fx;
  const Vec3d lower = pixel(left, top + 1) * (1 - fx) + pixel(left + 1, top + 1) * fx;
  return upper * (1 - fy) + lower * fy;
}

const ParameterTable& ImageParameters() {
  static const ParameterTable table = {
      VectorRow(kImageColour, "colour", {1, 1, 1}, "none",
                "factor on the picture, linear; without a file the colour itself")
          .AtLeast(0)
          .To(&ImageSettings::colour),
      VectorRow(kImageSize, "size", {100, 100, 0}, "host",
                "width and height of the picture where it is looked up by place")
          .To(&ImageSettings::size),
  };
  return table;
}

ImageObject::Sampler::Sampler(const ImageObject& image)
    : mPicture(image.picture.IsEmpty() ? nullptr : &image.picture),
      mToFrame(Inverse(image.GlobalMatrix())) {
  FillMembers(ImageParameters(), &image, mSettings);
}

Vec3d ImageObject::Sampler::AtUv(const Vec3d& uv) const {
  return mPicture ? mPicture->At(uv.x, uv.y) * mSettings.colour : mSettings.colour;
}

Vec3d ImageObject::Sampler::AtPlace(const Vec3d& world) const {
  if (!mPicture) return mSettings.colour;
  const Vec3d p = mToFrame * world;
  return AtUv({p.x / mSettings.size.x + 0.5, p.y / mSettings.size.y + 0.5, 0});
}

}  // namespace MELDO_GLOBAL::host
