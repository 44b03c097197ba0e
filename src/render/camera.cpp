#include "render/camera.h"

#include <algorithm>
#include <numbers>

#include "host/render_objects.h"

namespace MELDO_GLOBAL::app {

using namespace host;

Matrix AimedPlacement(const BaseNode& node, const Vec3d* target) {
  const Matrix global = node.GlobalMatrix();
  Matrix placement = RotationOf(global);
  placement.offset = global.offset;
  if (!target || *target == global.offset) return placement;
  placement.v3 = Normalised(global.offset - *target);
  // Straight up or down nothing tells where the top is: take -z.
  const bool isVertical = std::abs(placement.v3.y) > 1 - 1e-9;
  placement.v1 = Normalised(Cross(isVertical ? Vec3d{0, 0, -1} : Vec3d{0, 1, 0}, placement.v3));
  placement.v2 = Cross(placement.v3, placement.v1);
  return placement;
}

Camera::Camera(const BaseNode& node, i32 width, i32 height)
    : mCentreX(width / 2.0), mCentreY(height / 2.0) {
  CameraSettings settings;
  FillMembers(CameraParameters(), &node, settings);
  mPlacement = AimedPlacement(node, settings.target);
  mFocal = mCentreX / std::tan(settings.fieldOfView * std::numbers::pi / 360);
  mNear = settings.nearClip;
  mFar = std::max(settings.farClip, mNear);
}

Vec3d Camera::Direction(double x, double y) const {
  return Normalised(mPlacement.Rotate({x - mCentreX, mCentreY - y, -mFocal}));
}

double Camera::Depth(const Vec3d& point) const {
  return -Dot(point - mPlacement.offset, mPlacement.v3);
}

std::optional<Vec2D<double>> Camera::Project(const Vec3d& point) const {
  const Vec3d d = point - mPlacement.offset;
  const double depth = Depth(point);
  if (depth <= 0) return {};
  return Vec2D<double>{mCentreX + Dot(d, mPlacement.v1) / depth * mFocal,
                       mCentreY - Dot(d, mPlacement.v2) / depth * mFocal};
}

}  // namespace MELDO_GLOBAL::app
