#include "host/polygon_object.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "host/mesh_files.h"
#include "host/turn_by.h"

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {
/// The place of the last run of # in a pattern; length 0 without one.
struct Run {
  size_t begin = 0, length = 0;
};

Run LastRun(const std::string& pattern) {
  const size_t last = pattern.rfind('#');
  if (last == std::string::npos) return {};
  const size_t before = pattern.find_last_not_of('#', last);
  const size_t begin = before == std::string::npos ? 0 : before + 1;
  return {begin, last + 1 - begin};
}

bool IsFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

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
  const i32 whole = static_cast<i32>(std::floor(frame));
  std::string file = FrameFileName(mFramePattern, whole);
  if (!IsFile(file)) {
    const std::map<i32, fs::path> files = FilesOfSequence(mFramePattern);
    const auto behind = files.upper_bound(whole);
    if (behind == files.begin()) return;
    if (behind != files.end() && !mGoesOn)
      throw MeshFileError(
          fmt::format("mesh file \"{}\" is missing, and the sequence goes on behind it; "
                      "go_on_after_failure of \"{}\" would keep the mesh before",
                      file, Name()));
    file = std::prev(behind)->second.string();
  }
  if (file == mLoadedFile) return;
  SetGeometry(LoadMesh(file));
  mLoadedFile = std::move(file);
}

std::map<i32, fs::path> FilesOfSequence(const std::string& pattern) {
  std::map<i32, fs::path> files;
  const fs::path whole(pattern);
  const std::string name = whole.filename().string();
  const Run run = LastRun(name);
  if (run.length == 0) return files;
  std::error_code failed;
  const fs::path folder = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
  for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    const std::string file = entry->path().filename().string();
    if (file.size() < name.size() || !file.starts_with(name.substr(0, run.begin))) continue;
    i32 number = 0;
    const char* digits = file.data() + run.begin;
    if (std::from_chars(digits, file.data() + file.size(), number).ec != std::errc()) continue;
    // Only the name that this number is written to counts, not "7" or "00007" for "####".
    const fs::path wanted = FrameFileName(pattern, number);
    if (wanted.filename() == file && IsFile(wanted)) files.emplace(number, wanted);
  }
  return files;
}

std::string FrameFileName(const std::string& pattern, i32 frame) {
  const Run run = LastRun(pattern);
  if (run.length == 0) return pattern;
  return fmt::format("{}{}{:0{}}{}", pattern.substr(0, run.begin), frame < 0 ? "-" : "",
                     std::abs(static_cast<i64>(frame)), run.length,
                     pattern.substr(run.begin + run.length));
}

}  // namespace MELDO_GLOBAL::host
