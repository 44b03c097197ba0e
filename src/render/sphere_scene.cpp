#include "render/sphere_scene.h"

#include <embree3/rtcore.h>

#include <bit>
#include <cmath>
#include <stdexcept>

#include "render/sampler.h"

namespace MELDO_GLOBAL::app {

using namespace host;

/// A sphere that moves by `move` from `start` while the shutter is open.
struct MovingSphere {
  SphereCloud::Value start;
  float radius;
  SphereCloud::Value move;
  float cover;  ///< below 1 where it is drawn larger than it is
};

namespace {

using Float3 = SphereCloud::Value;

/// How a ray of length 1 passes a ball.
struct Passage {
  double distance = 0;
  double cover = 0;  ///< with the part of the time
  Vec3d normal;
};

Vec3d ToDouble(const Float3& v) { return {v.x, v.y, v.z}; }

/// The times from 0 to 1 at which a point that moves stays within `radius2` squared, seen along the
/// ray; the part of the time is their difference.
struct Stay {
  double from = 0, to = -1;
};
Stay TimesWithin(const Vec3d& offset, const Vec3d& move, double radius2) {
  const double a = Dot(move, move), b = Dot(offset, move), c = Dot(offset, offset) - radius2;
  if (a <= 1e-12 * radius2) return c <= 0 ? Stay{0, 1} : Stay{};
  const double root = b * b - a * c;
  if (root <= 0) return {};
  const double half = std::sqrt(root);
  return {std::max(0.0, (-b - half) / a), std::min(1.0, (-b + half) / a)};
}

/// False where the ray passes by, or starts in the ball or behind it.
bool Pass(const MovingSphere& ball, const Vec3d& origin, const Vec3d& direction, Passage& passage) {
  const double radius = ball.radius;
  const Vec3d way = ToDouble(ball.start) - origin, move = ToDouble(ball.move);
  const double along = Dot(way, direction), speed = Dot(move, direction);
  const Stay stay = TimesWithin(way - direction * along, move - direction * speed, radius * radius);
  if (!(stay.to > stay.from)) return false;
  const double middle = 0.5 * (stay.from + stay.to);
  const Vec3d centre = way + move * middle;
  const double nearest = along + speed * middle;
  const double aside2 = Dot(centre, centre) - nearest * nearest;
  passage.distance = nearest - std::sqrt(std::max(0.0, radius * radius - aside2));
  passage.cover = std::min(1.0, (stay.to - stay.from) * ball.cover);
  passage.normal = (direction * passage.distance - centre) / radius;
  return passage.distance > 0;
}

/// A number from 0 to 1 that a ray and a ball have together.
double ChanceOf(const Vec3d& origin, const Vec3d& direction, u32 ball) {
  u64 bits = ball;
  for (int a = 0; a < 3; ++a) {
    bits = MixBits(bits, std::bit_cast<u64>(origin[a]));
    bits = MixBits(bits, std::bit_cast<u64>(direction[a]));
  }
  return static_cast<double>(bits >> 11) * 0x1p-53;
}

/// A question to the tree, and its answer so far.
struct Query : RTCIntersectContext {
  const Vec3d& origin;
  const Vec3d& direction;
  double near, far;
  bool everyOne;
  Passage passage{};
  u32 ball = RTC_INVALID_GEOMETRY_ID;

  Query(const Vec3d& from, const Vec3d& towards, double start, double end, bool all)
      : origin(from), direction(towards), near(start), far(end), everyOne(all) {
    rtcInitIntersectContext(this);
  }

  /// Whether this ball is nearer than what was found. Equal ones go by their number, so that the
  /// answer doesn't depend on the way through the tree.
  bool Ask(const MovingSphere* balls, u32 index) {
    Passage found;
    if (!Pass(balls[index], origin, direction, found)) return false;
    if (!(found.distance > near && found.distance < far)) return false;
    const bool isFirst = ball == RTC_INVALID_GEOMETRY_ID;
    if (!isFirst &&
        (found.distance > passage.distance || (found.distance == passage.distance && index > ball)))
      return false;
    if (!everyOne && found.cover < 1 && ChanceOf(origin, direction, index) >= found.cover)
      return false;
    passage = found;
    ball = index;
    return true;
  }
};

/// The next number above, so that what lies behind it in the tree is still looked at.
float Above(double x) {
  return std::nextafter(static_cast<float>(x), std::numeric_limits<float>::infinity());
}

const MovingSphere* BallsOf(void* user) {
  return static_cast<const std::vector<MovingSphere>*>(user)->data();
}

void TellBounds(const RTCBoundsFunctionArguments* args) {
  const MovingSphere& ball = BallsOf(args->geometryUserPtr)[args->primID];
  // What rounding may add lies far below this part of a coordinate.
  const auto low = [&](float p, float m) {
    const float x = std::min(p, p + m) - ball.radius;
    return x - 1e-6f * std::abs(x);
  };
  const auto high = [&](float p, float m) {
    const float x = std::max(p, p + m) + ball.radius;
    return x + 1e-6f * std::abs(x);
  };
  RTCBounds& box = *args->bounds_o;
  box.lower_x = low(ball.start.x, ball.move.x);
  box.lower_y = low(ball.start.y, ball.move.y);
  box.lower_z = low(ball.start.z, ball.move.z);
  box.upper_x = high(ball.start.x, ball.move.x);
  box.upper_y = high(ball.start.y, ball.move.y);
  box.upper_z = high(ball.start.z, ball.move.z);
}

void FindNearest(const RTCIntersectFunctionNArguments* args) {
  if (args->valid[0] == 0) return;
  Query& query = *static_cast<Query*>(args->context);
  if (!query.Ask(BallsOf(args->geometryUserPtr), args->primID)) return;
  auto& found = *reinterpret_cast<RTCRayHit*>(args->rayhit);
  found.ray.tfar = Above(query.passage.distance);
  found.hit.geomID = args->geomID;
  found.hit.primID = args->primID;
}

void FindAny(const RTCOccludedFunctionNArguments* args) {
  if (args->valid[0] == 0) return;
  Query& query = *static_cast<Query*>(args->context);
  if (!query.Ask(BallsOf(args->geometryUserPtr), args->primID)) return;
  reinterpret_cast<RTCRay*>(args->ray)->tfar = -std::numeric_limits<float>::infinity();
}

RTCRay RayOf(const Query& query) {
  RTCRay ray{};
  ray.org_x = static_cast<float>(query.origin.x);
  ray.org_y = static_cast<float>(query.origin.y);
  ray.org_z = static_cast<float>(query.origin.z);
  ray.dir_x = static_cast<float>(query.direction.x);
  ray.dir_y = static_cast<float>(query.direction.y);
  ray.dir_z = static_cast<float>(query.direction.z);
  ray.tnear = static_cast<float>(query.near) * (1 - 1e-6f);
  ray.tfar = Above(query.far);
  ray.mask = ~0u;
  return ray;
}

/// Drawn as large as the least size asks for, and as much fainter.
void Enlarge(MovingSphere& ball, const Float3& position, double leastPixels, const Camera& camera) {
  const double depth = camera.Depth(ToDouble(position));
  const double least = 0.5 * leastPixels * camera.PixelAt(depth);
  if (!(depth > 0 && ball.radius < least)) return;
  const double part = ball.radius / least;
  ball.radius = static_cast<float>(least);
  ball.cover = static_cast<float>(part * part);
}

bool IsFinite(const Float3& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

}  // namespace

struct SphereScene::Impl {
  /// What is looked up where a ray ends.
  struct Paint {
    Float3 colour, emission;
    u32 cloud;
  };
  std::vector<MovingSphere> balls;
  std::vector<Paint> paints;
  RTCDevice device = rtcNewDevice("threads=1,set_affinity=0");
  RTCScene scene = device ? rtcNewScene(device) : nullptr;

