#include "host/polygon_object.h"

#include <cmath>
#include <stdexcept>

#include "host/frame_files.h"
#include "host/mesh_files.h"
#include "host/turn_by.h"

namespace MELDO_GLOBAL::host {

namespace {
void CheckGeometry(const Geometry& geometry) {
  const i64 count = static_cast<i64>(geometry.points.size());
  const auto inRange = [&](i32 i) { return i >= 0 && i < count; };
  for (const Polygon& p : geometry.polygons)
    if (!inRange(p.a) || !inRange(p.b) || !inRange(p.c) || !inRange(p.d))
      throw std::invalid_argument("a polygon names a point that isn't there");
  const auto fits = [&](size_t size) { return size == 0 || size == geometry.polygons.size(); };
  if (!fits(geometry.uvs.size()) || !fits(geometry.normals.size()))
    throw std::invalid_argument("corner data must have one entry per polygon");
  const auto fitsPoints = [&](size_t size) { return size == 0 || size == geometry.points.size(); };
  if (!fitsPoints(geometry.velocities.size()) || !fitsPoints(geometry.colours.size()))
    throw std::invalid_argument("data of points must have one entry per point");
}
}  // namespace

void PointsObject::Animate(double frame) {
  BaseNode::Animate(frame);
  if (track.keys.empty()) return;
  std::vector<Vec3d> moved = track.Evaluate(frame);
  if (moved == points) return;
  points = std::move(moved);
  Touch();
}

void PolygonObject::SetGeometry(Geometry geometry) {
  CheckGeometry(geometry);
  const bool points = geometry.points != mGeometry.points;
  const bool polygons = geometry.polygons != mGeometry.polygons || geometry.uvs != mGeometry.uvs ||
                        geometry.normals != mGeometry.normals ||
                        geometry.velocities != mGeometry.velocities ||
                        geometry.colours != mGeometry.colours;
  if (!points && !polygons) return;
  mPointDirty += points;
  mPolygonDirty += polygons;
  mGeometry = std::move(geometry);
  Touch();
}

void PolygonObject::VisitCounters(const std::function<void(u32&)>& visit) {
  BaseNode::VisitCounters(visit);
  visit(mPointDirty);
  visit(mPolygonDirty);
}

void PolygonObject::SetFramePattern(std::string pattern, bool goesOn) {
  mFramePattern = std::move(pattern);
  mGoesOn = goesOn;
  mLoadedFile.clear();
}

void PolygonObject::WriteBack(const Matrix& m, const PlacementMotion& motion) {
  BaseNode::WriteBack(m);
  mWritten = m;
  mMotion = motion;
}

void PolygonObject::MoveOn(double frames) {
  if (!mWritten) return;
  if (frames == 0) return SetLocalMatrix(*mWritten);
  const TurnBy turn(mMotion.turn * frames);
  const Vec3d point = mMotion.point + mMotion.way * frames;
  const Matrix& m = *mWritten;
  SetLocalMatrix({point + turn(m.offset - mMotion.point), turn(m.v1), turn(m.v2), turn(m.v3)});
}

void PolygonObject::SetPlacements(Placements placements) {
  mPlacements = std::move(placements);
  const Matrix& m = LocalMatrix();
  const Matrix turn = RotationOf(m);
  const Vec3d axes[3] = {m.v1, m.v2, m.v3};
  for (int a = 0; a < 3; ++a)
    mOwnAxes[a] = {Dot(turn.v1, axes[a]), Dot(turn.v2, axes[a]), Dot(turn.v3, axes[a])};
}

Matrix PolygonObject::PlacedAt(double frame) const {
  const Matrix placed = mPlacements.At(frame);
  return {placed.offset, placed.Rotate(mOwnAxes[0]), placed.Rotate(mOwnAxes[1]),
          placed.Rotate(mOwnAxes[2])};
}

void PolygonObject::Animate(double frame) {
  BaseNode::Animate(frame);
  if (!mPlacements.IsEmpty()) SetLocalMatrix(PlacedAt(frame));
  if (mFramePattern.empty()) return;
  std::string file =
      FileAtFrame(mFramePattern, static_cast<i32>(std::floor(frame)), mGoesOn, "mesh file", Name());
  if (file.empty()) return;
  if (file == mLoadedFile) return;
  SetGeometry(LoadMesh(file));
  mLoadedFile = std::move(file);
}

}  // namespace MELDO_GLOBAL::host
