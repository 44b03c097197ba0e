#include "rigid/body_mass.h"

#include <BulletDynamics/Dynamics/btRigidBody.h>

#include <algorithm>

#include "grids/eigen.h"
#include "host/node.h"
#include "rigid/convex_hull.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kFrozenMass = 1e-4;  // kg, of a body whose mass was taken away

/// The product a^T p of a turn.
Vec3d TurnBack(const Matrix& a, const Vec3d& p) {
  return {Dot(a.v1, p), Dot(a.v2, p), Dot(a.v3, p)};
}

/// The axes about which a body turns without wobbling, right-handed; those of a box where it is
/// one, since those of a cube aren't known from its inertia.
Matrix AxesOf(const BodyGeometry& geometry, const Matrix3d& inertia) {
  Vec3d axes[3];
  if (FindBoxAxes(geometry.vertices, axes)) return {{}, axes[0], axes[1], axes[2]};
  Vec3d values;
  Matrix3d vectors;
  SlSymetricEigenDecomp(inertia, values, vectors);
  const Vec3d a = Normalised(Vec3d{vectors[0], vectors[3], vectors[6]});
  Vec3d b{vectors[1], vectors[4], vectors[7]};
  b = Normalised(b - a * Dot(a, b));
  return {{}, a, b, Cross(a, b)};
}

Vec3d Diagonal(const Matrix3d& m, const Matrix& axes) {
  Vec3d diagonal{};
  const Vec3d column[3] = {axes.v1, axes.v2, axes.v3};
  for (int k = 0; k < 3; ++k)
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) diagonal[k] += column[k][i] * m[3 * i + j] * column[k][j];
  return diagonal;
}

}  // namespace

/// Volume, centre and inertia; a solid without a volume becomes its hull if it is heavy.
bool BodyMass::Weigh(BodyGeometry& solid, bool isHeavy) {
  mProperties = solid.isClosed ? MeasureMass(solid.vertices, solid.triangles) : MassProperties{};
  if (mProperties.volume > 0) return true;
  if (!isHeavy) {
    Vec3d low = solid.vertices.front(), high = low;
    for (const Vec3d& v : solid.vertices) low = Min(low, v), high = Max(high, v);
    mProperties.centre = (low + high) * 0.5;
    return true;
  }
  const ConvexHull hull = FindConvexHull(Thickened(solid.vertices));
  if (hull.triangles.empty()) return false;
  solid = {hull.vertices, hull.triangles, true};
  mProperties = MeasureMass(hull.vertices, hull.triangles);
  return mProperties.volume > 0;
}

bool BodyMass::Find(BodyGeometry& solid, const ObstacleSettings& settings, double worldToSim) {
  const bool isHeavy = settings.IsHeavy();
  if (!Weigh(solid, isHeavy)) return false;
  if (settings.centre && isHeavy) {
    const Vec3d marked = settings.centre->GlobalMatrix().offset * worldToSim;
    mProperties.inertia = MovedInertia(mProperties, marked - mProperties.centre);
    mProperties.centre = marked;
  }
  mAxes = mProperties.volume > 0 ? AxesOf(solid, mProperties.inertia) : Matrix{};
  mInertia = Diagonal(mProperties.inertia, mAxes);
  for (Vec3d& v : solid.vertices) v = TurnBack(mAxes, v - mProperties.centre);
  mPrevious = 0;
  Read(settings, false);
  return true;
}

double BodyMass::MassBy(const ObstacleSettings& settings) const {
  if (!settings.IsHeavy()) return 0;
  if (settings.massMode == MassMode::FromDensity) return settings.density * mProperties.volume;
  return settings.mass;
}

void BodyMass::Read(const ObstacleSettings& settings, bool isRunning) {
  mPrevious = mMass;
  mMass = MassBy(settings);
  if (!isRunning) return;
  if (mPrevious > 0 && mMass == 0) mIsFrozen = true;
  if (mPrevious == 0 && mMass > 0) mIsFrozen = false;
}

void BodyMass::Restore(const BodyMotion& motion) {
  mIsFrozen = motion.isFrozen;
  mPrevious = motion.previousMass;
  mMass = motion.mass;
  if (motion.volume > 0 && motion.volume != mProperties.volume) ScaleTo(motion.volume);
}

void BodyMass::Keep(BodyMotion& motion) const {
  motion.isFrozen = mIsFrozen;
  motion.previousMass = mPrevious;
  motion.mass = mMass;
  motion.volume = mProperties.volume;
}

void BodyMass::ScaleTo(double volume) {
  const double scale = volume / std::max(mProperties.volume, 1e-300);
  mProperties.volume = volume;
  for (double& i : mProperties.inertia) i *= scale;
  mInertia = mInertia * scale;
}

bool BodyMass::SetVolume(double volume, const ObstacleSettings& settings) {
  if (!(volume > 0) || volume == mProperties.volume) return false;
  ScaleTo(volume);
  mMass = mPrevious = MassBy(settings);
  return true;
}

double BodyMass::Acting() const { return mMass == 0 && mIsFrozen ? kFrozenMass : mMass; }

double BodyMass::Density(const ObstacleSettings& settings) const {
  if (settings.massMode == MassMode::FromDensity || !(mProperties.volume > 0))
    return settings.density;
  return mMass / mProperties.volume;
}

void BodyMass::PutOn(btRigidBody& body) const {
  const double mass = Acting();
  const double density = mass > 0 && mProperties.volume > 0 ? mass / mProperties.volume : 0;
  body.setMassProps(mass, {mInertia.x * density, mInertia.y * density, mInertia.z * density});
  body.updateInertiaTensor();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
