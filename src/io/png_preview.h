// A picture for a quick look: fields as light through smoke on a dark background.
#pragma once
#include <vector>

#include "fluids/particles/particle_store.h"
#include "grids/egrid.h"
#include "io/png_file.h"

namespace MELDO_GLOBAL::app {

enum class Palette { Smoke, Soot, Dust, Fire };

/// A field that scatters (smoke, the soot of a fire, dust) or glows like a hot body (fire). Grids
/// at cell centres: one component, or three of a vector whose length counts.
struct PreviewLayer {
  const EGrid<double>* grids[3] = {};
  Palette palette = Palette::Smoke;
  double full = 1;  ///< the value of full density
};

/// Something solid, by its signed distances on nodes.
struct PreviewSolid {
  const EGrid<double>* distance = nullptr;
  bool isFaint = false;  ///< drawn as a breath of its shape, for what stands in the smoke
};

/// Particles as discs of their radius, a pixel or so at least, in their colour or that of the kind.
struct PreviewDots {
  const MELDO_SULVA::ParticleStore* particles = nullptr;
  Vec3d colour{1, 1, 1};
};

/// What the camera sees: a box (simulation units) along an axis, from its high side, without
/// perspective, y up (along y: -z up).
struct PreviewView {
  Vec3d min, max;
  double cell = 1;  ///< size of the samples
  int axis = 2;
};

/// Draws the layers, lit from above, and particles in them, 512 pixels on the long side. The
/// exposure depends on nothing but the box and the layers' full values, so that the frames of a run
/// compare.
Picture DrawPreview(const PreviewView& view, const std::vector<PreviewLayer>& layers,
                    const std::vector<PreviewSolid>& solids,
                    const std::vector<PreviewDots>& dots = {});

}  // namespace MELDO_GLOBAL::app
