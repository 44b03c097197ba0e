// Seeded gradient noise in space, and in space and time.
#pragma once
#include <vector>

#include "host/parameter.h"

namespace MELDO_GLOBAL::host {

/// How octaves are put together; the numbers are those that parameters hold.
enum class NoiseType : i32 {
  Gradient = 0,    ///< one octave; -1..1 about a mean of 0
  Turbulence = 8,  ///< sum of |octave|: 0..1, creased where an octave is 0
  Fbm = 13,        ///< sum of octaves; -1..1 about a mean of 0
  Ridged = 15,     ///< sum of (1 - |octave|)^2: 0..1, ridges where an octave is 0
};

/// The words of `NoiseType` for parameter rows.
std::vector<Choice> NoiseChoices();
/// The type of a stored number; `Fbm` for a number that is none.
NoiseType NoiseTypeOf(i32 number);

/// A noise field. Features are about one unit large; scale the position to change that. A field is
/// a pure function of its seed and arguments: it may be used from any thread, needs no table, and
/// has no period in space. Fields of different seeds are unrelated. Values of one octave and of
/// `Fbm` have continuous second derivatives.
///
/// Perlin, "Improving noise" (SIGGRAPH 2002), eq. of the quintic fade and the gradients to the
/// middles of a cube's edges (in four dimensions: of a hypercube's), over an integer hash instead
/// of a permutation table.
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
