// Light of a fire: what a burning cell gives, and what reaches the things round it.
#pragma once
#include <array>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::app {

/// Linear red, green and blue.
using Colour = std::array<float, 3>;

/// Light of a hot body at `t`, 0..1, of its full value, for a path of length 1: nothing, deep red,
/// orange, yellow, nearly white, each stronger than the one before.
Colour FireColour(float t);

/// The light of all burning cells of a picture on any of its cells, without shadows: it falls off
/// with the square of the distance. Kept in coarse cells, a few dozen on an axis.
class FireLight {
 public:
  /// `cells` are the cells of the picture.
  explicit FireLight(const VecInt3D& cells);

  /// A cell gives `light`.
  void Add(const VecInt3D& cell, const Colour& light);
  /// Spreads what was added; once, before the first `At`.
  void Spread();
  /// The light on a cell.
  Colour At(const VecInt3D& cell) const;
  bool IsDark() const { return mIsDark; }

 private:
  std::size_t Index(i32 x, i32 y, i32 z) const {
    return (std::size_t{1} * z * mDims.y + y) * mDims.x + x;
  }
  /// Means of three neighbours at a distance of `step` along each axis, one after the other.
  void Blur(i32 step);

  VecInt3D mDims{};
  i32 mCoarse = 1;  ///< cells of the picture in a coarse one, per axis
  std::vector<Colour> mLight, mBlurred;
  bool mIsDark = true;
};

}  // namespace MELDO_GLOBAL::app
