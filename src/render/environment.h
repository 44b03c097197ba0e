// The light that comes from all round a scene.
#pragma once
#include <vector>

#include "host/image.h"
#include "host/render_objects.h"
#include "host/value.h"

namespace MELDO_GLOBAL::app {

/// The sky: a gradient from below to above, or a picture all round whose columns are equal steps of
/// the turn about y and whose rows are equal steps of the angle from straight up.
class Environment {
 public:
  Environment() = default;
  Environment(const host::RenderSettings& settings, const host::Document& document);

  /// The light that comes from a direction, of length 1.
  Vec3d Light(const Vec3d& direction) const;

  /// Whether rays are worth aiming at its bright parts: a picture with light in it.
  bool IsAimedAt() const { return !mRowSums.empty(); }
  struct Aim {
    Vec3d direction;
    double density = 0;  ///< chance a steradian; 0 where there is no light
  };
  /// A direction that is as likely as its pixel is bright, times the pixel's solid angle. `u` in
  /// the unit square.
  Aim Choose(const Vec2D<double>& u) const;
  /// Chance a steradian with which `Choose` takes a direction.
  double DensityOf(const Vec3d& direction) const;

 private:
  void SumUp();
  double Weight(i32 column, i32 row) const;
  Vec2D<double> PlaceOf(const Vec3d& direction) const;

  host::Gradient mGradient;
  const host::Image* mPicture = nullptr;  ///< null for the gradient
  Vec3d mColour{1, 1, 1};                 ///< factor on the picture
  double mTurn = 0;                       ///< of a whole one
  std::vector<double> mRowSums;           ///< sums of weights up to each row
  std::vector<double> mSums;              ///< within each row, up to each column
};

}  // namespace MELDO_GLOBAL::app
