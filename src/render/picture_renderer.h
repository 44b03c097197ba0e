// Pictures of a document.
#pragma once
#include <functional>
#include <vector>

#include "host/renderer.h"
#include "io/png_file.h"
#include "scene/render_spec.h"

namespace MELDO_GLOBAL::app {

/// A picture with its layers: linear light, rows from top to bottom.
struct RenderedPicture {
  using Colour = Vec3D<float>;
  struct Pixel {
    Colour colour;  ///< without the sky
    Colour sky;     ///< to be added to `colour`
    float alpha = 0;
    Colour scattering, emission, transmittance;
    float depth = 0;  ///< of the nearest thing, host units from the camera; kNoDepth for none
  };
  static constexpr float kNoDepth = 1e10f;

  i32 width = 0;
  i32 height = 0;
  std::vector<Pixel> pixels;
  std::vector<bool> isDrawn;  ///< for each medium, whether it had anything to draw
  std::vector<i64> spheres;   ///< for each material of particles, how many it had
  double setUpSeconds = 0;    ///< until the first ray
  i64 samples = 0;            ///< of the media, on all rays
};

/// The materials of a `RenderSpec`, in its order.
struct PictureMaterials {
  std::vector<host::VolumeMaterial*> media;
  std::vector<std::pair<host::NodeId, host::Shader*>> shaders;
  std::vector<const host::ParticleMaterial*> particles;
};

/// Called now and then by the thread that asked for the picture, with the part that is done.
using RenderProgress = std::function<void(double part)>;

/// Draws the document's frame with as many threads as the worker pool has. The pixels depend on
/// nothing but the scene. Media with nothing to draw are left out, and shaders with nothing to read
/// are white. The objects of the document move for motion blur and stand at `frame` again at the
/// end. Stopped early, with an unfinished picture, by `thread`.
RenderedPicture RenderPicture(const RenderSpec& spec, i32 frame, const PictureMaterials& materials,
                              const host::HostThread& thread, const RenderProgress& progress = {});

/// The picture for a screen: exposure and tone curve of the settings, sRGB, with a grain of half a
/// step that hides the steps of 8 bits.
Picture ToneMap(const RenderedPicture& picture, const host::BaseNode& settings);

}  // namespace MELDO_GLOBAL::app
