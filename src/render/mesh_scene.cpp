#include "render/mesh_scene.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <limits>
#include <numbers>
#include <stdexcept>

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// Twice the area of a polygon along its normal.
Vec3d AreaNormal(const Geometry& geometry, const Polygon& p) {
  const Vec3d &a = geometry.points[p.a], &b = geometry.points[p.b], &c = geometry.points[p.c];
  if (!p.IsQuad()) return Cross(b - a, c - a);
  return Cross(c - a, geometry.points[p.d] - b);
}

std::array<i32, 4> CornersOf(const Polygon& p) { return {p.a, p.b, p.c, p.d}; }

/// Whether closed polygons turn to the inside; false where hardly anything is enclosed.
bool IsInsideOut(const Geometry& geometry) {
  if (geometry.points.empty()) return false;
  Vec3d low = geometry.points.front(), high = low;
  for (const Vec3d& p : geometry.points) low = Min(low, p), high = Max(high, p);
  const Vec3d middle = (low + high) * 0.5, size = high - low;
  double volume = 0;
  for (const Polygon& p : geometry.polygons) {
    const Vec3d a = geometry.points[p.a] - middle, b = geometry.points[p.b] - middle,
                c = geometry.points[p.c] - middle;
    volume += Dot(a, Cross(b, c)) / 6;
    if (p.IsQuad()) volume += Dot(a, Cross(c, geometry.points[p.d] - middle)) / 6;
  }
  return volume < -1e-6 * size.x * size.y * size.z;
}

RTCRay MakeRay(const Vec3d& origin, const Vec3d& direction, double near, double far) {
  RTCRay ray{};
  ray.org_x = static_cast<float>(origin.x);
  ray.org_y = static_cast<float>(origin.y);
  ray.org_z = static_cast<float>(origin.z);
  ray.dir_x = static_cast<float>(direction.x);
  ray.dir_y = static_cast<float>(direction.y);
  ray.dir_z = static_cast<float>(direction.z);
  ray.tnear = static_cast<float>(near);
  ray.tfar = static_cast<float>(far);
  ray.mask = ~0u;
  return ray;
}

}  // namespace

std::vector<std::array<Vec3d, 4>> CornerNormals(const Geometry& geometry, double degrees) {
  if (!geometry.normals.empty()) return geometry.normals;
  const std::size_t count = geometry.polygons.size();
  std::vector<Vec3d> areas(count), units(count);
  std::vector<std::vector<u32>> around(geometry.points.size());
  for (std::size_t i = 0; i < count; ++i) {
    areas[i] = AreaNormal(geometry, geometry.polygons[i]);
    units[i] = Normalised(areas[i]);
    const auto corners = CornersOf(geometry.polygons[i]);
    const std::size_t last = geometry.polygons[i].IsQuad() ? 4 : 3;
    for (std::size_t c = 0; c < last; ++c) around[corners[c]].push_back(static_cast<u32>(i));
  }
  const double limit = std::cos(degrees * std::numbers::pi / 180);
  std::vector<std::array<Vec3d, 4>> normals(count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto corners = CornersOf(geometry.polygons[i]);
    for (std::size_t c = 0; c < 4; ++c) {
      Vec3d sum;
      for (const u32 other : around[corners[c]])
        if (Dot(units[other], units[i]) >= limit) sum += areas[other];
      normals[i][c] = Normalised(sum);
    }
  }
  return normals;
}

struct MeshScene::Impl {
  struct Mesh {
    i32 material = 0;
    bool isInsideOut = false;  ///< its polygons turn to the inside where they stand
    std::vector<std::array<Vec3d, 3>> normals;  ///< per triangle corner
  };

  // One thread builds: the same triangles then always make the same tree, and ties between
  // neighbours fall the same way.
  RTCDevice device = rtcNewDevice("threads=1,set_affinity=0");
  RTCScene scene = device ? rtcNewScene(device) : nullptr;
  std::vector<Mesh> meshes;

  Impl() {
    if (!scene) throw std::runtime_error("rays can't be traced on this machine");
    rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST | RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION);
  }
  ~Impl() {
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
  }
};

MeshScene::MeshScene() : mImpl(std::make_unique<Impl>()) {}
MeshScene::~MeshScene() = default;

void MeshScene::Add(const Geometry& geometry, const Matrix& placement, i32 material,
                    double seconds) {
  std::size_t triangles = 0;
  for (const Polygon& p : geometry.polygons) triangles += p.IsQuad() ? 2 : 1;
  if (triangles == 0) return;
  RTCGeometry built = rtcNewGeometry(mImpl->device, RTC_GEOMETRY_TYPE_TRIANGLE);
  auto* points = static_cast<float*>(rtcSetNewGeometryBuffer(built, RTC_BUFFER_TYPE_VERTEX, 0,
                                                             RTC_FORMAT_FLOAT3, 3 * sizeof(float),
                                                             geometry.points.size()));
  auto* indices = static_cast<u32*>(rtcSetNewGeometryBuffer(
      built, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(u32), triangles));
  if (!points || !indices) throw std::bad_alloc();
  const bool isMoved = seconds != 0 && !geometry.velocities.empty();
  for (std::size_t i = 0; i < geometry.points.size(); ++i) {
    const Vec3d way = isMoved ? geometry.velocities[i] * seconds : Vec3d{};
    const Vec3d world = placement * (geometry.points[i] + way);
    for (int axis = 0; axis < 3; ++axis) *points++ = static_cast<float>(world[axis]);
  }

  Impl::Mesh mesh;
  mesh.material = material;
  mesh.isInsideOut =
      IsInsideOut(geometry) != (Dot(Cross(placement.v1, placement.v2), placement.v3) < 0);
  mesh.normals.reserve(triangles);
  const auto normals = CornerNormals(geometry);
  // Normals move with the inverse transposed.
  const Matrix inverse = Inverse(placement);
  const auto turned = [&](const Vec3d& n) {
    return Normalised(Vec3d{Dot(n, inverse.v1), Dot(n, inverse.v2), Dot(n, inverse.v3)});
  };
  for (std::size_t i = 0; i < geometry.polygons.size(); ++i) {
    const auto corners = CornersOf(geometry.polygons[i]);
    const auto add = [&](int a, int b, int c) {
      for (const int corner : {a, b, c}) *indices++ = static_cast<u32>(corners[corner]);
      mesh.normals.push_back({turned(normals[i][a]), turned(normals[i][b]), turned(normals[i][c])});
    };
    add(0, 1, 2);
    if (geometry.polygons[i].IsQuad()) add(0, 2, 3);
  }
  rtcCommitGeometry(built);
  rtcAttachGeometryByID(mImpl->scene, built, static_cast<u32>(mImpl->meshes.size()));
  rtcReleaseGeometry(built);
  mImpl->meshes.push_back(std::move(mesh));
}

