#include "fluids/constraints/voxel_distance_constraint.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/constraints/limited_example.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr double kFar = 100000;  ///< simulation units: farther points aren't looked for
constexpr double kMostPieces = 65536;

double DistanceToSegment(const Vec3d& p, const Vec3d& a, const Vec3d& b) {
  const Vec3d along = b - a, off = p - a;
  const double length = Dot(along, along);
  const double t = length > 0 ? std::clamp(Dot(off, along) / length, 0.0, 1.0) : 0.0;
  const Vec3d d = off - along * t;
  return std::sqrt(Dot(d, d));
}

}  // namespace

const NodeKind& VoxelDistanceConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300018,
      .type = "constraint_voxeldistance",
      .label = "CS::Distance To Object",
      .className = "VoxelDistanceConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work far from an object, or, turned round, near it: its middle, its "
          "points, or a spline",
      .example =
          {{example::kBall,
            R"({ "name": "rod", "type": "spline", "points": [[-60, 60, 0], [60, 60, 0]] })"},
           {example::kSmoke, example::kBallMesh, example::kBallVolume, example::kRate,
            example::kPair,
            R"({ "type": "constraint_voxeldistance", "name": "where", "parameters": { "object": "rod", "range": 25, "invert": true } })",
            example::kLimitedEmitter}},
      .rows = Parameters,
      .make = MakeNode<VoxelDistanceConstraint>,
  };
  return kind;
}

const ParameterTable& VoxelDistanceConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(
          1000, "object", "what the distance is measured from: an object, or a mesh of one",
          {kMeshObject, kSplineObject, kPointsObject, kLightObject, kCameraObject, Mesh::Kind().id})
          .To(&VoxelDistanceConstraint::mObject)
          .To(&VoxelDistanceConstraint::mNamedMesh)
          .Required(),
      RealRow(1001, "range", 100, "host", "the distance that counts as 1")
          .AtLeast(0)
          .To(&VoxelDistanceConstraint::mRange),
      LongRow(
          1003, "mesh_mode", kPoints, "",
          "of a mesh or of loose points: the place of the object, the nearest point of it, or far "
          "away as 'range' says, whatever the place")
          .Choices({{kMiddle, "middle"}, {kPoints, "points"}, {kAlwaysFar, "far"}})
          .To(&VoxelDistanceConstraint::mMeshMode),
      LongRow(1004, "spline_mode", kSplineLine, "",
              "of a spline: its place, the nearest of its points, or its line")
          .Choices({{kSplineMiddle, "middle"}, {kSplinePoints, "points"}, {kSplineLine, "line"}})
          .To(&VoxelDistanceConstraint::mSplineMode),
  });
  return table;
}

const Mesh* VoxelDistanceConstraint::FindMesh() const {
  if (mNamedMesh) return mNamedMesh;
  for (const auto& [id, object] : mScene->List(kListGeometry)) {
    const auto* mesh = dynamic_cast<const Mesh*>(object.get());
    if (mesh && mesh->Has(FLAG_ENABLED) && mesh->ObjectId() == mObject->Id()) return mesh;
  }
  return nullptr;
}

bool VoxelDistanceConstraint::TakePoints(std::span<const Vec3d> points) {
  if (std::ranges::equal(points, mPoints)) return false;
  mPoints.assign(points.begin(), points.end());
  return true;
}

bool VoxelDistanceConstraint::TakePlaced(std::span<const Vec3d> points) {
  const Vec3d scale = GetDomain().worldToSim;
  const Matrix place = mObject->GlobalMatrix();
  const auto placed = [&](const Vec3d& p) { return (place * p) * scale; };
  if (std::ranges::equal(points, mPoints, {}, placed)) return false;
  mPoints.resize(points.size());
  std::ranges::transform(points, mPoints.begin(), placed);
  return true;
}

bool VoxelDistanceConstraint::TakeObject() {
  mIsLine = mIsFar = false;
  if (const auto* spline = dynamic_cast<const SplineObject*>(mObject)) {
    if (mSplineMode != kSplinePoints && mSplineMode != kSplineLine) return TakePoints({});
    if (mSplineMode == kSplinePoints) return TakePlaced(spline->points);
    const SplineLine line(*spline, mObject->GlobalMatrix(), GetDomain().worldToSim);
    mIsLine = !line.IsEmpty();
    return mIsLine ? TakeLine(line) : TakePlaced(spline->points);
  }
  mIsFar = mMeshMode == kAlwaysFar;
  if (mMeshMode != kPoints) return TakePoints({});
  if (const Mesh* mesh = FindMesh()) return TakePoints(mesh->mMesh.GetVertices());
  if (const auto* polygons = dynamic_cast<const PolygonObject*>(mObject))
    return TakePlaced(polygons->GetGeometry().points);
  if (const auto* cloud = dynamic_cast<const PointsObject*>(mObject))
    return TakePlaced(cloud->points);
  return TakePoints({});
}

bool VoxelDistanceConstraint::TakeLine(const SplineLine& line) {
  mLongestPiece = std::max(double{GetDomain().cellSize}, line.TotalLength() / kMostPieces);
  mLineEnds.clear();
  std::vector<Vec3d> cut;
  for (i32 segment = 0; segment < line.SegmentCount(); ++segment) {
    const std::vector<Vec3d> points = line.PointsOf(segment);
    cut.push_back(points.front());
    for (std::size_t i = 1; i < points.size(); ++i) {
      const Vec3d way = points[i] - points[i - 1];
      const double pieces = std::ceil(std::sqrt(Dot(way, way)) / mLongestPiece);
      for (double k = 1; k < pieces; ++k) cut.push_back(points[i - 1] + way * (k / pieces));
      cut.push_back(points[i]);
    }
    mLineEnds.push_back(static_cast<i32>(cut.size()) - 1);
  }
  return TakePoints(cut);
}

bool VoxelDistanceConstraint::Open() {
  if (!mObject) return Deactivate("it has no object; name one under 'object'");
  if (!(mRange > 0)) return Deactivate("its 'range' is 0");
  const Vec3d scale = GetDomain().worldToSim;
  mInverseRange = 1 / (mRange * scale.x);
  if (mNamedMesh)
    mNamedMesh->GetCentre(mMiddle);
  else
    mMiddle = mObject->GlobalMatrix().offset * scale;
  if (TakeObject()) mTree.Build(mPoints, mScene->mThreadCount);
  return true;
}

/// The nearest place lies on a piece of which an end is hardly farther away than the nearest point.
double VoxelDistanceConstraint::DistanceToLine(const Vec3d& p, double nearestSquared) const {
  double least = std::sqrt(nearestSquared);
  const double reach = std::hypot(least, 0.5 * mLongestPiece) * (1 + 1e-9);
  mTree.ForEachWithin(p, reach, [&](i32 point, double) {
    for (const i32 first : {point - 1, point}) {
      if (first < 0 || std::binary_search(mLineEnds.begin(), mLineEnds.end(), first)) continue;
      least = std::min(least, DistanceToSegment(p, mPoints[first], mPoints[first + 1]));
    }
  });
  return least;
}

double VoxelDistanceConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  if (mIsFar) return 1;
  if (mPoints.empty()) {
    const Vec3d d = position - mMiddle;
    return std::sqrt(Dot(d, d)) * mInverseRange;
  }
  const TreeHit hit = mTree.FindNearest(position, kFar);
  if (hit.index < 0) return 1;
  return (mIsLine ? DistanceToLine(position, hit.distanceSquared)
                  : std::sqrt(hit.distanceSquared)) *
         mInverseRange;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
