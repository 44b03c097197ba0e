#include "rigid/body_shape.h"

#include <BulletCollision/CollisionShapes/btBoxShape.h>
#include <BulletCollision/CollisionShapes/btBvhTriangleMeshShape.h>
#include <BulletCollision/CollisionShapes/btCompoundShape.h>
#include <BulletCollision/CollisionShapes/btConvexHullShape.h>
#include <BulletCollision/CollisionShapes/btSphereShape.h>
#include <BulletCollision/CollisionShapes/btTriangleIndexVertexArray.h>
#include <BulletCollision/Gimpact/btGImpactShape.h>

#include <algorithm>
#include <cmath>

#include "rigid/bullet_frame.h"
#include "rigid/convex_hull.h"
#include "rigid/mass_properties.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kSame = 1e-6;           // of a body's size: places that count as one
constexpr std::size_t kBallPoints = 60;  // fewer of them on a sphere are corners
constexpr double kBallVolume = 0.9;      // of the sphere's
constexpr double kConvex = 0.999;        // of the hull's volume

/// Half the box about the origin that holds all vertices.
Vec3d HalfBox(const std::vector<Vec3d>& vertices) {
  Vec3d half{};
  for (const Vec3d& v : vertices)
    half = Max(half, Vec3d{std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
  return half;
}

}  // namespace

BodyShape::BodyShape() = default;
BodyShape::~BodyShape() = default;

bool BodyShape::Make(const BodyGeometry& geometry, BodyForm form, bool isDynamic, double margin) {
  if (geometry.triangles.empty() || geometry.vertices.empty()) return false;
  const bool isAny = form == BodyForm::Automatic;
  const bool isSolid = isDynamic || geometry.isClosed;
  const auto tries = [&](BodyForm one) { return isSolid && (isAny || form == one); };
  const bool isMade = (tries(BodyForm::Box) && MakeBox(geometry, !isAny)) ||
                      (tries(BodyForm::Ball) && MakeBall(geometry, !isAny)) ||
                      (tries(BodyForm::Hull) && MakeHull(geometry, !isAny, margin)) ||
                      MakeTriangles(geometry, isDynamic);
  if (!isMade) return false;
  mRadius = 0;
  for (const Vec3d& v : geometry.vertices) mRadius = std::max(mRadius, Length(v));
  // A ball's margin is its radius.
  if (margin >= 0 && mForm != BodyForm::Ball) (mInner ? mInner : mShape)->setMargin(margin);
  if (mForm == BodyForm::Mesh && isDynamic) static_cast<btGImpactMeshShape&>(*mShape).updateBound();
  return true;
}

bool BodyShape::MakeBox(const BodyGeometry& geometry, bool isForced) {
  Vec3d half = HalfBox(geometry.vertices), middle{};
  if (isForced) {
    Vec3d low = geometry.vertices.front(), high = low;
    for (const Vec3d& v : geometry.vertices) low = Min(low, v), high = Max(high, v);
    half = (high - low) * 0.5;
    middle = (low + high) * 0.5;
  } else {
    const double size = Length(half);
    for (const Vec3d& v : geometry.vertices)
      for (int a = 0; a < 3; ++a)
        if (std::fabs(std::fabs(v[a]) - half[a]) > kSame * size) return false;
    const double volume = MeasureMass(geometry.vertices, geometry.triangles).volume;
    if (std::fabs(volume - 8 * half.x * half.y * half.z) > 1e-3 * volume) return false;
  }
  if (!(std::min({half.x, half.y, half.z}) > 0)) return false;
  mForm = BodyForm::Box;
  mShape = std::make_unique<btBoxShape>(btVector3(half.x, half.y, half.z));
  if (Length(middle) <= kSame * Length(half)) return true;
  mInner = std::move(mShape);
  auto compound = std::make_unique<btCompoundShape>();
  compound->addChildShape(btTransform(btQuaternion::getIdentity(), ToBullet(middle)), mInner.get());
  mShape = std::move(compound);
  return true;
}

bool BodyShape::MakeBall(const BodyGeometry& geometry, bool isForced) {
  double least = HUGE_VAL, most = 0;
  for (const Vec3d& v : geometry.vertices) {
    least = std::min(least, Length(v));
    most = std::max(most, Length(v));
  }
  if (!(most > 0)) return false;
  if (!isForced) {
    const double ball = 4.0 / 3 * M_PI * most * most * most;
    if (most - least > 1e-4 * most || geometry.vertices.size() < kBallPoints ||
        MeasureMass(geometry.vertices, geometry.triangles).volume < kBallVolume * ball)
      return false;
  }
  mForm = BodyForm::Ball;
  mShape = std::make_unique<btSphereShape>(most);
  return true;
}

bool BodyShape::MakeHull(const BodyGeometry& geometry, bool isForced, double margin) {
  const ConvexHull hull = FindConvexHull(geometry.vertices);
  if (hull.triangles.empty()) return false;
  if (!isForced && MeasureMass(geometry.vertices, geometry.triangles).volume <
                       kConvex * MeasureMass(hull.vertices, hull.triangles).volume)
    return false;
  mForm = BodyForm::Hull;
  auto shape = std::make_unique<btConvexHullShape>();
  // The library adds the margin outside of the points.
  const double pull = std::max(margin, 0.0);
  for (const Vec3d& v : hull.vertices) {
    const double length = Length(v);
    shape->addPoint(ToBullet(length > 2 * pull ? v * (1 - pull / length) : v), false);
  }
  shape->recalcLocalAabb();
  if (margin < 0) shape->setMargin(0);
  mShape = std::move(shape);
  return true;
}

bool BodyShape::MakeTriangles(const BodyGeometry& geometry, bool isDynamic) {
  mVertices.clear();
  mIndices.clear();
  for (const Vec3d& v : geometry.vertices) mVertices.insert(mVertices.end(), {v.x, v.y, -v.z});
  for (const VecInt3D& t : geometry.triangles) mIndices.insert(mIndices.end(), {t.z, t.y, t.x});
  mMesh = std::make_unique<btTriangleIndexVertexArray>(
      static_cast<int>(geometry.triangles.size()), mIndices.data(), int{3 * sizeof(int)},
      static_cast<int>(geometry.vertices.size()), mVertices.data(), int{3 * sizeof(double)});
  mForm = BodyForm::Mesh;
  if (isDynamic)
    mShape = std::make_unique<btGImpactMeshShape>(mMesh.get());
  else
    mShape = std::make_unique<btBvhTriangleMeshShape>(mMesh.get(), true);
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