void MeshScene::Commit() { rtcCommitScene(mImpl->scene); }

bool MeshScene::Trace(const Vec3d& origin, const Vec3d& direction, double near, double far,
                      MeshHit& hit) const {
  if (mImpl->meshes.empty()) return false;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRayHit query{};
  query.ray = MakeRay(origin, direction, near, far);
  query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(mImpl->scene, &context, &query);
  if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;

  const Impl::Mesh& mesh = mImpl->meshes[query.hit.geomID];
  const auto& n = mesh.normals[query.hit.primID];
  const double u = query.hit.u, v = query.hit.v;
  hit.distance = query.ray.tfar;
  hit.material = mesh.material;
  hit.facing = Normalised(Vec3d{query.hit.Ng_x, query.hit.Ng_y, query.hit.Ng_z});
  const bool isBack = Dot(hit.facing, direction) > 0;
  hit.isFromInside = isBack != mesh.isInsideOut;
  if (isBack) hit.facing = -hit.facing;
  hit.normal = Normalised(n[0] * (1 - u - v) + n[1] * u + n[2] * v);
  if (Dot(hit.normal, hit.facing) < 0) hit.normal = -hit.normal;
  if (hit.normal == Vec3d{}) hit.normal = hit.facing;
  return true;
}

namespace {

/// Hits of a ray in any order.
struct Collection {
  RTCIntersectContext context;  // first, so that a filter finds the rest
  struct Hit {
    float distance;
    u32 mesh;
    bool isBack;
    friend auto operator<=>(const Hit&, const Hit&) = default;
  };
  std::vector<Hit> hits;
};

/// Notes a hit and goes on behind it.
void NoteHit(const RTCFilterFunctionNArguments* arguments) {
  auto* collection = reinterpret_cast<Collection*>(arguments->context);
  RTCRayN* ray = arguments->ray;
  RTCHitN* hit = arguments->hit;
  const float facing = RTCHitN_Ng_x(hit, 1, 0) * RTCRayN_dir_x(ray, 1, 0) +
                       RTCHitN_Ng_y(hit, 1, 0) * RTCRayN_dir_y(ray, 1, 0) +
                       RTCHitN_Ng_z(hit, 1, 0) * RTCRayN_dir_z(ray, 1, 0);
  collection->hits.push_back({RTCRayN_tfar(ray, 1, 0), RTCHitN_geomID(hit, 1, 0), facing > 0});
  arguments->valid[0] = 0;
}

}  // namespace

i32 MeshScene::Count() const { return static_cast<i32>(mImpl->meshes.size()); }

std::vector<MeshHit> MeshScene::CollectHits(const Vec3d& origin, const Vec3d& direction,
                                            double near, double far) const {
  if (IsEmpty()) return {};
  Collection collection;
  rtcInitIntersectContext(&collection.context);
  collection.context.filter = NoteHit;
  RTCRayHit query{};
  query.ray = MakeRay(origin, direction, near, far);
  query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(mImpl->scene, &collection.context, &query);
  std::sort(collection.hits.begin(), collection.hits.end());
  std::vector<MeshHit> hits;
  std::vector<Collection::Hit> told;
  for (const Collection::Hit& hit : collection.hits) {
    const double edge = 1e-5 * std::max(1.0, double{hit.distance});
    const bool isTold = std::any_of(told.begin(), told.end(), [&](const Collection::Hit& other) {
      return other.mesh == hit.mesh && other.isBack == hit.isBack &&
             hit.distance - other.distance <= edge;
    });
    if (isTold) continue;
    told.push_back(hit);
    const Impl::Mesh& mesh = mImpl->meshes[hit.mesh];
    hits.emplace_back();
    hits.back().distance = hit.distance;
    hits.back().material = mesh.material;
    hits.back().isFromInside = hit.isBack != mesh.isInsideOut;
  }
  return hits;
}

bool MeshScene::IsBlocked(const Vec3d& origin, const Vec3d& direction, double near,
                          double far) const {
  if (mImpl->meshes.empty()) return false;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRay ray = MakeRay(origin, direction, near, far);
  rtcOccluded1(mImpl->scene, &context, &ray);
  return ray.tfar < 0;  // minus infinity marks a hit
}

}  // namespace MELDO_GLOBAL::app