  Impl() {
    if (!scene) throw std::runtime_error("rays can't be traced on this machine");
    rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST);
  }
  ~Impl() {
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
  }

  void Add(const SphereCloud& cloud, u32 number, const Camera& camera, float shutter) {
    balls.reserve(balls.size() + cloud.positions.size());
    paints.reserve(paints.size() + cloud.positions.size());
    for (std::size_t i = 0; i < cloud.positions.size(); ++i) {
      const Float3 way = cloud.moves.empty() ? Float3{} : cloud.moves[i] * shutter;
      const Float3& position = cloud.positions[i];
      const float radius = cloud.radii[i];
      if (!(radius > 0 && std::isfinite(radius) && IsFinite(position) && IsFinite(way))) continue;
      MovingSphere ball{position - way * 0.5f, radius, way, 1};
      Enlarge(ball, position, cloud.leastPixels, camera);
      balls.push_back(ball);
      const Float3 emission = cloud.emissions.empty() ? Float3{} : cloud.emissions[i];
      paints.push_back({cloud.colours[i], emission, number});
    }
  }

  void Commit() {
    RTCGeometry built = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_USER);
    rtcSetGeometryUserPrimitiveCount(built, static_cast<u32>(balls.size()));
    rtcSetGeometryUserData(built, &balls);
    rtcSetGeometryBoundsFunction(built, TellBounds, nullptr);
    rtcSetGeometryIntersectFunction(built, FindNearest);
    rtcSetGeometryOccludedFunction(built, FindAny);
    rtcCommitGeometry(built);
    rtcAttachGeometry(scene, built);
    rtcReleaseGeometry(built);
    rtcCommitScene(scene);
    if (rtcGetDeviceError(device) == RTC_ERROR_OUT_OF_MEMORY) throw std::bad_alloc();
  }
};

SphereScene::SphereScene(const std::vector<SphereCloud>& clouds, const Camera& camera,
                         double shutter)
    : mImpl(std::make_unique<Impl>()) {
  for (const SphereCloud& cloud : clouds) {
    mImpl->Add(cloud, static_cast<u32>(mLooks.size()), camera, static_cast<float>(shutter));
    mLooks.push_back({cloud.reflection, cloud.roughness});
  }
  mImpl->Commit();
}
SphereScene::~SphereScene() = default;

std::size_t SphereScene::Count() const { return mImpl->balls.size(); }

bool SphereScene::Trace(const Vec3d& origin, const Vec3d& direction, double near, double far,
                        bool everyOne, SphereHit& hit) const {
  if (mImpl->balls.empty()) return false;
  Query query(origin, direction, near, far, everyOne);
  RTCRayHit ray{};
  ray.ray = RayOf(query);
  ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(mImpl->scene, &query, &ray);
  if (query.ball == RTC_INVALID_GEOMETRY_ID) return false;
  const Impl::Paint& paint = mImpl->paints[query.ball];
  hit = {query.passage.distance, query.passage.normal,    query.passage.cover, paint.cloud,
         ToDouble(paint.colour), ToDouble(paint.emission)};
  return true;
}

bool SphereScene::IsBlocked(const Vec3d& origin, const Vec3d& direction, double near,
                            double far) const {
  if (mImpl->balls.empty()) return false;
  Query query(origin, direction, near, far, false);
  RTCRay ray = RayOf(query);
  rtcOccluded1(mImpl->scene, &query, &ray);
  return query.ball != RTC_INVALID_GEOMETRY_ID;
}

}  // namespace MELDO_GLOBAL::app
