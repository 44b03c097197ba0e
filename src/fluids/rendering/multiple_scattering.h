// Light that was scattered more than once, as a blur of the light that was scattered first.
#pragma once
#include <memory>
#include <vector>

#include "fluids/fields/channel.h"
#include "fluids/rendering/field_view.h"
#include "fluids/rendering/gas_look.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// A grid at growing blur and falling size.
class SourcePyramid {
 public:
  /// Takes the finest level and makes the others, each half as large, blurred with `strength`
  /// (cells) first; the last has at least 5 cells on every axis.
  void Build(std::unique_ptr<EGrid<double>> source, double strength);
  bool IsEmpty() const { return mLevels.empty(); }
  i32 LevelCount() const { return static_cast<i32>(mLevels.size()); }
  double WidthOf(i32 level) const { return mLevels[level].width; }
  /// The value at a place, blurred by `width` (host units): between the two levels of the nearest
  /// widths, the first or last level outside of them.
  double At(const Vec3d& world, double width) const;

 private:
  struct Level {
    std::unique_ptr<EGrid<double>> grid;
    FieldView view;
    double width;  ///< of a cell, host units
  };
  std::vector<Level> mLevels;
};

/// The maps of one lamp.
struct ScatterRecord {
  std::unique_ptr<EGrid<double>> source;    ///< light after its way through the smoke
  std::unique_ptr<EGrid<double>> depth;     ///< scattering depth of that way
  std::unique_ptr<EGrid<double>> distance;  ///< its length in the smoke, scaled
  FieldView depthView, distanceView;
  SourcePyramid pyramid;
  Vec3d hue{1, 1, 1};  ///< of the lamp: colour over luminance
};

/// Settings and maps of the multiple scattering.
///
/// After Premoze, Ashikhmin, Tessendorf, Ramamoorthi, Nayar, "Practical rendering of multiple
/// scattering effects in participating media" (2004): the spread of a beam after a scattering
/// depth T is a Gaussian whose width grows with the way and the depth.
struct MultipleScattering : MultipleSettings {
  double anisotropy = 0.6;
  WalkSteps steps;                     ///< host units
  double meanDensity = 0;              ///< of the smoke, for `uniform`
  std::vector<ScatterRecord> records;  ///< by lamp

  /// Width of the spread after the way `distance` with the scattering depth `depth`.
  double WidthAt(double distance, double depth) const;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
