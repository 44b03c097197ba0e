// Lights as pictures see them.
#pragma once
#include "host/render_objects.h"
#include "host/renderer.h"

namespace MELDO_GLOBAL::app {

/// What stands between a light and a point.
class Blockers {
 public:
  virtual ~Blockers() = default;
  /// Whether a surface stands on the way, the ends left out.
  virtual bool IsBlocked(const Vec3d& from, const Vec3d& to) const = 0;
};

/// A point, spot, distant or area light at one moment.
class SceneLight : public host::RenderLight {
 public:
  /// `node` holds the light's parameters; `blockers` outlives the light.
  SceneLight(const host::BaseNode& node, const Blockers& blockers);

  host::NodeId Node() const override { return mNode; }
  Vec3d Colour() const override { return mColour; }
  bool IlluminatesVolumes() const override { return mSettings.volumes; }
  Illumination Illuminate(const Vec3d& point, bool withShadows) const override;
  Vec3d DirectionTo(const Vec3d& point) const override;

  bool CastsShadows() const { return mSettings.shadows; }

  /// Light from one place of the light.
  struct Sample {
    Vec3d colour;     ///< at the point, as if nothing stood between
    Vec3d direction;  ///< from the point towards the light
    double distance = 0;
  };
  /// `u` in the unit square picks the place on an area light.
  Sample At(const Vec3d& point, const Vec2D<double>& u) const;

 private:
  Vec3d PlaceOf(const Vec3d& point, const Vec2D<double>& u) const;
  double Attenuation(const Vec3d& direction, double distance) const;
  double BlockedPart(const Vec3d& point) const;

  host::NodeId mNode;
  const Blockers& mBlockers;
  host::LightSettings mSettings;
  Matrix mPlacement;
  Vec3d mColour;                ///< with its brightness
  double mCosInner, mCosOuter;  ///< of a spot's cone
};

}  // namespace MELDO_GLOBAL::app
