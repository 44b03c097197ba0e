// Seeded noise in space, and in space and time.
#pragma once
#include <vector>

#include "host/parameter.h"

namespace MELDO_GLOBAL::host {

/// What an octave is and how octaves are put together; the numbers are those that parameters hold.
enum class NoiseType : i32 {
  Gradient = 0,    ///< one octave; -1..1 about a mean of 0
  Cells = 3,       ///< flat cells about loose points, each with a number of its own: 0..1
  Turbulence = 8,  ///< sum of |octave|: 0..1, creased where an octave is 0
  Fbm = 13,        ///< sum of octaves; -1..1 about a mean of 0
  Ridged = 15,     ///< sum of (1 - |octave|)^2: 0..1, ridges where an octave is 0
  Voronoi = 25,    ///< distance to the nearest of loose points, at most 1: 0..1, 0 at a point
};

/// The words of `NoiseType` for parameter rows.
std::vector<Choice> NoiseChoices();
/// The type of a stored number. Of numbers that are none, 30 is the turbulence that it is nearest
/// to, and all others `Fbm`.
NoiseType NoiseTypeOf(i32 number);
/// Whether values of a type swing about 0, and not from 0 to 1.
constexpr bool SwingsAboutZero(NoiseType type) {
  return type == NoiseType::Gradient || type == NoiseType::Fbm;
}

/// A noise field. Features are about one unit large; scale the position to change that. A field is
/// a pure function of its seed and arguments: it may be used from any thread, needs no table, and
/// has no period in space. Fields of different seeds are unrelated. Values of one octave and of
/// `Fbm` have continuous second derivatives.
///
/// Perlin, "Improving noise" (SIGGRAPH 2002), eq. of the quintic fade and the gradients to the
/// middles of a cube's edges (in four dimensions: of a hypercube's), over an integer hash instead
/// of a permutation table. Loose points: Worley, "A cellular texture basis function" (SIGGRAPH
/// 1996), with one point in every cube of the lattice.
class Noise {
 public:
  explicit Noise(u32 seed);

  /// Octaves (1 to 16 are used) double in frequency and halve in weight; the weights are
  /// normalised, so that the range doesn't depend on their number. 0 for a position that isn't
  /// finite.
  double Evaluate(NoiseType type, const Vec3d& position, i32 octaves) const;
  /// The same with time as a fourth axis; `repeat` above 0 makes it repeat after so many units of
  /// time.
  double Evaluate(NoiseType type, const Vec3d& position, double time, i32 octaves,
                  i32 repeat = 0) const;

 private:
  static constexpr i32 kMaxOctaves = 16;
  struct Octave {
    u32 seed;
    double offset[4];  ///< keeps the zeros at the lattice points of the octaves apart
  };
  Octave mOctaves[kMaxOctaves];
};

}  // namespace MELDO_GLOBAL::host
