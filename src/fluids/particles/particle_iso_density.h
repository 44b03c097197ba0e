// The density that particles have where they lie evenly.
#pragma once
#include <map>

#include "fluids/particles/kernel.h"
#include "framework/scene_part.h"
#include "host/node.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures what the kernel sum of particles comes to on an even lattice, once for each scale of
/// the scene and each kernel. It belongs to the scene. The rows of the server say how it measures:
/// 1400 links a kernel, without which the weight falls in a straight line with the squared
/// distance; 1401 as a whole number, and one more, are the particles along the edge of a cell; 1402
/// is the radius in half cells.
class ParticleIsoDensity : public ScenePart {
 public:
  /// Measures anew where cells, kernel, radius or spacing are others than before.
  void UpdateDomain(SulvaScene& scene) override;

  /// The largest sum over the neighbours of a particle of the lattice, itself among them; at least
  /// 1e-5, and 1 before the first look at a scene.
  double Value() const { return mValue; }
  i32 Measurements() const { return mMeasurements; }
  /// That of a scene; null where none was added.
  static const ParticleIsoDensity* Of(const SulvaScene& scene);

  /// The same of a lattice of particles of mass 1, `spacing` of a cell apart, on 10^3 cells of size
  /// `cell`, whose neighbours are closer than `radius` (simulation units).
  static double Measure(double cell, double spacing, double radius, const Kernel& kernel);

 private:
  /// What a measurement follows from.
  struct Settings {
    double cell = 0, spacing = 0, radius = 0;
    std::map<i32, host::Value> kernel;
    friend bool operator==(const Settings&, const Settings&) = default;
  };

  Settings mMeasured;
  double mValue = 1;
  i32 mMeasurements = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
