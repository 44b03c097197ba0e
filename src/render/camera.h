// The camera of a picture.
#pragma once
#include <optional>

#include "host/node.h"

namespace MELDO_GLOBAL::app {

/// The placement, without scale, of a node that looks or shines along its -z axis: its own, or,
/// with a target, its position turned towards that point with y up.
Matrix AimedPlacement(const host::BaseNode& node, const Vec3d* target);

/// A camera with perspective, as it stands at one moment. Pixels are square; x runs right and y
/// down from the upper left corner, so that the first pixel's centre is (0.5, 0.5).
class Camera {
 public:
  /// `node` holds the camera's parameters.
  Camera(const host::BaseNode& node, i32 width, i32 height);

  const Vec3d& Origin() const { return mPlacement.offset; }
  /// The direction of length 1 through a point of the picture.
  Vec3d Direction(double x, double y) const;
  /// Where a point is seen, in pixels; nothing for one that isn't in front of the camera.
  std::optional<Vec2D<double>> Project(const Vec3d& point) const;
  /// The size of a pixel at a distance along the axis of view.
  double PixelAt(double depth) const { return depth / mFocal; }
  /// Distance along the axis of view.
  double Depth(const Vec3d& point) const;
  /// The clip distances along a ray.
  double NearAlong(const Vec3d& direction) const { return mNear / Cosine(direction); }
  double FarAlong(const Vec3d& direction) const { return mFar / Cosine(direction); }
  double NearClip() const { return mNear; }
  double FarClip() const { return mFar; }

 private:
  double Cosine(const Vec3d& direction) const { return -Dot(direction, mPlacement.v3); }

  Matrix mPlacement;
  double mCentreX, mCentreY;
  double mFocal;  ///< distance of the picture plane in pixels
  double mNear, mFar;
};

}  // namespace MELDO_GLOBAL::app
