// Pictures that colour what a simulation makes.
#pragma once
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "host/node.h"

namespace MELDO_GLOBAL::host {

/// A picture file that can't be used; `what` is one sentence with the file's name.
class ImageFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A picture in linear light.
struct Image {
  i32 width = 0, height = 0;
  std::vector<Vec3D<f32>> pixels;  ///< rows from top to bottom

  bool IsEmpty() const { return pixels.empty(); }
  /// Bilinear; u goes to the right and v up, and the picture repeats beyond 0 to 1.
  Vec3d At(double u, double v) const;
};

/// Reads a PNG (values below white are those of a display) or an OpenEXR file (linear), by its
/// suffix. Throws ImageFileError.
Image LoadImage(const std::filesystem::path& file);

/// Type of host nodes beside those of `HostType`.
inline constexpr i32 kImageObject = 5108;

enum ImageParameter : i32 { kImageColour = 1000, kImageSize = 1001 };
struct ImageSettings : ParameterHolder {
  Vec3d colour{1, 1, 1};
  Vec3d size{100, 100, 0};  ///< host units
};
const ParameterTable& ImageParameters();

/// A picture, or a constant colour, which other nodes look up at surface coordinates or at places.
/// It hangs in the xy plane of its own frame, centred, and repeats there.
class ImageObject : public BaseNode {
 public:
  using BaseNode::BaseNode;
  Image picture;  ///< without one the colour is the same everywhere

  /// How it looks in a frame: the colour of its rows times the picture.
  class Sampler {
   public:
    Sampler() = default;
    explicit Sampler(const ImageObject& image);
    Vec3d AtUv(const Vec3d& uv) const;
    /// At a place in host units of the document.
    Vec3d AtPlace(const Vec3d& world) const;

   private:
    const Image* mPicture = nullptr;
    ImageSettings mSettings;
    Matrix mToFrame;
  };
};

}  // namespace MELDO_GLOBAL::host
