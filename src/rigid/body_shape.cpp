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
constexpr double kInner = 0.5;           // of the inner radius: the most that a margin takes
constexpr double kOwnInner = 0.1;        // and that of the library, as for its boxes

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
                      (tries(BodyForm::Hull) && MakeHull(geometry, !isAny)) ||
                      MakeTriangles(geometry, isDynamic);
  if (!isMade) return false;
  mRadius = 0;
  for (const Vec3d& v : geometry.vertices) mRadius = std::max(mRadius, Length(v));
  mOwnMargin = (mInner ? mInner : mShape)->getMargin();
  SetMargin(margin);
  if (mForm == BodyForm::Mesh && isDynamic) static_cast<btGImpactMeshShape&>(*mShape).updateBound();
  return true;
}

void BodyShape::SetMargin(double margin) {
  btCollisionShape& shape = mInner ? *mInner : *mShape;
  if (mForm == BodyForm::Mesh) return shape.setMargin(margin < 0 ? mOwnMargin : margin);
  if (mForm == BodyForm::Ball) return;  // its margin is its radius
  if (mForm == BodyForm::Box) {
    auto& box = static_cast<btBoxShape&>(shape);
    const btVector3 half = box.getHalfExtentsWithMargin();
    return box.setMargin(margin < 0 ? mOwnMargin : std::min(margin, kInner * half[half.minAxis()]));
  }
  // The library takes its own margin of a hull on top of it, however small that is.
  const double inner = InnerRadius(mHull);
  margin = margin < 0 ? std::min(mOwnMargin, kOwnInner * inner) : std::min(margin, kInner * inner);
  auto& hull = static_cast<btConvexHullShape&>(shape);
  btVector3* point = hull.getUnscaledPoints();
  for (const Vec3d& v : Shrunken(mHull, margin).vertices) *point++ = ToBullet(v);
  hull.setMargin(margin);
  hull.recalcLocalAabb();
}

double BodyShape::CoreRadius() const {
  if (mForm == BodyForm::Mesh || mInner) return 0;
  if (mForm == BodyForm::Ball) return mRadius;
  if (mForm == BodyForm::Hull) return kInner * InnerRadius(mHull);
  const btVector3 half = static_cast<const btBoxShape&>(*mShape).getHalfExtentsWithMargin();
  return half[half.minAxis()];
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

bool BodyShape::MakeHull(const BodyGeometry& geometry, bool isForced) {
  mHull = FindConvexHull(geometry.vertices);
  if (mHull.triangles.empty()) return false;
  if (!isForced && MeasureMass(geometry.vertices, geometry.triangles).volume <
                       kConvex * MeasureMass(mHull.vertices, mHull.triangles).volume)
    return false;
  mForm = BodyForm::Hull;
  auto shape = std::make_unique<btConvexHullShape>();
  for (const Vec3d& v : mHull.vertices) shape->addPoint(ToBullet(v), false);
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
